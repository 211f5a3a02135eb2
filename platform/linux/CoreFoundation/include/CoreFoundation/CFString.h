// Immutable strings. Text is held as UTF-8; lengths and ordering are in UTF-16 code
// units, as on macOS.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;

typedef CF_ENUM(CFStringEncoding, CFStringBuiltInEncodings) {
    kCFStringEncodingUTF8 = 0x08000100,
};

typedef CF_OPTIONS(CFOptionFlags, CFStringCompareFlags) {
    kCFCompareCaseInsensitive = 1,
};

CF_EXPORT CFTypeID CFStringGetTypeID(void);

// NULL when `cStr` is NULL, the encoding is not UTF-8 or the bytes are not valid UTF-8.
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                                CFStringEncoding encoding);

// The internal UTF-8 text for pure-ASCII strings; NULL for any other string, so callers
// must be ready to fall back to CFStringGetCString.
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

// Copies the text and its terminator into `buffer`; false when it does not fit.
CF_EXPORT Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);

// Length in UTF-16 code units.
CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);

CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                             CFStringCompareFlags compareOptions);

CF_EXTERN_C_END
