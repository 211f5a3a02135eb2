// A rule set as a table for a person (number, set, action, the ipfw text beside each
// rule) or as JSON for a script:
//   {"set": 19, "rules": [{"number": 3100, "set": 19, "action": "deny",
//                          "ipfw": "deny log ...", "rule": {...}}]}
#pragma once

#include <string>
#include <vector>

#include "VelaFwMsg.pb.h"

namespace qvctl {

struct ListedRule {
    qor::vela::FwRule rule;
    std::string ipfwText;  // or, when the text could not be made, why
};

// "deny" for ACTION_DENY.
std::string ActionName(qor::vela::ActionEnum action);

std::string FormatRuleTable(int setNumber, const std::vector<ListedRule>& rules);
std::string RuleTableJson(int setNumber, const std::vector<ListedRule>& rules);

}  // namespace qvctl
