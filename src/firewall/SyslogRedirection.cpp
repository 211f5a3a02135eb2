#include "SyslogRedirection.h"

#include <cstring>

namespace qor {
namespace vela {

namespace {

constexpr int kFlags = REG_EXTENDED | REG_ICASE | REG_NOSUB;
// Start of line, any run of blanks, backslashes or tabs, "*.*", then at least one of them.
constexpr const char* kSelectorHead = "^[\\ \t]*\\*\\.\\*[\\ \t]+";
constexpr const char* kIpfwBlock = "^!ipfw[\\ \t]*";
constexpr const char* kRegexSpecials = "$()*+.?[\\]^{|}";

bool Matches(const regex_t& pattern, const std::string& line) {
    return regexec(&pattern, line.c_str(), 0, nullptr, 0) == 0;
}

}  // namespace

SyslogRedirection::SyslogRedirection(const std::string& logPath) : m_valid(false) {
    if (regcomp(&m_redirect, RedirectPattern(logPath).c_str(), kFlags) != 0) {
        return;
    }
    if (regcomp(&m_block, kIpfwBlock, kFlags) != 0) {
        regfree(&m_redirect);
        return;
    }
    m_valid = true;
}

SyslogRedirection::~SyslogRedirection() {
    if (m_valid) {
        regfree(&m_redirect);
        regfree(&m_block);
    }
}

bool SyslogRedirection::IsRedirected(std::istream& configuration) const {
    if (!m_valid) {
        return false;
    }
    bool inIpfwBlock = false;
    for (std::string line; std::getline(configuration, line);) {
        inIpfwBlock = inIpfwBlock || Matches(m_block, line);
        if (inIpfwBlock && Matches(m_redirect, line)) {
            return true;
        }
    }
    return false;
}

std::string SyslogRedirection::RedirectPattern(const std::string& logPath) {
    std::string pattern = kSelectorHead;
    for (char c : logPath) {
        if (c != '\0' && std::strchr(kRegexSpecials, c) != nullptr) {
            pattern += '\\';
        }
        pattern += c;
    }
    return pattern;
}

std::string SyslogRedirection::Block(const std::string& logPath) {
    return "\n!ipfw\n*.*\t\t\t" + logPath + "\n";
}

}  // namespace vela
}  // namespace qor
