// Base types, reference counting and allocators of the CoreFoundation subset that the
// plug-in uses. Declarations follow Apple's headers so that the same sources build
// against the system framework on macOS.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__cplusplus)
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

#define CF_EXPORT extern __attribute__((visibility("default")))

// Enumerations with a fixed underlying type, spelled as Apple spells them:
// `typedef CF_ENUM(CFIndex, CFComparisonResult) { ... };`
// In C++ the enumeration is a distinct type, so that an integer passed where an
// enumerator is expected fails here as it does on macOS; the leading typedef names the
// underlying type under a private name.
#if defined(__cplusplus)
#define CF_ENUM(_type, _name) \
    _type _name##_CFEnumBase; \
    enum _name : _type
#define CF_OPTIONS(_type, _name) \
    _type _name;                 \
    enum : _type
#else
#define CF_ENUM(_type, _name) \
    _type _name;              \
    enum
#define CF_OPTIONS(_type, _name) \
    _type _name;                 \
    enum
#endif

CF_EXTERN_C_BEGIN

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef unsigned int UInt32;
typedef signed int SInt32;

typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef CFTypeRef CFPropertyListRef;

typedef CF_ENUM(CFIndex, CFComparisonResult) {
    kCFCompareLessThan = -1L,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1,
};

// The default allocator is NULL, as on macOS. kCFAllocatorNull allocates nothing and
// frees nothing: data made with it as deallocator leaves the bytes to their owner.
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;
CF_EXPORT const CFAllocatorRef kCFAllocatorNull;

CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
CF_EXPORT void CFRelease(CFTypeRef cf);
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);
// Content equality: strings by text, numbers by value, containers element by element.
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);

CF_EXTERN_C_END
