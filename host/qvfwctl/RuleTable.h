// A rule set as a table for a person (number, set, action, ipfw's packet and byte
// counters, and the rule text with dotted addresses) or as JSON for a script:
//   {"set": 19, "rules": [{"number": 3100, "set": 19, "action": "deny", "packets": 1,
//                          "bytes": 40, "ipfw": "deny log ...", "rule": {...}}]}
// A rule that expires shows the time it has left (a LEFT column; "expires_in_seconds").
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "RuleCounters.h"

#include "VelaFwMsg.pb.h"

namespace qvctl {

struct ListedRule {
    qor::vela::FwRule rule;
    std::string ipfwText;                  // or, when the text could not be made, why
    std::optional<RuleCounters> counters;  // none when ipfw could not be asked
    std::optional<int64_t> secondsLeft;    // until qvfwd deletes it (add --for)
};

// "deny" for ACTION_DENY.
std::string ActionName(qor::vela::ActionEnum action);

std::string FormatRuleTable(int setNumber, const std::vector<ListedRule>& rules);
std::string RuleTableJson(int setNumber, const std::vector<ListedRule>& rules);

}  // namespace qvctl
