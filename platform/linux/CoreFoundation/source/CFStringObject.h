// The string object: UTF-8 text with its UTF-16 length.
#pragma once

#include "CFObject.h"

#include <CoreFoundation/CFString.h>

#include <string>

struct __CFString : qvcf::CFObject {
    __CFString(std::string utf8, bool isAscii, CFIndex utf16Units)
        : CFObject(qvcf::kStringTypeId, false),
          text(std::move(utf8)),
          ascii(isAscii),
          utf16Length(utf16Units) {}

    bool equals(const __CFString& other) const { return text == other.text; }
    CFHashCode hash() const;

    const std::string text;
    const bool ascii;
    const CFIndex utf16Length;
};

namespace qvcf {

// A new string from UTF-8 bytes; NULL when they are not well-formed.
__CFString* createString(const char* bytes, size_t length);

}  // namespace qvcf
