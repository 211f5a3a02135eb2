#include "CFNumberObject.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

namespace {

__CFBoolean trueObject(true);
__CFBoolean falseObject(false);

// 2^63: the first double above every int64_t.
constexpr double kTwoTo63 = 9223372036854775808.0;

// The integer that `value` truncates to, when there is one within int64_t.
bool exactInteger(double value, int64_t& integer) {
    if (!(value >= -kTwoTo63 && value < kTwoTo63) || std::trunc(value) != value) {
        return false;
    }
    integer = static_cast<int64_t>(value);
    return true;
}

// Whether `value` converts to double and back without change.
bool exactAsDouble(int64_t value) {
    const double converted = static_cast<double>(value);
    return converted < kTwoTo63 && static_cast<int64_t>(converted) == value;
}

// A double truncated towards zero and clamped into [low, high]; NaN gives 0.
template <typename Int>
Int clampedTruncation(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value <= static_cast<double>(std::numeric_limits<Int>::min())) {
        return std::numeric_limits<Int>::min();
    }
    if (value >= static_cast<double>(std::numeric_limits<Int>::max())) {
        return std::numeric_limits<Int>::max();
    }
    return static_cast<Int>(value);
}

Boolean storeInt32(const __CFNumber& number, int32_t* out) {
    if (number.isFloat) {
        *out = clampedTruncation<int32_t>(number.real);
        return static_cast<double>(*out) == number.real;
    }
    *out = static_cast<int32_t>(number.integer);
    return *out == number.integer;
}

Boolean storeInt64(const __CFNumber& number, int64_t* out) {
    if (number.isFloat) {
        *out = clampedTruncation<int64_t>(number.real);
        int64_t exact = 0;
        return exactInteger(number.real, exact) && exact == *out;
    }
    *out = number.integer;
    return true;
}

Boolean storeDouble(const __CFNumber& number, double* out) {
    if (number.isFloat) {
        *out = number.real;
        return true;
    }
    *out = static_cast<double>(number.integer);
    return exactAsDouble(number.integer);
}

}  // namespace

const CFBooleanRef kCFBooleanTrue = &trueObject;
const CFBooleanRef kCFBooleanFalse = &falseObject;

bool __CFNumber::equals(const __CFNumber& other) const {
    if (isFloat == other.isFloat) {
        // NaN equals NaN here so that a NaN key can be found again.
        return isFloat ? (real == other.real || (std::isnan(real) && std::isnan(other.real)))
                       : integer == other.integer;
    }
    const __CFNumber& floating = isFloat ? *this : other;
    const __CFNumber& whole = isFloat ? other : *this;
    int64_t value = 0;
    return exactInteger(floating.real, value) && value == whole.integer;
}

CFHashCode __CFNumber::hash() const {
    // Equal values hash alike whatever their representation.
    int64_t value = integer;
    if (isFloat && !exactInteger(real, value)) {
        return std::hash<double>{}(std::isnan(real) ? std::numeric_limits<double>::quiet_NaN()
                                                    : real);
    }
    return std::hash<int64_t>{}(value);
}

CFTypeID CFBooleanGetTypeID(void) {
    return qvcf::kBooleanTypeId;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return qvcf::checked<__CFBoolean>(boolean, qvcf::kBooleanTypeId, "CFBooleanGetValue")->value;
}

CFTypeID CFNumberGetTypeID(void) {
    return qvcf::kNumberTypeId;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr) {
    if (valuePtr == nullptr) {
        return nullptr;
    }
    switch (theType) {
        case kCFNumberSInt32Type: {
            int32_t value = 0;
            std::memcpy(&value, valuePtr, sizeof value);
            return new __CFNumber(static_cast<int64_t>(value));
        }
        case kCFNumberSInt64Type: {
            int64_t value = 0;
            std::memcpy(&value, valuePtr, sizeof value);
            return new __CFNumber(value);
        }
        case kCFNumberDoubleType: {
            double value = 0;
            std::memcpy(&value, valuePtr, sizeof value);
            return new __CFNumber(value);
        }
    }
    return nullptr;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr) {
    const auto* object = qvcf::checked<__CFNumber>(number, qvcf::kNumberTypeId, "CFNumberGetValue");
    if (valuePtr == nullptr) {
        return false;
    }
    switch (theType) {
        case kCFNumberSInt32Type: {
            int32_t value = 0;
            const Boolean exact = storeInt32(*object, &value);
            std::memcpy(valuePtr, &value, sizeof value);
            return exact;
        }
        case kCFNumberSInt64Type: {
            int64_t value = 0;
            const Boolean exact = storeInt64(*object, &value);
            std::memcpy(valuePtr, &value, sizeof value);
            return exact;
        }
        case kCFNumberDoubleType: {
            double value = 0;
            const Boolean exact = storeDouble(*object, &value);
            std::memcpy(valuePtr, &value, sizeof value);
            return exact;
        }
    }
    return false;
}
