// Arbitrary bytes read as a property list (XML or binary) with mutable containers, from
// borrowed bytes as the store reads its file: the document, or null.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>

namespace qvfuzz {

inline CFPropertyListRef ReadPlist(const uint8_t* bytes, size_t size) {
    CFDataRef data = CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes,
                                                 static_cast<CFIndex>(size), kCFAllocatorNull);
    if (data == nullptr) {
        return nullptr;
    }
    CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
    CFErrorRef error = nullptr;
    CFPropertyListRef plist = CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListMutableContainers, &format, &error);
    CFRelease(data);
    if (error != nullptr) {
        CFRelease(error);
    }
    return plist;
}

}  // namespace qvfuzz
