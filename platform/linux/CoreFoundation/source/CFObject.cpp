#include "CFObject.h"

#include "CFArrayObject.h"
#include "CFDataObject.h"
#include "CFDateObject.h"
#include "CFDictionaryObject.h"
#include "CFNumberObject.h"
#include "CFStringObject.h"

#include <cstdio>
#include <cstdlib>

struct __CFAllocator : qvcf::CFObject {
    constexpr __CFAllocator() : CFObject(qvcf::kAllocatorTypeId, true) {}
};

namespace {
__CFAllocator nullAllocator;
}  // namespace

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFAllocatorRef kCFAllocatorNull = &nullAllocator;

namespace qvcf {

void fatal(const char* function, const char* problem) {
    std::fprintf(stderr, "*** %s(): %s\n", function, problem);
    std::fflush(stderr);
    std::abort();
}

const CFObject* checkedObject(CFTypeRef ref, CFTypeID type, const char* function) {
    if (ref == nullptr) {
        fatal(function, "called with NULL");
    }
    const auto* object = static_cast<const CFObject*>(ref);
    if (object->typeId != type) {
        fatal(function, "called with an object of the wrong type");
    }
    return object;
}

bool equal(CFTypeRef a, CFTypeRef b) {
    if (a == b) {
        return true;
    }
    if (a == nullptr || b == nullptr) {
        return false;
    }
    const auto* left = static_cast<const CFObject*>(a);
    const auto* right = static_cast<const CFObject*>(b);
    if (left->typeId != right->typeId) {
        return false;
    }
    switch (left->typeId) {
        case kStringTypeId:
            return static_cast<const __CFString*>(left)->equals(
                *static_cast<const __CFString*>(right));
        case kNumberTypeId:
            return static_cast<const __CFNumber*>(left)->equals(
                *static_cast<const __CFNumber*>(right));
        case kDataTypeId:
            return static_cast<const __CFData*>(left)->equals(*static_cast<const __CFData*>(right));
        case kDateTypeId:
            return static_cast<const __CFDate*>(left)->equals(*static_cast<const __CFDate*>(right));
        case kArrayTypeId:
            return static_cast<const __CFArray*>(left)->equals(
                *static_cast<const __CFArray*>(right));
        case kDictionaryTypeId:
            return static_cast<const __CFDictionary*>(left)->equals(
                *static_cast<const __CFDictionary*>(right));
        default:
            // Booleans and allocators are singletons: identity is equality.
            return false;
    }
}

CFHashCode hash(CFTypeRef ref) {
    if (ref == nullptr) {
        return 0;
    }
    const auto* object = static_cast<const CFObject*>(ref);
    switch (object->typeId) {
        case kStringTypeId:
            return static_cast<const __CFString*>(object)->hash();
        case kNumberTypeId:
            return static_cast<const __CFNumber*>(object)->hash();
        case kDataTypeId:
            return static_cast<const __CFData*>(object)->hash();
        case kDateTypeId:
            return static_cast<const __CFDate*>(object)->hash();
        case kArrayTypeId:
            return static_cast<CFHashCode>(static_cast<const __CFArray*>(object)->values.size());
        case kDictionaryTypeId:
            return static_cast<CFHashCode>(static_cast<const __CFDictionary*>(object)->count());
        default:
            return reinterpret_cast<CFHashCode>(ref);
    }
}

}  // namespace qvcf

CFTypeRef CFRetain(CFTypeRef cf) {
    if (cf == nullptr) {
        qvcf::fatal("CFRetain", "called with NULL");
    }
    const auto* object = static_cast<const qvcf::CFObject*>(cf);
    if (!object->immortal) {
        const_cast<qvcf::CFObject*>(object)->refCount.fetch_add(1, std::memory_order_relaxed);
    }
    return cf;
}

void CFRelease(CFTypeRef cf) {
    if (cf == nullptr) {
        qvcf::fatal("CFRelease", "called with NULL");
    }
    auto* object = const_cast<qvcf::CFObject*>(static_cast<const qvcf::CFObject*>(cf));
    if (object->immortal) {
        return;
    }
    if (object->refCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete object;
    }
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
    if (cf1 == nullptr || cf2 == nullptr) {
        qvcf::fatal("CFEqual", "called with NULL");
    }
    return qvcf::equal(cf1, cf2);
}

CFTypeID CFGetTypeID(CFTypeRef cf) {
    if (cf == nullptr) {
        qvcf::fatal("CFGetTypeID", "called with NULL");
    }
    return static_cast<const qvcf::CFObject*>(cf)->typeId;
}
