#include "CFArrayObject.h"
#include "SharedCallBacks.h"

namespace {

const void* retainValue(CFAllocatorRef, const void* value) {
    return CFRetain(value);
}

void releaseValue(CFAllocatorRef, const void* value) {
    CFRelease(value);
}

Boolean equalValues(const void* a, const void* b) {
    return qvcf::equal(a, b);
}

}  // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, retainValue, releaseValue, nullptr, equalValues};

__CFArray::__CFArray(const CFArrayCallBacks* arrayCallBacks, bool mutableArray)
    : CFObject(qvcf::kArrayTypeId, false),
      callBacks(qvcf::sharedCallBacks(arrayCallBacks, kCFTypeArrayCallBacks)),
      isMutable(mutableArray) {}

__CFArray::~__CFArray() {
    if (callBacks.release != nullptr) {
        for (const void* value : values) {
            callBacks.release(kCFAllocatorDefault, value);
        }
    }
}

void __CFArray::append(const void* value) {
    values.push_back(callBacks.retain != nullptr ? callBacks.retain(kCFAllocatorDefault, value)
                                                 : value);
}

bool __CFArray::equals(const __CFArray& other) const {
    if (values.size() != other.values.size()) {
        return false;
    }
    for (size_t i = 0; i < values.size(); ++i) {
        const bool same = callBacks.equal != nullptr ? callBacks.equal(values[i], other.values[i])
                                                     : values[i] == other.values[i];
        if (!same) {
            return false;
        }
    }
    return true;
}

CFTypeID CFArrayGetTypeID(void) {
    return qvcf::kArrayTypeId;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks) {
    if (numValues < 0 || (values == nullptr && numValues > 0)) {
        return nullptr;
    }
    auto* array = new __CFArray(callBacks, false);
    array->values.reserve(static_cast<size_t>(numValues));
    for (CFIndex i = 0; i < numValues; ++i) {
        array->append(values[i]);
    }
    return array;
}

CFIndex CFArrayGetCount(CFArrayRef theArray) {
    const auto* array = qvcf::checked<__CFArray>(theArray, qvcf::kArrayTypeId, "CFArrayGetCount");
    return static_cast<CFIndex>(array->values.size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
    const auto* array =
        qvcf::checked<__CFArray>(theArray, qvcf::kArrayTypeId, "CFArrayGetValueAtIndex");
    if (idx < 0 || static_cast<size_t>(idx) >= array->values.size()) {
        qvcf::fatal("CFArrayGetValueAtIndex", "index out of bounds");
    }
    return array->values[static_cast<size_t>(idx)];
}
