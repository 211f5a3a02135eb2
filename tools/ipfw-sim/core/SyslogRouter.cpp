#include "ipfwsim/SyslogRouter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>

namespace ipfwsim {
namespace {

constexpr int kFacilityCount = 24;
constexpr int kAllPriorities = 0xff;
constexpr int kNoPriority = 0x10;
constexpr int kCompareLess = 1;
constexpr int kCompareEqual = 2;
constexpr int kCompareGreater = 4;

struct Name {
    const char* name;
    int value;
};

constexpr Name kFacilities[] = {{"kern", 0},    {"user", 1},      {"mail", 2},      {"daemon", 3},
                                {"auth", 4},    {"syslog", 5},    {"lpr", 6},       {"news", 7},
                                {"uucp", 8},    {"cron", 9},      {"authpriv", 10}, {"ftp", 11},
                                {"ntp", 12},    {"security", 13}, {"console", 14},  {"local0", 16},
                                {"local1", 17}, {"local2", 18},   {"local3", 19},   {"local4", 20},
                                {"local5", 21}, {"local6", 22},   {"local7", 23}};

constexpr Name kPriorities[] = {
    {"emerg", 0}, {"panic", 0},          {"alert", 1},         {"crit", 2},   {"err", 3},
    {"error", 3}, {"warning", 4},        {"warn", 4},          {"notice", 5}, {"info", 6},
    {"debug", 7}, {"none", kNoPriority}, {"*", kAllPriorities}};

bool lookupName(const Name* table, size_t size, const std::string& word, int& value) {
    for (size_t i = 0; i < size; ++i) {
        if (strcasecmp(word.c_str(), table[i].name) == 0) {
            value = table[i].value;
            return true;
        }
    }
    return false;
}

struct Selection {
    std::array<int, kFacilityCount> level;
    std::array<int, kFacilityCount> compare;
    Selection() {
        level.fill(kNoPriority);
        compare.fill(0);
    }
};

// One "fac,fac.level" part of a selector; later parts override earlier ones.
bool applySelectorPart(const std::string& part, Selection& selection) {
    size_t dot = part.rfind('.');
    if (dot == std::string::npos) {
        return false;
    }
    std::string levelText = part.substr(dot + 1);
    int compare = 0;
    size_t pos = 0;
    bool negate = pos < levelText.size() && levelText[pos] == '!';
    pos += negate ? 1 : 0;
    for (; pos < levelText.size() && std::strchr("<=>", levelText[pos]) != nullptr; ++pos) {
        compare |= levelText[pos] == '<'   ? kCompareLess
                   : levelText[pos] == '=' ? kCompareEqual
                                           : kCompareGreater;
    }
    if (compare == 0) {
        compare = kCompareEqual | kCompareGreater;
    }
    if (negate) {
        compare ^= kCompareLess | kCompareEqual | kCompareGreater;
    }
    int level = 0;
    if (!lookupName(kPriorities, std::size(kPriorities), levelText.substr(pos), level)) {
        return false;
    }
    std::string facilities = part.substr(0, dot);
    size_t start = 0;
    while (start <= facilities.size()) {
        size_t comma = facilities.find(',', start);
        std::string name =
            facilities.substr(start, comma == std::string::npos ? comma : comma - start);
        int facility = 0;
        if (name == "*") {
            selection.level.fill(level);
            selection.compare.fill(compare);
        } else if (lookupName(kFacilities, std::size(kFacilities), name, facility)) {
            selection.level[static_cast<size_t>(facility)] = level;
            selection.compare[static_cast<size_t>(facility)] = compare;
        } else {
            return false;
        }
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return true;
}

bool selectorAdmits(const std::string& selector, int facility, int priority) {
    if (facility < 0 || facility >= kFacilityCount) {
        return false;
    }
    Selection selection;
    size_t start = 0;
    while (start <= selector.size()) {
        size_t semicolon = selector.find(';', start);
        std::string part =
            selector.substr(start, semicolon == std::string::npos ? semicolon : semicolon - start);
        if (!applySelectorPart(part, selection)) {
            return false;
        }
        if (semicolon == std::string::npos) {
            break;
        }
        start = semicolon + 1;
    }
    const int level = selection.level[static_cast<size_t>(facility)];
    const int compare = selection.compare[static_cast<size_t>(facility)];
    if (level == kNoPriority) {
        return false;
    }
    return ((compare & kCompareEqual) != 0 && level == priority) ||
           ((compare & kCompareLess) != 0 && level < priority) ||
           ((compare & kCompareGreater) != 0 && level > priority);
}

// "name,name" admits those; "-name,name" admits all others; "*" or empty admits all.
bool blockAdmits(const std::string& filter, const std::string& name) {
    if (filter.empty() || filter == "*") {
        return true;
    }
    bool exclude = filter[0] == '-';
    std::string list = filter.substr(filter[0] == '-' || filter[0] == '+' ? 1 : 0);
    bool listed = false;
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        if (list.substr(start, comma == std::string::npos ? comma : comma - start) == name) {
            listed = true;
        }
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return listed != exclude;
}

std::string trim(std::string_view text) {
    size_t begin = 0;
    while (begin < text.size() && std::isspace(static_cast<unsigned char>(text[begin])) != 0) {
        ++begin;
    }
    size_t end = text.size();
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])) != 0) {
        --end;
    }
    return std::string(text.substr(begin, end - begin));
}

