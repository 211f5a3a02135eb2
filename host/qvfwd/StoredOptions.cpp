#include "StoredOptions.h"

#include <CoreFoundation/CoreFoundation.h>

#include <fstream>
#include <iterator>

#include "QvUtil.h"

namespace qvfwd {

namespace {

const void* ValueFor(CFDictionaryRef dictionary, const char* key) {
    CFStringRef name = CFStringCreateWithCString(nullptr, key, kCFStringEncodingUTF8);
    const void* value = CFDictionaryGetValue(dictionary, name);
    CFRelease(name);
    return value;
}

void ReadNumber(CFDictionaryRef options, const char* key, int64_t* out) {
    const void* value = ValueFor(options, key);
    if (value != nullptr && CFGetTypeID(value) == CFNumberGetTypeID()) {
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, out);
    }
}

void ReadText(CFDictionaryRef options, const char* key, std::string* out) {
    const void* value = ValueFor(options, key);
    char buffer[4096];
    if (value != nullptr && CFGetTypeID(value) == CFStringGetTypeID() &&
        CFStringGetCString(static_cast<CFStringRef>(value), buffer, sizeof buffer,
                           kCFStringEncodingUTF8)) {
        *out = buffer;
    }
}

void ReadOptions(CFDictionaryRef root, StoredOptions* options) {
    const void* value = ValueFor(root, "FwOptions");
    if (value == nullptr || CFGetTypeID(value) != CFDictionaryGetTypeID()) {
        return;
    }
    CFDictionaryRef dictionary = static_cast<CFDictionaryRef>(value);
    ReadNumber(dictionary, "default_set_num", &options->normalSet);
    ReadNumber(dictionary, "exception_set_num", &options->exceptionSet);
    ReadText(dictionary, "fw_log_path", &options->fwLogPath);
    ReadText(dictionary, "syslog_conf", &options->syslogConf);
}

}  // namespace

bool ParseStoredOptions(const std::string& plist, StoredOptions* options) {
    CFDataRef data =
        CFDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(plist.data()),
                                    static_cast<CFIndex>(plist.size()), kCFAllocatorNull);
    CFPropertyListRef root =
        CFPropertyListCreateWithData(nullptr, data, kCFPropertyListImmutable, nullptr, nullptr);
    CFRelease(data);
    bool isDictionary = root != nullptr && CFGetTypeID(root) == CFDictionaryGetTypeID();
    if (isDictionary) {
        ReadOptions(static_cast<CFDictionaryRef>(root), options);
    }
    if (root != nullptr) {
        CFRelease(root);
    }
    return isDictionary;
}

bool ReadStoredOptions(StoredOptions* options) {
    char path[4096] = {0};
    if (!QvGetFilePath(path, sizeof path, "QvFw.conf.plist")) {
        return false;
    }
    options->path = path;
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    return file.good() || file.eof() ? ParseStoredOptions(text, options) : false;
}

}  // namespace qvfwd
