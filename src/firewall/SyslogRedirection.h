// Whether a system logger configuration routes the program ipfw's messages into the
// firewall log file, and the block that makes it do so. Works on text only; FwMgr does
// the file I/O.
#pragma once

#include <regex.h>

#include <istream>
#include <string>

namespace qor {
namespace vela {

class SyslogRedirection {
public:
    explicit SyslogRedirection(const std::string& logPath);
    ~SyslogRedirection();
    SyslogRedirection(const SyslogRedirection&) = delete;
    SyslogRedirection& operator=(const SyslogRedirection&) = delete;

    // False when a pattern could not be compiled; nothing else works then.
    bool IsValid() const { return m_valid; }

    // True when, at or after the first "!ipfw" block line, a line sends every message
    // ("*.*") to the log path. A later block for another program does not end the search.
    bool IsRedirected(std::istream& configuration) const;

    // "*.*" selector, blanks, then the log path with regular-expression characters escaped.
    static std::string RedirectPattern(const std::string& logPath);
    // The text appended to a configuration that lacks the redirection.
    static std::string Block(const std::string& logPath);

private:
    regex_t m_redirect;
    regex_t m_block;
    bool m_valid;
};

}  // namespace vela
}  // namespace qor
