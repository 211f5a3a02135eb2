#include "XmlMarkup.h"

#include <algorithm>

namespace qvcf {
namespace {

constexpr std::string_view kCommentOpen = "<!--";
constexpr std::string_view kDoctypeOpen = "<!DOCTYPE";

// Quotes that pair up leave both readers at the same end of the markup they sit in.
bool quotesPair(const char* begin, const char* end) {
    return std::count(begin, end, '"') % 2 == 0;
}

// Moves past the first `close` at or after `from`.
bool skipThrough(XmlCursor& cursor, const char* from, std::string_view close) {
    const char* found = cursor.find(close, from);
    if (found == nullptr) {
        return false;
    }
    cursor.moveTo(found + close.size());
    return true;
}

// One declaration, comment, instruction or parameter-entity reference of an internal
// subset, read as CoreFoundation reads it.
bool skipSubsetItem(XmlCursor& cursor) {
    const char* at = cursor.position();
    if (cursor.peek() == '%') {
        return skipThrough(cursor, at + 1, ";");
    }
    if (cursor.startsWith("<?")) {
        return skipThrough(cursor, at + 2, "?>");
    }
    if (cursor.startsWith(kCommentOpen)) {
        return skipThrough(cursor, at + kCommentOpen.size(), "-->");
    }
    if (cursor.startsWith("<!")) {
        return skipThrough(cursor, at + 2, ">");
    }
    return false;
}

// libplist ends an internal subset at the first "]>" outside quotes; that must be the
// "]" where CoreFoundation's reading of the declarations ends.
bool subsetEndsAlike(const char* begin, const char* close) {
    bool quoted = false;
    for (const char* at = begin; at != close; ++at) {
        if (*at == '"') {
            quoted = !quoted;
        } else if (!quoted && at[0] == ']' && at[1] == '>') {
            return false;
        }
    }
    return !quoted;
}

// At the first byte after "[": the declarations, then "]>".
bool skipInternalSubset(XmlCursor& cursor) {
    const char* begin = cursor.position();
    for (cursor.skipSpace(); cursor.peek() != ']'; cursor.skipSpace()) {
        if (!skipSubsetItem(cursor)) {
            return false;
        }
    }
    if (cursor.peek(1) != '>' || !subsetEndsAlike(begin, cursor.position())) {
        return false;
    }
    cursor.advance(2);
    return true;
}

// libplist ends a tag at the first ">" outside quotes and refuses a "<" outside them;
// CoreFoundation ends it at the first ">".
bool tagEndsAlike(const char* begin, const char* close) {
    bool quoted = false;
    for (const char* at = begin; at != close; ++at) {
        if (*at == '"') {
            quoted = !quoted;
        } else if (*at == '<' && !quoted) {
            return false;
        }
    }
    return !quoted;
}

}  // namespace

bool XmlMarkup::skipProcessingInstruction(XmlCursor& cursor, Place place) {
    const char* question = cursor.position() + 1;
    // Before the element CoreFoundation looks for "?>" after the opening "?", libplist
    // from it on: "<?>" would end at once for one of them only.
    if (place == Place::kProlog && cursor.peek(2) == '>') {
        return false;
    }
    const char* close = cursor.find("?>", question);
    if (close == nullptr || !quotesPair(question, close)) {
        return false;
    }
    cursor.moveTo(close + 2);
    return true;
}

bool XmlMarkup::skipComment(XmlCursor& cursor, Place place) {
    // Among values CoreFoundation looks for "-->" from the second dash of "<!--" on,
    // libplist after it: "<!--->" would end at once for one of them only.
    if (place == Place::kContent && cursor.startsWith("<!--->")) {
        return false;
    }
    return skipThrough(cursor, cursor.position() + kCommentOpen.size(), "-->");
}

bool XmlMarkup::skipDoctype(XmlCursor& cursor) {
    const char* begin = cursor.position() + kDoctypeOpen.size();
    const char* stop = begin;
    while (stop != cursor.end() && *stop != '[' && *stop != '>') {
        ++stop;
    }
    if (stop == cursor.end() || !quotesPair(begin, stop)) {
        return false;
    }
    cursor.moveTo(stop + 1);
    return *stop == '>' || skipInternalSubset(cursor);
}

bool XmlMarkup::readTag(XmlCursor& cursor, XmlTag& tag) {
    const char* begin = cursor.position() + 1;
    const char* close = cursor.find('>', begin);
    if (close == nullptr || !tagEndsAlike(begin, close)) {
        return false;
    }
    tag.empty = close != begin && close[-1] == '/';
    const char* nameEnd = std::find_if(begin, close, XmlCursor::isSpace);
    if (nameEnd == close && tag.empty) {
        --nameEnd;
    }
    tag.name = std::string_view(begin, static_cast<size_t>(nameEnd - begin));
    cursor.moveTo(close + 1);
    return !tag.name.empty();
}

bool XmlMarkup::readClosingTag(XmlCursor& cursor, std::string_view name) {
    if (!cursor.startsWith("</")) {
        return false;
    }
    cursor.advance(2);
    if (!cursor.startsWith(name)) {
        return false;
    }
    cursor.advance(name.size());
    cursor.skipSpace();
    if (cursor.peek() != '>') {
        return false;
    }
    cursor.advance(1);
    return true;
}

}  // namespace qvcf
