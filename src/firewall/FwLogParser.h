// Turns one line of the firewall log into an event record. Works on text only; the
// watcher does the file I/O.
#pragma once

#include <regex.h>

#include <cstdint>

#include "VelaEventLogMsg.pb.h"

namespace qor {
namespace vela {

class FwLogParser {
public:
    FwLogParser();
    ~FwLogParser();
    FwLogParser(const FwLogParser&) = delete;
    FwLogParser& operator=(const FwLogParser&) = delete;

    // False when the pattern could not be compiled; Parse then finds nothing.
    bool IsValid() const { return m_valid; }

    // For a NUL-terminated line holding ":" then "ipfw:" (any case, blanks around), fills
    // `event` with `now`, the rule number that follows (0 when none) and, as `detail`,
    // the rest of the line with its newline and one NUL byte. False for any other line.
    bool Parse(const char* line, int32_t now, EventLogItemFw& event) const;

private:
    regex_t m_pattern;
    bool m_valid;
};

}  // namespace vela
}  // namespace qor
