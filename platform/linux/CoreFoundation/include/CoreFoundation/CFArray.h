// Ordered collections.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* value1, const void* value2);

typedef struct {
    CFIndex version;
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;

// Retains values and compares them by content.
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

// An immutable array of the `numValues` values; NULL callbacks mean the values are
// neither retained nor released.
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                                   const CFArrayCallBacks* callBacks);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef theArray);

// Aborts for an index outside 0..count-1.
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);

CF_EXTERN_C_END
