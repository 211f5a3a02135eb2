// Property-list reading (XML and binary) and writing (XML).
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>

CF_EXTERN_C_BEGIN

// Only created as an out-parameter of the property-list functions; release it with
// CFRelease.
typedef struct __CFError* CFErrorRef;

typedef CF_ENUM(CFIndex, CFPropertyListFormat) {
    kCFPropertyListOpenStepFormat = 1,
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200,
};

typedef CF_OPTIONS(CFOptionFlags, CFPropertyListMutabilityOptions) {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1 << 0,
};

// Parses an XML or binary property list. With kCFPropertyListMutableContainers every
// dictionary and array is mutable. NULL on any parse error; `format` receives the
// format read, `error` (when not NULL) a new error object on failure.
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);

// Writes the XML form, byte for byte as macOS writes it. NULL for an invalid document or
// any other format.
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);

// A copy of the whole tree: containers are copied (immutable with
// kCFPropertyListImmutable, mutable with kCFPropertyListMutableContainers), leaves are
// shared, being immutable. NULL when the tree holds a value that is not a property-list
// type.
CF_EXPORT CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator,
                                                         CFPropertyListRef propertyList,
                                                         CFOptionFlags mutabilityOption);

// True when every leaf is a string, data, boolean, number or date, every key a string,
// and no container contains itself.
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format);

CF_EXTERN_C_END
