#include "XmlPlistPreparer.h"

#include "PlistLimits.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace qvcf {
namespace {

bool isXmlSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Markup whose content is opaque: it may hold '<' and '>' freely.
struct OpaqueSection {
    std::string_view open;
    std::string_view close;
};

constexpr OpaqueSection kOpaqueSections[] = {
    {"<!--", "-->"},
    {"<![CDATA[", "]]>"},
    {"<?", "?>"},
};

// Rewrites the text of one <integer> element: optional sign, then hex with its prefix
// or decimal without leading zeros. Blanks around the sign and number are allowed, as
// CoreFoundation allows them.
bool normalizeInteger(std::string_view text, std::string& out) {
    size_t pos = 0;
    auto skipSpace = [&] {
        while (pos < text.size() && isXmlSpace(text[pos])) {
            ++pos;
        }
    };
    skipSpace();
    if (pos < text.size() && (text[pos] == '-' || text[pos] == '+')) {
        if (text[pos] == '-') {
            out += '-';
        }
        ++pos;
        skipSpace();
    }
    const bool hex =
        text.size() - pos > 2 && text[pos] == '0' && (text[pos + 1] == 'x' || text[pos + 1] == 'X');
    if (hex) {
        out += "0x";
        pos += 2;
    }
    const size_t digitsStart = pos;
    while (pos < text.size() && (hex ? isHexDigit(text[pos]) : isDigit(text[pos]))) {
        ++pos;
    }
    std::string_view digits = text.substr(digitsStart, pos - digitsStart);
    skipSpace();
    if (digits.empty() || pos != text.size()) {
        return false;
    }
    while (!hex && digits.size() > 1 && digits.front() == '0') {
        digits.remove_prefix(1);
    }
    out.append(digits);
    return true;
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

// Whether `text` is a date as CoreFoundation writes it ("2020-01-02T03:04:05Z") that
// libplist can carry without wrapping it around.
bool isRepresentableDate(std::string_view text) {
    constexpr std::string_view kShape = "dddd-dd-ddTdd:dd:ddZ";
    if (text.size() != kShape.size()) {
        return false;
    }
    for (size_t i = 0; i < kShape.size(); ++i) {
        if (kShape[i] == 'd' ? !isDigit(text[i]) : text[i] != kShape[i]) {
            return false;
        }
    }
    auto field = [&](size_t pos, size_t length) {
        int64_t value = 0;
        for (size_t i = pos; i < pos + length; ++i) {
            value = value * 10 + (text[i] - '0');
        }
        return value;
    };
    const int64_t month = field(5, 2);
    const int64_t day = field(8, 2);
    if (month < 1 || month > 12 || day < 1 || day > 31 || field(11, 2) > 23 || field(14, 2) > 59 ||
        field(17, 2) > 59) {
        return false;
    }
    constexpr int64_t kUnixToAbsolute = 978307200;
    const int64_t seconds = daysFromCivil(field(0, 4), month, day) * 86400 + field(11, 2) * 3600 +
                            field(14, 2) * 60 + field(17, 2) - kUnixToAbsolute;
    return seconds >= static_cast<int64_t>(kMinPlistDate) &&
           seconds <= static_cast<int64_t>(kMaxPlistDate);
}

class Preparer {
public:
    Preparer(std::string_view input, std::string& output) : in_(input), out_(output) {}

    bool run() {
        out_.reserve(in_.size());
        while (pos_ < in_.size()) {
            const size_t next = in_.find('<', pos_);
            out_.append(in_.substr(pos_, next == std::string_view::npos ? in_.npos : next - pos_));
            if (next == std::string_view::npos) {
                break;
            }
            pos_ = next;
            if (!copyMarkup()) {
                return false;
            }
        }
        return true;
    }

private:
    // Copies the markup at pos_ and, for an integer, its rewritten text.
    bool copyMarkup() {
        const std::string_view rest = in_.substr(pos_);
        for (const OpaqueSection& section : kOpaqueSections) {
            if (rest.substr(0, section.open.size()) == section.open) {
                const size_t close = rest.find(section.close, section.open.size());
                copyThrough(close == rest.npos ? rest.size() : close + section.close.size());
                return true;
            }
        }
        if (rest.substr(0, 2) == "<!") {
            return copyDeclaration(rest);
        }
        return copyTag(rest);
    }

    // A DOCTYPE, possibly with an internal subset in brackets.
    bool copyDeclaration(std::string_view rest) {
        const size_t bracket = rest.find('[');
        size_t end = rest.find('>');
        if (bracket != rest.npos && bracket < end) {
            const size_t subsetEnd = rest.find(']', bracket);
            end = subsetEnd == rest.npos ? rest.npos : rest.find('>', subsetEnd);
        }
        copyThrough(end == rest.npos ? rest.size() : end + 1);
        return true;
    }

    bool copyTag(std::string_view rest) {
        const size_t end = rest.find('>');
        if (end == rest.npos) {
            copyThrough(rest.size());
            return true;
        }
        const bool closing = rest.size() > 1 && rest[1] == '/';
        const bool empty = rest[end - 1] == '/';
        size_t nameEnd = closing ? 2 : 1;
        while (nameEnd < end && !isXmlSpace(rest[nameEnd]) && rest[nameEnd] != '/') {
            ++nameEnd;
        }
        const std::string_view name = rest.substr(closing ? 2 : 1, nameEnd - (closing ? 2 : 1));
        copyThrough(end + 1);
        if (name == "dict" || name == "array") {
            return track(closing, empty);
        }
        if (name == "integer" && !closing && !empty) {
            return copyInteger();
        }
        if (name == "date" && !closing) {
            return !empty && checkDate();
        }
        return true;
    }

    bool checkDate() const {
        const size_t end = in_.find('<', pos_);
        return end != std::string_view::npos && isRepresentableDate(in_.substr(pos_, end - pos_));
    }

    bool track(bool closing, bool empty) {
        if (closing) {
            depth_ = depth_ > 0 ? depth_ - 1 : 0;
            return true;
        }
        if (!empty) {
            ++depth_;
        }
        return depth_ <= kMaxPlistDepth;
    }

    bool copyInteger() {
        const size_t end = in_.find('<', pos_);
        if (end == std::string_view::npos) {
            return false;
        }
        const std::string_view text = in_.substr(pos_, end - pos_);
        pos_ = end;
        return normalizeInteger(text, out_);
    }

    void copyThrough(size_t length) {
        out_.append(in_.substr(pos_, length));
        pos_ += length;
    }

    std::string_view in_;
    std::string& out_;
    size_t pos_ = 0;
    size_t depth_ = 0;
};

}  // namespace

bool XmlPlistPreparer::prepare(const char* bytes, size_t size, std::string& out) {
    std::string_view input(bytes, size);
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (input.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        input.remove_prefix(kByteOrderMark.size());
    }
    out.clear();
    // XML has no place for a NUL byte; libplist would cut text short at it.
    if (input.find('\0') != std::string_view::npos) {
        return false;
    }
    return Preparer(input, out).run();
}

}  // namespace qvcf
