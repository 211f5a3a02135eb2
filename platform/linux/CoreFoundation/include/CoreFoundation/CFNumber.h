// Numbers and booleans.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFNumber* CFNumberRef;

CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

typedef CF_ENUM(CFIndex, CFNumberType) {
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberDoubleType = 13,
};

CF_EXPORT CFTypeID CFNumberGetTypeID(void);

// NULL for a null `valuePtr` or an unsupported type.
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType,
                                     const void* valuePtr);

// Stores the C-cast value and returns false when the conversion lost anything.
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

CF_EXTERN_C_END
