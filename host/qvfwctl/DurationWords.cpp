#include "DurationWords.h"

#include <vector>

namespace qvctl {

namespace {

struct Unit {
    char letter;
    int64_t seconds;
};

constexpr Unit kUnits[] = {{'d', 86400}, {'h', 3600}, {'m', 60}, {'s', 1}};

int64_t UnitSeconds(char letter) {
    for (const Unit& unit : kUnits) {
        if (unit.letter == letter) {
            return unit.seconds;
        }
    }
    return 0;
}

}  // namespace

bool ParseDuration(const std::string& text, int64_t* seconds) {
    int64_t total = 0;
    size_t at = 0;
    if (text.empty()) {
        return false;
    }
    while (at < text.size()) {
        size_t digits = text.find_first_not_of("0123456789", at);
        if (digits == at || digits == std::string::npos || digits - at > 9) {
            return false;  // a number without its unit, or no number
        }
        const int64_t unit = UnitSeconds(text[digits]);
        if (unit == 0) {
            return false;
        }
        total += std::stoll(text.substr(at, digits - at)) * unit;
        if (total > kLongestDurationSeconds) {
            return false;
        }
        at = digits + 1;
    }
    if (total < 1) {
        return false;
    }
    *seconds = total;
    return true;
}

std::string FormatTimeLeft(int64_t seconds) {
    if (seconds <= 0) {
        return "0s";
    }
    std::vector<std::string> parts;
    for (const Unit& unit : kUnits) {
        if (seconds >= unit.seconds && parts.size() < 2) {
            parts.push_back(std::to_string(seconds / unit.seconds) + unit.letter);
            seconds %= unit.seconds;
        } else if (!parts.empty() && parts.size() < 2) {
            break;  // "1h 0m 5s" reads as "1h"; the next unit down is what counts
        }
    }
    return parts.size() == 1 ? parts[0] : parts[0] + " " + parts[1];
}

}  // namespace qvctl
