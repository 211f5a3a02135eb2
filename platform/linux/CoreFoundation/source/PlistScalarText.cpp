#include "PlistScalarText.h"

#include "PlistLimits.h"
#include "XmlCursor.h"

#include <locale.h>
#include <cstdlib>
#include <limits>
#include <string>

namespace qvcf {
namespace {

constexpr uint64_t kInt64Magnitude = uint64_t{1} << 63;

size_t skipSpace(std::string_view text, size_t pos) {
    while (pos < text.size() && XmlCursor::isSpace(text[pos])) {
        ++pos;
    }
    return pos;
}

int digitValue(char c, unsigned base) {
    int value = -1;
    if (c >= '0' && c <= '9') {
        value = c - '0';
    } else if (c >= 'a' && c <= 'f') {
        value = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
        value = c - 'A' + 10;
    }
    return value < static_cast<int>(base) ? value : -1;
}

// Reads digits of `base` from `pos` into `magnitude`, which stays at most 2^63.
bool readMagnitude(std::string_view text, size_t& pos, unsigned base, uint64_t& magnitude) {
    const size_t start = pos;
    magnitude = 0;
    for (int digit = 0; pos < text.size() && (digit = digitValue(text[pos], base)) >= 0; ++pos) {
        if (magnitude > (kInt64Magnitude - static_cast<uint64_t>(digit)) / base) {
            return false;
        }
        magnitude = magnitude * base + static_cast<uint64_t>(digit);
    }
    return pos != start;
}

bool toInt64(uint64_t magnitude, bool negative, int64_t& value) {
    if (negative) {
        value = magnitude == kInt64Magnitude ? std::numeric_limits<int64_t>::min()
                                             : -static_cast<int64_t>(magnitude);
        return true;
    }
    value = static_cast<int64_t>(magnitude);
    return magnitude < kInt64Magnitude;
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        const char left = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] + 32) : a[i];
        if (left != b[i]) {
            return false;
        }
    }
    return true;
}

struct NamedReal {
    std::string_view name;
    double value;
};

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const NamedReal kNamedReals[] = {
    {"nan", std::numeric_limits<double>::quiet_NaN()},
    {"inf", kInfinity},
    {"+inf", kInfinity},
    {"-inf", -kInfinity},
    {"infinity", kInfinity},
    {"+infinity", kInfinity},
    {"-infinity", -kInfinity},
};

bool isCSpace(char c) {
    return XmlCursor::isSpace(c) || c == '\v' || c == '\f';
}

// CoreFoundation hands strtod only these characters: no hex, no words, no "nan(...)".
bool isDecimalRealCharacter(char c) {
    return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}

bool decimalReal(std::string_view text, double& value) {
    size_t pos = 0;
    while (pos < text.size() && isCSpace(text[pos])) {
        ++pos;
    }
    const std::string number(text.substr(pos));
    for (char c : number) {
        if (!isDecimalRealCharacter(c)) {
            return false;
        }
    }
    if (number.empty() || cLocale() == static_cast<locale_t>(0)) {
        return false;
    }
    char* end = nullptr;
    value = strtod_l(number.c_str(), &end, cLocale());
    return end == number.c_str() + number.size();
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian); days past the end
// of a month run on into the next, as with timegm().
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool hasDateShape(std::string_view text) {
    constexpr std::string_view kShape = "dddd-dd-ddTdd:dd:ddZ";
    if (text.size() != kShape.size()) {
        return false;
    }
    for (size_t i = 0; i < kShape.size(); ++i) {
        const bool matches =
            kShape[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == kShape[i];
        if (!matches) {
            return false;
        }
    }
    return true;
}

int64_t dateField(std::string_view text, size_t pos, size_t length) {
    int64_t value = 0;
    for (size_t i = pos; i < pos + length; ++i) {
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// The 64-entry alphabet, with "=" read as zero the way CoreFoundation reads it.
int sextetValue(unsigned char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    if (c == '+' || c == '/') {
        return c == '+' ? 62 : 63;
    }
    return c == '=' ? 0 : -1;
}

}  // namespace

bool PlistScalarText::integer(std::string_view text, int64_t& value) {
    size_t pos = skipSpace(text, 0);
    bool negative = false;
    if (pos < text.size() && (text[pos] == '-' || text[pos] == '+')) {
        negative = text[pos] == '-';
        pos = skipSpace(text, pos + 1);
    }
    const std::string_view prefix = text.substr(pos, 2);
    const bool hex = prefix == "0x" || prefix == "0X";
    pos += hex ? 2 : 0;
    uint64_t magnitude = 0;
    if (!readMagnitude(text, pos, hex ? 16 : 10, magnitude) ||
        skipSpace(text, pos) != text.size()) {
        return false;
    }
    return toInt64(magnitude, negative, value);
}

bool PlistScalarText::real(std::string_view text, double& value) {
    for (const NamedReal& named : kNamedReals) {
        if (equalsIgnoringAsciiCase(text, named.name)) {
            value = named.value;
            return true;
        }
    }
    return decimalReal(text, value);
}

bool PlistScalarText::date(std::string_view text, double& seconds) {
    if (!hasDateShape(text)) {
        return false;
    }
    const int64_t month = dateField(text, 5, 2);
    const int64_t day = dateField(text, 8, 2);
    const int64_t hour = dateField(text, 11, 2);
    const int64_t minute = dateField(text, 14, 2);
    const int64_t second = dateField(text, 17, 2);
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59) {
        return false;
    }
    constexpr int64_t kUnixToAbsolute = 978307200;
    const int64_t absolute = daysFromCivil(dateField(text, 0, 4), month, day) * 86400 +
                             hour * 3600 + minute * 60 + second - kUnixToAbsolute;
    seconds = static_cast<double>(absolute);
    return seconds >= kMinPlistDate && seconds <= kMaxPlistDate;
}

bool PlistScalarText::data(std::string_view text, std::vector<UInt8>& bytes) {
    bytes.clear();
    bytes.reserve(text.size() / 4 * 3);
    uint32_t group = 0;
    size_t sextets = 0;
    int padding = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) {
            return false;
        }
        // Trailing "=" marks the bytes the last group does not carry; anything but a
        // blank in between makes them count again.
        padding = c == '=' ? padding + 1 : isCSpace(c) ? padding : 0;
        const int sextet = sextetValue(byte);
        if (sextet < 0) {
            continue;
        }
        group = (group << 6) | static_cast<uint32_t>(sextet);
        if (++sextets % 4 == 0) {
            bytes.push_back(static_cast<UInt8>(group >> 16));
            if (padding < 2) {
                bytes.push_back(static_cast<UInt8>(group >> 8));
            }
            if (padding < 1) {
                bytes.push_back(static_cast<UInt8>(group));
            }
        }
    }
    return true;
}

}  // namespace qvcf
