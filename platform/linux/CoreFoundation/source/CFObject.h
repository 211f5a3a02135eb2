// The common header of every object of the CoreFoundation subset: its type and its
// reference count. Objects live on the heap and are deleted at their last release, so
// that a use after release shows up under AddressSanitizer.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <atomic>

namespace qvcf {

// Type identifiers, fixed for the life of the process.
enum TypeIds : CFTypeID {
    kAllocatorTypeId = 2,
    kStringTypeId = 7,
    kDictionaryTypeId = 18,
    kArrayTypeId = 19,
    kDataTypeId = 20,
    kBooleanTypeId = 21,
    kNumberTypeId = 22,
    kDateTypeId = 42,
    kErrorTypeId = 30,
};

struct CFObject {
    // Constant-initialisable so that the immortal singletons exist before any
    // static constructor of a client runs.
    constexpr CFObject(CFTypeID type, bool isImmortal) : typeId(type), immortal(isImmortal) {}
    CFObject(const CFObject&) = delete;
    CFObject& operator=(const CFObject&) = delete;
    virtual ~CFObject() = default;

    const CFTypeID typeId;
    // Singletons (booleans, allocators) ignore retain and release.
    const bool immortal;
    std::atomic<long> refCount{1};
};

// Reports a programming error (null or wrongly typed argument, mutation of an immutable
// collection) and aborts, as CoreFoundation does.
[[noreturn]] void fatal(const char* function, const char* problem);

// The object behind `ref`, aborting in `function` when it is NULL or not of `type`.
const CFObject* checkedObject(CFTypeRef ref, CFTypeID type, const char* function);

template <typename T>
const T* checked(CFTypeRef ref, CFTypeID type, const char* function) {
    return static_cast<const T*>(checkedObject(ref, type, function));
}

// Content equality and hashing as used by the kCFType collection callbacks: strings by
// text, numbers by value, data by bytes, containers element by element.
bool equal(CFTypeRef a, CFTypeRef b);
CFHashCode hash(CFTypeRef ref);

}  // namespace qvcf
