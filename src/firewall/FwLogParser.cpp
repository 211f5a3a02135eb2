#include "FwLogParser.h"

#include <cstdio>
#include <cstring>

namespace qor {
namespace vela {

namespace {

// The syslog prefix ends in a colon; the kernel's text starts with "ipfw:".
constexpr const char* kIpfwLine = ":[\\ \t]*ipfw:[\\ \t]*";

}  // namespace

FwLogParser::FwLogParser()
    : m_valid(regcomp(&m_pattern, kIpfwLine, REG_EXTENDED | REG_ICASE) == 0) {}

FwLogParser::~FwLogParser() {
    if (m_valid) {
        regfree(&m_pattern);
    }
}

bool FwLogParser::Parse(const char* line, int32_t now, EventLogItemFw& event) const {
    regmatch_t match{};
    if (!m_valid || regexec(&m_pattern, line, 1, &match, 0) != 0) {
        return false;
    }
    const char* rest = line + match.rm_eo;
    unsigned int ruleNumber = 0;
    if (sscanf(rest, "%u", &ruleNumber) != 1) {
        ruleNumber = 0;
    }
    event.Clear();
    event.set_time(now);
    event.set_rule_index(static_cast<int32_t>(ruleNumber));
    // The receiver of the record expects the line's own terminating NUL as well.
    event.set_detail(std::string(rest, std::strlen(rest) + 1));
    return true;
}

}  // namespace vela
}  // namespace qor
