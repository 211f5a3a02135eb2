#include "ipfwnft/TableCompiler.h"

#include <map>
#include <vector>

#include "ipfwnft/RuleCompiler.h"
#include "ipfwnft/TableLayout.h"

namespace ipfwnft {
namespace {

using ipfwsim::Rule;
using ipfwsim::Status;

struct Hook {
    const char* chain;
    const char* hook;
    const char* priority;
    Pass pass;
};

// A forwarded packet takes both passes: accepting in the first forward chain hands it on
// to the second, as ipfw's in pass hands it on to the out pass.
const std::vector<Hook>& hooks() {
    static const std::vector<Hook> table = {
        {"input", "input", "filter", Pass::In},
        {"output", "output", "filter", Pass::Out},
        {"forward_in", "forward", "filter", Pass::In},
        {"forward_out", "forward", "filter + 1", Pass::Out}};
    return table;
}

std::vector<PlacedRule> placedRules(const ipfwsim::FirewallState& state) {
    std::vector<PlacedRule> placed;
    std::map<uint32_t, uint32_t> seen;
    for (const ipfwsim::RuleEntry& entry : state.rules()) {
        const Rule& rule = entry.stored.rule;
        placed.push_back({&rule, seen[rule.number]++});
    }
    return placed;
}

bool enabled(const Rule& rule, uint32_t disabledSets) {
    return (disabledSets & (1u << rule.set)) == 0;
}

// The lines of every bucket in one pass. ipfw looks a packet up among the kept flows of
// the enabled sets at the first enabled lookup rule it reaches (and again at the next
// while a probability may have skipped one); those lines go just before that rule's.
Status bucketLines(const std::vector<PlacedRule>& rules, uint32_t disabledSets, Pass pass,
                   std::map<uint32_t, std::vector<std::string>>& buckets) {
    std::vector<PlacedRule> keepers;
    for (const PlacedRule& placed : rules) {
        if (placed.rule->keepsState() && enabled(*placed.rule, disabledSets)) {
            keepers.push_back(placed);
        }
    }
    bool lookupPending = !keepers.empty();
    for (const PlacedRule& placed : rules) {
        std::vector<std::string>& lines = buckets[bucketOf(placed.rule->number)];
        const Rule& rule = *placed.rule;
        if (lookupPending && looksUpState(rule) && enabled(rule, disabledSets)) {
            Status status = stateLookupLines(keepers, rule, pass, lines);
            if (!status.ok()) {
                return status;
            }
            lookupPending = rule.hasProbability;
        }
        Status status = compileLines({placed}, pass, lines);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

std::string chainText(const std::string& name, const std::string& head,
                      const std::vector<std::string>& lines) {
    std::string text = "\tchain " + name + " {\n" + head;
    for (const std::string& line : lines) {
        text += "\t\t" + line + "\n";
    }
    return text + "\t}\n";
}

std::string enabledSetsText(uint32_t disabledSets) {
    std::string elements;
    for (uint32_t set = 0; set < ipfwsim::kReservedSet; ++set) {
        if ((disabledSets & (1u << set)) == 0) {
            elements += (elements.empty() ? "" : ", ") + std::to_string(set);
        }
    }
    std::string text = std::string("\tset ") + kEnabledSets + " {\n\t\ttypeof numgen random mod 1\n";
    if (!elements.empty()) {
        text += "\t\telements = { " + elements + " }\n";
    }
    return text + "\t}\n";
}

std::string passText(Pass pass, const std::map<uint32_t, std::vector<std::string>>& buckets) {
    std::string text;
    std::map<uint32_t, std::vector<std::string>> supers;
    for (const auto& [bucket, lines] : buckets) {
        text += chainText(bucketChain(pass, bucket), "", lines);
        supers[superOf(bucket)].push_back("jump " + bucketChain(pass, bucket));
    }
    std::vector<std::string> jumps;
    for (const auto& [super, lines] : supers) {
        text += chainText(superChain(pass, super), "", lines);
        jumps.push_back("jump " + superChain(pass, super));
    }
    return text + chainText(passChain(pass), "", jumps);
}

}  // namespace

Status compileTable(const ipfwsim::FirewallState& state, std::string& script) {
    const std::vector<PlacedRule> rules = placedRules(state);
    const uint32_t disabledSets = state.header().disabledSets;
    std::string body = enabledSetsText(disabledSets) +
                       chainText("reset_action", "", {"meta l4proto 6 reject with tcp reset", "drop"});
    for (Pass pass : kPasses) {
        std::map<uint32_t, std::vector<std::string>> buckets;
        for (const PlacedRule& placed : rules) {
            buckets[bucketOf(placed.rule->number)];  // a bucket of rules that cannot match stays
        }
        Status status = bucketLines(rules, disabledSets, pass, buckets);
        if (!status.ok()) {
            return status;
        }
        body += passText(pass, buckets);
    }
    for (const Hook& hook : hooks()) {
        body += chainText(hook.chain,
                          std::string("\t\ttype filter hook ") + hook.hook + " priority " +
                              hook.priority + "; policy accept;\n",
                          {std::string("meta nfproto ipv4 jump ") + passChain(hook.pass)});
    }
    script = dropTableScript() + "table " + kTableName + " {\n" + body + "}\n";
    return Status::success();
}

std::string dropTableScript() {
    return std::string("table ") + kTableName + "\ndelete table " + kTableName + "\n";
}

std::string setSwitchScript(uint32_t disabledBefore, uint32_t disabledAfter) {
    std::string script;
    for (uint32_t set = 0; set < ipfwsim::kReservedSet; ++set) {
        const uint32_t bit = 1u << set;
        if ((disabledBefore & bit) != (disabledAfter & bit)) {
            script += std::string((disabledAfter & bit) != 0 ? "delete" : "add") + " element " +
                      kTableName + " " + kEnabledSets + " { " + std::to_string(set) + " }\n";
        }
    }
    return script;
}

}  // namespace ipfwnft
