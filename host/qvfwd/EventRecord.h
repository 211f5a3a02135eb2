// The JSON records of the events file and of `qvfwctl watch --json` / `events --json`: one
// object per line, each with "type" and "time" (RFC 3339, UTC, microseconds) first. The
// schema is the README's (section "Events as JSON lines"); nothing here does I/O.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>

#include "PacketLine.h"

namespace qvfwd {

// Which rule list a rule belongs to, and the ipfw set that holds it.
struct RulePlace {
    std::string list;  // "normal" or "exception"
    int64_t set = 0;
};

// "2024-05-01T12:00:00.123456Z"
std::string Rfc3339Micros(int64_t micros);

// A packet the firewall logged; `place` is unknown for a rule the daemon does not hold.
std::string PacketRecord(int64_t micros, const PacketLine& packet,
                         const std::optional<RulePlace>& place);

// A line of the firewall log that is not about one packet ("limit 5 reached on entry 3100").
std::string LogRecord(int64_t micros, const std::string& text);

// Who changed what through the control socket.
struct ChangeFacts {
    int64_t uid = -1;
    int64_t pid = -1;
    std::string program;
    std::string command;                // qvfwctl's word for it: "add", "delete", "apply", ...
    std::optional<int64_t> ruleNumber;  // the rule it made or touched, when one
    std::string ruleText;               // the rule(s) in words, or what was asked
    int32_t code = 0;
};
std::string ChangeRecord(int64_t micros, const ChangeFacts& change);

// A rule that reached its deadline and was deleted (or why not: `code`).
struct ExpiryFacts {
    int64_t ruleNumber = 0;
    RulePlace place;
    std::string ruleText;
    int64_t deadlineMicros = 0;
    int32_t code = 0;
};
std::string ExpiryRecord(int64_t micros, const ExpiryFacts& expiry);

// Packet records of one rule that were held back in one second by --event-rate.
std::string SuppressedRecord(int64_t micros, int64_t ruleNumber, int64_t second, int64_t count);

// A change that was not confirmed in time, undone: the previous list put back.
std::string RollbackRecord(int64_t micros, const std::string& list, int64_t rules, int32_t code);

}  // namespace qvfwd
