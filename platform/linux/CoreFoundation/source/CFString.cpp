#include "CFStringObject.h"
#include "Utf8.h"

#include <cstring>
#include <functional>
#include <string_view>

CFHashCode __CFString::hash() const {
    return std::hash<std::string_view>{}(text);
}

namespace qvcf {

__CFString* createString(const char* bytes, size_t length) {
    const std::string_view text(bytes, length);
    const Utf8Facts facts = inspectUtf8(text);
    if (!facts.valid) {
        return nullptr;
    }
    return new __CFString(std::string(text), facts.ascii, static_cast<CFIndex>(facts.utf16Length));
}

}  // namespace qvcf

namespace {

const __CFString* asString(CFStringRef string, const char* function) {
    return qvcf::checked<__CFString>(string, qvcf::kStringTypeId, function);
}

}  // namespace

CFTypeID CFStringGetTypeID(void) {
    return qvcf::kStringTypeId;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding) {
    if (cStr == nullptr || encoding != kCFStringEncodingUTF8) {
        return nullptr;
    }
    return qvcf::createString(cStr, std::strlen(cStr));
}

const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding) {
    const __CFString* string = asString(theString, "CFStringGetCStringPtr");
    // macOS hands out its internal buffer only for some strings; handing it out for
    // ASCII text alone keeps the callers' copying path in use.
    if (encoding != kCFStringEncodingUTF8 || !string->ascii) {
        return nullptr;
    }
    return string->text.c_str();
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding) {
    const __CFString* string = asString(theString, "CFStringGetCString");
    if (buffer == nullptr || encoding != kCFStringEncodingUTF8 || bufferSize <= 0 ||
        static_cast<size_t>(bufferSize) <= string->text.size()) {
        return false;
    }
    std::memcpy(buffer, string->text.c_str(), string->text.size() + 1);
    return true;
}

CFIndex CFStringGetLength(CFStringRef theString) {
    return asString(theString, "CFStringGetLength")->utf16Length;
}

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions) {
    const __CFString* left = asString(theString1, "CFStringCompare");
    const __CFString* right = asString(theString2, "CFStringCompare");
    const int order = qvcf::compareUtf16(left->text, right->text,
                                         (compareOptions & kCFCompareCaseInsensitive) != 0);
    if (order < 0) {
        return kCFCompareLessThan;
    }
    return order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}
