// The plug-in's commands as the daemon's records and metrics name them (qvfwctl's words),
// whether each one changes the firewall, and what its request holds.
#pragma once

#include <stdint.h>

namespace qvfwd {

enum class RequestKind { kNone, kRule, kNumber, kPair, kRuleList, kDebugLevel };

struct CommandInfo {
    uint32_t command;
    const char* name;
    bool changes;
    RequestKind request;
    const char* list;  // "normal", "exception", or "" when it is neither or both
};

// The row of `command`, or null for a number the plug-in's table does not hold.
const CommandInfo* FindCommand(uint32_t command);

// The row's name, or "other".
const char* CommandName(uint32_t command);

}  // namespace qvfwd
