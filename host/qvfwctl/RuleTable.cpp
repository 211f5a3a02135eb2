#include "RuleTable.h"

#include <stdio.h>

#include <algorithm>
#include <cctype>

#include "AddressWords.h"
#include "DurationWords.h"
#include "JsonWriter.h"
#include "MessageJson.h"

namespace qvctl {

namespace {

constexpr size_t kNumberWidth = 6;
constexpr size_t kSetWidth = 4;
constexpr size_t kCounterWidth = 9;
constexpr size_t kLeftWidth = 9;

std::string CounterText(const ListedRule& listed, uint64_t RuleCounters::*field) {
    return listed.counters ? std::to_string((*listed.counters).*field) : "-";
}

std::string PadRight(const std::string& text, size_t width) {
    return text.size() >= width ? text + " " : text + std::string(width - text.size(), ' ');
}

}  // namespace

std::string ActionName(qor::vela::ActionEnum action) {
    std::string name = qor::vela::ActionEnum_Name(action);
    const std::string prefix = "ACTION_";
    if (name.compare(0, prefix.size(), prefix) == 0) {
        name = name.substr(prefix.size());
    }
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return c == '_' ? '-' : std::tolower(c); });
    return name;
}

std::string FormatRuleTable(int setNumber, const std::vector<ListedRule>& rules) {
    size_t actionWidth = 6;
    bool expiring = false;
    for (const ListedRule& listed : rules) {
        actionWidth = std::max(actionWidth, ActionName(listed.rule.action()).size() + 1);
        expiring = expiring || listed.secondsLeft.has_value();
    }
    std::string out = PadRight("NUMBER", kNumberWidth + 1) + PadRight("SET", kSetWidth) +
                      PadRight("ACTION", actionWidth + 1) + PadRight("PACKETS", kCounterWidth) +
                      PadRight("BYTES", kCounterWidth) +
                      (expiring ? PadRight("LEFT", kLeftWidth) : "") + "RULE\n";
    for (const ListedRule& listed : rules) {
        out += PadRight(std::to_string(listed.rule.rule_index()), kNumberWidth + 1) +
               PadRight(std::to_string(setNumber), kSetWidth) +
               PadRight(ActionName(listed.rule.action()), actionWidth + 1) +
               PadRight(CounterText(listed, &RuleCounters::packets), kCounterWidth) +
               PadRight(CounterText(listed, &RuleCounters::bytes), kCounterWidth) +
               (expiring ? PadRight(listed.secondsLeft ? FormatTimeLeft(*listed.secondsLeft) : "-",
                                    kLeftWidth)
                         : "") +
               WithDottedAddresses(listed.ipfwText) + "\n";
    }
    if (rules.empty()) {
        out += "(no rules)\n";
    }
    return out;
}

std::string RuleTableJson(int setNumber, const std::vector<ListedRule>& rules) {
    JsonArray array;
    for (const ListedRule& listed : rules) {
        JsonObject entry;
        entry.Number("number", listed.rule.rule_index())
            .Number("set", setNumber)
            .Text("action", ActionName(listed.rule.action()));
        if (listed.counters) {
            entry.Number("packets", static_cast<int64_t>(listed.counters->packets))
                .Number("bytes", static_cast<int64_t>(listed.counters->bytes));
        }
        if (listed.secondsLeft) {
            entry.Number("expires_in_seconds", *listed.secondsLeft);
        }
        array.Raw(
            entry.Text("ipfw", listed.ipfwText).Raw("rule", MessageToJson(listed.rule)).str());
    }
    return JsonObject().Number("set", setNumber).Raw("rules", array.str()).str();
}

}  // namespace qvctl
