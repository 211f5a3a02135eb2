#include "ipfwnft/TableCompiler.h"

#include <map>
#include <vector>

#include "ipfwnft/RuleCompiler.h"

namespace ipfwnft {
namespace {

using ipfwsim::ActionKind;
using ipfwsim::Rule;
using ipfwsim::Status;

struct Hook {
    const char* chain;
    const char* hook;
    std::vector<Pass> passes;
};

const std::vector<Hook>& hooks() {
    static const std::vector<Hook> table = {
        {"input", "input", {Pass::In}},
        {"output", "output", {Pass::Out}},
        {"forward", "forward", {Pass::ForwardIn, Pass::ForwardOut}}};
    return table;
}

std::vector<PlacedRule> enabledRules(const ipfwsim::FirewallState& state) {
    std::vector<PlacedRule> placed;
    std::map<uint32_t, uint32_t> seen;
    const uint32_t disabled = state.header().disabledSets;
    for (const ipfwsim::RuleEntry& entry : state.rules()) {
        const Rule& rule = entry.stored.rule;
        const uint32_t ordinal = seen[rule.number]++;
        if ((disabled & (1u << rule.set)) == 0) {
            placed.push_back({&rule, ordinal});
        }
    }
    return placed;
}

bool looksUpState(const Rule& rule) {
    return rule.action.kind == ActionKind::CheckState || rule.keepsState();
}

Status passLines(const std::vector<PlacedRule>& rules, Pass pass, std::vector<std::string>& lines) {
    std::vector<PlacedRule> keepers;
    for (const PlacedRule& placed : rules) {
        if (placed.rule->keepsState()) {
            keepers.push_back(placed);
        }
    }
    // Once a lookup rule without a probability is passed, the lookup has surely happened.
    bool lookupPending = !keepers.empty();
    for (const PlacedRule& placed : rules) {
        Status status = Status::success();
        if (lookupPending && looksUpState(*placed.rule)) {
            status = stateLookupLines(keepers, *placed.rule, pass, lines);
            lookupPending = placed.rule->hasProbability;
        }
        if (status.ok()) {
            status = compileRule(placed, pass, lines);
        }
        if (!status.ok()) {
            return Status::failure(
                status.code, "rule " + std::to_string(placed.rule->number) + ": " + status.message);
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

}  // namespace

Status compileTable(const ipfwsim::FirewallState& state, std::string& script) {
    const std::vector<PlacedRule> rules = enabledRules(state);
    std::string body =
        chainText("reset_action", "", {"meta l4proto 6 reject with tcp reset", "drop"});
    for (const Hook& hook : hooks()) {
        for (Pass pass : hook.passes) {
            std::vector<std::string> lines;
            Status status = passLines(rules, pass, lines);
            if (!status.ok()) {
                return status;
            }
            body += chainText(passChain(pass), "", lines);
        }
    }
    for (const Hook& hook : hooks()) {
        std::vector<std::string> jumps;
        for (Pass pass : hook.passes) {
            jumps.push_back(std::string("meta nfproto ipv4 jump ") + passChain(pass));
        }
        body += chainText(
            hook.chain,
            std::string("\t\ttype filter hook ") + hook.hook + " priority filter; policy accept;\n",
            jumps);
    }
    script = dropTableScript() + "table " + kTableName + " {\n" + body + "}\n";
    return Status::success();
}

std::string dropTableScript() {
    return std::string("table ") + kTableName + "\ndelete table " + kTableName + "\n";
}

}  // namespace ipfwnft
