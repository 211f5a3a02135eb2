// CoreFoundation string helpers and the type identifiers of booleans and arrays.
#include <limits.h>
#include <string.h>

// Everything declared in the header is part of the library's interface.
#pragma GCC visibility push(default)
#include "QvCFUtil.h"
#pragma GCC visibility pop

#include "QvLog.h"
#include "UtilLog.h"

namespace qor {
namespace vela {

// Dynamic initialisers of this library run before those of any library that links it,
// so conversions in the plug-in always see the real identifiers.
const CFTypeID TypeInfo<bool>::CF_TYPE_ID = CFBooleanGetTypeID();
const CFTypeID CFArrayTypeInfo::CF_TYPE_ID = CFArrayGetTypeID();

}  // namespace vela
}  // namespace qor

CFStringRef QvCreateCFStringFromString(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
    if (string == nullptr) {
        QV_UTIL_LOG(4, "%s text is not valid UTF-8", "QvCreateCFStringFromString");
    }
    return string;
}

bool QvGetCStringFromCFString(CFStringRef string, char* buffer, size_t size) {
    if (buffer == nullptr || size == 0) {
        return false;
    }
    buffer[0] = '\0';
    // Property-list values arrive untyped; anything but a string is refused, not misread.
    if (string == nullptr || CFGetTypeID(string) != CFStringGetTypeID()) {
        return false;
    }
    CFIndex capacity = size > static_cast<size_t>(LONG_MAX) ? LONG_MAX : static_cast<CFIndex>(size);
    if (!CFStringGetCString(string, buffer, capacity, kCFStringEncodingUTF8)) {
        buffer[0] = '\0';
        return false;
    }
    return true;
}