std::string firstWord(const std::string& text) {
    size_t end = 0;
    while (end < text.size() && std::isspace(static_cast<unsigned char>(text[end])) == 0) {
        ++end;
    }
    return text.substr(0, end);
}

// A "!prog" or "+host"/"-host" line; returns false for ordinary lines.
bool readBlockLine(const std::string& line, std::string& programFilter, std::string& hostFilter) {
    if (line[0] == '!') {
        std::string filter = trim(line.substr(1));
        programFilter = filter.empty() || filter[0] == '*' ? "*" : firstWord(filter);
        return true;
    }
    if (line[0] == '+' || line[0] == '-') {
        std::string filter = trim(line.substr(1));
        hostFilter =
            filter.empty() || filter[0] == '*' ? "*" : line.substr(0, 1) + firstWord(filter);
        return true;
    }
    return false;
}

bool hostAdmits(const std::string& filter, const std::string& localHost) {
    if (filter == "*") {
        return true;
    }
    return blockAdmits(filter, "@") || blockAdmits(filter, localHost);
}

}  // namespace

std::vector<std::string> routeSyslogMessage(std::string_view configuration,
                                            const std::string& program, int facility, int priority,
                                            const std::string& localHost) {
    std::vector<std::string> files;
    std::string programFilter = "*";
    std::string hostFilter = "*";
    size_t start = 0;
    while (start < configuration.size()) {
        size_t newline = configuration.find('\n', start);
        std::string line = trim(configuration.substr(
            start, newline == std::string_view::npos ? newline : newline - start));
        start = newline == std::string_view::npos ? configuration.size() : newline + 1;
        if (line.empty()) {
            continue;
        }
        if (line[0] == '#') {
            line.erase(0, 1);
            if (line.empty() || std::strchr("!+-", line[0]) == nullptr) {
                continue;
            }
        }
        if (readBlockLine(line, programFilter, hostFilter)) {
            continue;
        }
        std::string selector = firstWord(line);
        std::string action = trim(line.substr(selector.size()));
        if (!action.empty() && action[0] == '-') {
            action.erase(0, 1);
        }
        if (action.empty() || action[0] != '/' || !blockAdmits(programFilter, program) ||
            !hostAdmits(hostFilter, localHost) || !selectorAdmits(selector, facility, priority)) {
            continue;
        }
        if (std::find(files.begin(), files.end(), action) == files.end()) {
            files.push_back(action);
        }
    }
    return files;
}

}  // namespace ipfwsim
