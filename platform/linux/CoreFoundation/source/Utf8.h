// UTF-8 text measured and ordered the way CoreFoundation sees it: as UTF-16 code units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qvcf {

// Facts about a well-formed UTF-8 text.
struct Utf8Facts {
    bool valid = false;
    bool ascii = false;
    size_t utf16Length = 0;
};

// Rejects overlong forms, surrogate code points, values above U+10FFFF and U+0000.
Utf8Facts inspectUtf8(std::string_view text);

// Appends the UTF-8 form of `codePoint`, which must be a Unicode scalar value.
void appendUtf8(std::string& out, uint32_t codePoint);

// Negative, zero or positive as `a` sorts before, with or after `b` by UTF-16 code
// unit; with `foldAscii`, ASCII letters compare without regard to case. Both texts must
// be well-formed.
int compareUtf16(std::string_view a, std::string_view b, bool foldAscii);

}  // namespace qvcf
