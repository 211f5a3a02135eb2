// Numbers (a 64-bit integer or a double) and the two boolean singletons.
#pragma once

#include "CFObject.h"

#include <CoreFoundation/CFNumber.h>

#include <cstdint>

struct __CFNumber : qvcf::CFObject {
    explicit __CFNumber(int64_t value)
        : CFObject(qvcf::kNumberTypeId, false), isFloat(false), integer(value), real(0) {}
    explicit __CFNumber(double value)
        : CFObject(qvcf::kNumberTypeId, false), isFloat(true), integer(0), real(value) {}

    bool equals(const __CFNumber& other) const;
    CFHashCode hash() const;

    const bool isFloat;
    const int64_t integer;
    const double real;
};

struct __CFBoolean : qvcf::CFObject {
    constexpr explicit __CFBoolean(bool isTrue)
        : CFObject(qvcf::kBooleanTypeId, true), value(isTrue) {}

    const bool value;
};
