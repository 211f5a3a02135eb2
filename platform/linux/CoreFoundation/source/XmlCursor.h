// A read position in the caller's XML bytes. The property-list parser moves one cursor
// over the document and never copies it: a configuration of ten thousand rules is
// eleven megabytes of text.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace qvcf {

class XmlCursor {
public:
    explicit XmlCursor(std::string_view text)
        : pos_(text.data()), end_(text.data() + text.size()) {}

    static bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

    bool atEnd() const { return pos_ == end_; }
    const char* position() const { return pos_; }
    const char* end() const { return end_; }
    size_t remaining() const { return static_cast<size_t>(end_ - pos_); }

    // The byte `offset` places ahead, or NUL past the end (a document holding NUL is
    // refused before it is parsed, so NUL always means the end).
    char peek(size_t offset = 0) const { return offset < remaining() ? pos_[offset] : '\0'; }

    bool startsWith(std::string_view text) const {
        return remaining() >= text.size() && std::memcmp(pos_, text.data(), text.size()) == 0;
    }

    void advance(size_t count) { pos_ += count; }
    void moveTo(const char* position) { pos_ = position; }

    void skipSpace() {
        while (pos_ != end_ && isSpace(*pos_)) {
            ++pos_;
        }
    }

    // The first `c` at or after `from`, or NULL.
    const char* find(char c, const char* from) const {
        return static_cast<const char*>(std::memchr(from, c, static_cast<size_t>(end_ - from)));
    }

    // The first `text` at or after `from`, or NULL.
    const char* find(std::string_view text, const char* from) const {
        const std::string_view rest(from, static_cast<size_t>(end_ - from));
        const size_t at = rest.find(text);
        return at == std::string_view::npos ? nullptr : from + at;
    }

private:
    const char* pos_;
    const char* end_;
};

}  // namespace qvcf
