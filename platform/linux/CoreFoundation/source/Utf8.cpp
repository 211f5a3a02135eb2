#include "Utf8.h"

#include <cstdint>

namespace qvcf {
namespace {

// Length of the sequence starting with `lead`, 0 for a byte that cannot start one.
size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return 4;
    }
    return 0;
}

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Decodes the code point at `pos` (already validated) and advances `pos`.
uint32_t decode(std::string_view text, size_t& pos) {
    const auto lead = static_cast<unsigned char>(text[pos]);
    const size_t length = sequenceLength(lead);
    uint32_t codePoint = length == 1 ? lead : lead & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[pos + i]) & 0x3F);
    }
    pos += length;
    return codePoint;
}

// The first UTF-16 code unit of `codePoint`; enough to order two different code points.
uint32_t leadingUnit(uint32_t codePoint) {
    if (codePoint < 0x10000) {
        return codePoint;
    }
    return 0xD800 + ((codePoint - 0x10000) >> 10);
}

uint32_t foldCase(uint32_t codePoint) {
    return codePoint >= 'A' && codePoint <= 'Z' ? codePoint + ('a' - 'A') : codePoint;
}

}  // namespace

Utf8Facts inspectUtf8(std::string_view text) {
    Utf8Facts facts;
    facts.ascii = true;
    size_t pos = 0;
    while (pos < text.size()) {
        const auto lead = static_cast<unsigned char>(text[pos]);
        const size_t length = sequenceLength(lead);
        // U+0000 cannot pass through a C string, nor be written into XML and read back.
        if (lead == 0 || length == 0 || pos + length > text.size()) {
            return Utf8Facts{};
        }
        for (size_t i = 1; i < length; ++i) {
            if (!isContinuation(static_cast<unsigned char>(text[pos + i]))) {
                return Utf8Facts{};
            }
        }
        const auto second = static_cast<unsigned char>(length > 1 ? text[pos + 1] : 0);
        // Overlong three- and four-byte forms, surrogates, and values past U+10FFFF.
        if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
            (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) {
            return Utf8Facts{};
        }
        facts.ascii = facts.ascii && length == 1;
        facts.utf16Length += length == 4 ? 2 : 1;
        pos += length;
    }
    facts.valid = true;
    return facts;
}

void appendUtf8(std::string& out, uint32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
        return;
    }
    const size_t length = codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
    constexpr unsigned char kLeadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    char bytes[4];
    for (size_t i = length - 1; i > 0; --i) {
        bytes[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    bytes[0] = static_cast<char>(kLeadMarks[length] | codePoint);
    out.append(bytes, length);
}

int compareUtf16(std::string_view a, std::string_view b, bool foldAscii) {
    size_t posA = 0;
    size_t posB = 0;
    while (posA < a.size() && posB < b.size()) {
        uint32_t left = decode(a, posA);
        uint32_t right = decode(b, posB);
        if (foldAscii) {
            left = foldCase(left);
            right = foldCase(right);
        }
        if (left == right) {
            continue;
        }
        // Two code points of one plane order as their values; across planes the
        // surrogate lead unit (D800..DBFF) decides against a BMP unit.
        const bool samePlaneKind = (left < 0x10000) == (right < 0x10000);
        const uint32_t keyLeft = samePlaneKind ? left : leadingUnit(left);
        const uint32_t keyRight = samePlaneKind ? right : leadingUnit(right);
        return keyLeft < keyRight ? -1 : 1;
    }
    if (posA < a.size()) {
        return 1;
    }
    return posB < b.size() ? -1 : 0;
}

}  // namespace qvcf
