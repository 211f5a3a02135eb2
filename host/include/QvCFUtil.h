// libQvUtil's CoreFoundation helpers and the type identifiers that the plug-in's
// property-list conversions compare against.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>

// A new CFString holding the UTF-8 text `text`; null when `text` is null or not valid
// UTF-8. The caller owns the result (CFRelease).
CFStringRef QvCreateCFStringFromString(const char* text);

// Copies `string` as UTF-8 into `buffer` (capacity `size` bytes, NUL included). False
// when an argument is null or the text does not fit. The caller owns `buffer`.
bool QvGetCStringFromCFString(CFStringRef string, char* buffer, size_t size);

namespace qor {
namespace vela {

// Maps a C++ field type onto the CoreFoundation type that carries it in a property
// list. The plug-in's conversion headers specialise it for its message types.
template <typename T>
struct TypeInfo;

// Supplied by libQvUtil; holds CFBooleanGetTypeID() before any conversion runs.
template <>
struct TypeInfo<bool> {
    static const CFTypeID CF_TYPE_ID;
};

// Supplied by libQvUtil; holds CFArrayGetTypeID() before any conversion runs.
struct CFArrayTypeInfo {
    static const CFTypeID CF_TYPE_ID;
};

}  // namespace vela
}  // namespace qor
