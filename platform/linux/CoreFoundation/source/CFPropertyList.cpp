#include "CFErrorObject.h"

#include <CoreFoundation/CFPropertyList.h>

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef, CFOptionFlags,
                                               CFPropertyListFormat*, CFErrorRef* error) {
    qvcf::reportError(error, qvcf::kPropertyListReadCorruptError, "not yet readable");
    return nullptr;
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef, CFPropertyListFormat,
                                   CFOptionFlags, CFErrorRef* error) {
    qvcf::reportError(error, qvcf::kPropertyListWriteInvalidError, "not yet writable");
    return nullptr;
}

Boolean CFPropertyListIsValid(CFPropertyListRef, CFPropertyListFormat) {
    return false;
}
