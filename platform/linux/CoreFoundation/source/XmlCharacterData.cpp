#include "XmlCharacterData.h"

#include "Utf8.h"

#include <cstdint>

namespace qvcf {
namespace {

constexpr std::string_view kCdataOpen = "<![CDATA[";
constexpr std::string_view kCdataClose = "]]>";

struct NamedEntity {
    std::string_view nameAndSemicolon;
    char character;
};

constexpr NamedEntity kNamedEntities[] = {
    {"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"apos;", '\''}, {"quot;", '"'},
};

// The first "<" or "&" at or after the cursor, or NULL.
const char* nextMarkupOrReference(const XmlCursor& cursor) {
    const char* less = cursor.find('<', cursor.position());
    const char* searchEnd = less != nullptr ? less : cursor.end();
    const char* ampersand = static_cast<const char*>(
        std::memchr(cursor.position(), '&', static_cast<size_t>(searchEnd - cursor.position())));
    return ampersand != nullptr ? ampersand : less;
}

int digitValue(char c, bool hex) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (hex && c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (hex && c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool isScalarValue(uint32_t codePoint) {
    return codePoint != 0 && codePoint <= 0x10FFFF && (codePoint < 0xD800 || codePoint > 0xDFFF);
}

// After "&#": decimal digits, or hex digits after a lowercase "x", then ";". libplist
// took at most seven decimal or six hex digits, CoreFoundation eight of either; both
// refuse U+0000.
bool appendCharacterReference(XmlCursor& cursor, std::string& out) {
    const bool hex = cursor.peek() == 'x';
    if (hex) {
        cursor.advance(1);
    }
    const size_t maxDigits = hex ? 6 : 7;
    uint32_t codePoint = 0;
    size_t digits = 0;
    for (int digit = digitValue(cursor.peek(), hex); digit >= 0 && digits <= maxDigits;
         digit = digitValue(cursor.peek(digits), hex)) {
        codePoint = codePoint * (hex ? 16 : 10) + static_cast<uint32_t>(digit);
        ++digits;
    }
    if (digits == 0 || digits > maxDigits || cursor.peek(digits) != ';' ||
        !isScalarValue(codePoint)) {
        return false;
    }
    appendUtf8(out, codePoint);
    cursor.advance(digits + 1);
    return true;
}

// At "&". libplist matched a prefix of the name ("&ampx;" read as "&"); the whole name
// and its ";" must match here.
bool appendReference(XmlCursor& cursor, std::string& out) {
    cursor.advance(1);
    for (const NamedEntity& entity : kNamedEntities) {
        if (cursor.startsWith(entity.nameAndSemicolon)) {
            out += entity.character;
            cursor.advance(entity.nameAndSemicolon.size());
            return true;
        }
    }
    if (cursor.peek() != '#') {
        return false;
    }
    cursor.advance(1);
    return appendCharacterReference(cursor, out);
}

// At "<!": only a CDATA section may stand inside text (CoreFoundation refuses a comment
// there).
bool appendCdata(XmlCursor& cursor, std::string& out) {
    if (!cursor.startsWith(kCdataOpen)) {
        return false;
    }
    const char* content = cursor.position() + kCdataOpen.size();
    const char* close = cursor.find(kCdataClose, content);
    if (close == nullptr) {
        return false;
    }
    out.append(content, close);
    cursor.moveTo(close + kCdataClose.size());
    return true;
}

}  // namespace

bool XmlCharacterData::read(XmlCursor& cursor, std::string& scratch, std::string_view& text) {
    scratch.clear();
    bool decoded = false;
    const char* run = cursor.position();
    for (;;) {
        const char* stop = nextMarkupOrReference(cursor);
        if (stop == nullptr) {
            return false;
        }
        cursor.moveTo(stop);
        if (*stop == '<' && !cursor.startsWith("<!")) {
            break;
        }
        scratch.append(run, stop);
        decoded = true;
        if (!(*stop == '&' ? appendReference(cursor, scratch) : appendCdata(cursor, scratch))) {
            return false;
        }
        run = cursor.position();
    }
    if (!decoded) {
        text = std::string_view(run, static_cast<size_t>(cursor.position() - run));
        return true;
    }
    scratch.append(run, cursor.position());
    text = scratch;
    return true;
}

}  // namespace qvcf
