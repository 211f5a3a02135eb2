// Helpers for the CoreFoundation tests: owning references and short constructors.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <memory>
#include <string>

#include "TestUtil.h"

namespace qvtest {

struct CFReleaser {
    void operator()(const void* object) const {
        if (object != nullptr) {
            CFRelease(object);
        }
    }
};
using CFHolder = std::unique_ptr<const void, CFReleaser>;

inline CFStringRef str(const char* text) {
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
}

inline CFNumberRef int32Number(int32_t value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value);
}

inline CFNumberRef int64Number(int64_t value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
}

inline CFNumberRef doubleNumber(double value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &value);
}

inline CFMutableDictionaryRef newDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

// Adds `value` under `key` and gives up the caller's reference to the value.
inline void put(CFMutableDictionaryRef dictionary, const char* key, CFTypeRef value) {
    CFHolder keyString(str(key));
    CFDictionaryAddValue(dictionary, keyString.get(), value);
    CFRelease(value);
}

inline CFTypeRef lookup(CFDictionaryRef dictionary, const char* key) {
    CFHolder keyString(str(key));
    return CFDictionaryGetValue(dictionary, keyString.get());
}

// The XML text CFPropertyListCreateData writes, or "" when it writes nothing.
inline std::string toXml(CFTypeRef plist) {
    CFHolder data(CFPropertyListCreateData(kCFAllocatorDefault, plist,
                                           kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    if (data == nullptr) {
        return "";
    }
    auto bytes = static_cast<CFDataRef>(data.get());
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes)),
                       static_cast<size_t>(CFDataGetLength(bytes)));
}

// Parses `bytes` (copied into a borrowed-bytes data object, as the store does).
inline CFHolder parse(const std::string& bytes,
                      CFOptionFlags options = kCFPropertyListMutableContainers,
                      CFPropertyListFormat* format = nullptr) {
    CFHolder data(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
        static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
    return CFHolder(CFPropertyListCreateWithData(
        kCFAllocatorDefault, static_cast<CFDataRef>(data.get()), options, format, nullptr));
}

}  // namespace qvtest
