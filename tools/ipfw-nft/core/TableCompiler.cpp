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
    uint32_t priority;  // added to the table's own number
    Pass pass;
};

// Each rule tree has as few base chains as the passes allow: the kernel checks a tree
// once for each base chain that reaches it.
const std::vector<Hook>& hooks() {
    static const std::vector<Hook> table = {{"prerouting", "prerouting", 0, Pass::In},
                                            {"output", "output", 0, Pass::Out},
                                            {"forward", "forward", 0, Pass::Out}};
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
    std::string text =
        std::string("\tset ") + kEnabledSets + " {\n\t\ttypeof numgen random mod 1\n";
    if (!elements.empty()) {
        text += "\t\telements = { " + elements + " }\n";
    }
    return text + "\t}\n";
}

std::string generationSetText() {
    return std::string("\tset ") + kGenerationSet + " {\n\t\ttype mark\n\t}\n";
}

std::string headTableText() {
    const std::string clear = "meta mark set meta mark & " + hexWord(~(kAllowedIn | kAllowedOut));
    std::string body = generationSetText();
    for (const char* hook : {"prerouting", "output", "forward"}) {
        body += chainText(
            hook,
            std::string("\t\ttype filter hook ") + hook + " priority filter - 1; policy accept;\n",
            {clear});
    }
    return std::string("table ") + kHeadTable + " {\n" + body + "}\n";
}

}  // namespace

Status passBlocks(const std::vector<PlacedRule>& rules, uint32_t disabledSets, Pass pass,
                  BlockMap& blocks) {
    std::vector<PlacedRule> keepers;
    for (const PlacedRule& placed : rules) {
        if (placed.rule->keepsState() && enabled(*placed.rule, disabledSets)) {
            keepers.push_back(placed);
        }
    }
    // ipfw looks a packet up among the kept flows of the enabled sets at the first enabled
    // lookup rule it reaches (and at the next while a probability may have skipped one).
    LeadingLines leading;
    bool lookupPending = !keepers.empty();
    std::map<uint32_t, std::vector<PlacedRule>> byBlock;
    for (const PlacedRule& placed : rules) {
        const Rule& rule = *placed.rule;
        byBlock[blockOf(rule.number)].push_back(placed);
        if (lookupPending && looksUpState(rule) && enabled(rule, disabledSets)) {
            Status status = stateLookupLines(keepers, rule, pass, leading[&rule]);
            if (!status.ok()) {
                return status;
            }
            lookupPending = rule.hasProbability;
        }
    }
    for (const auto& [block, members] : byBlock) {
        Status status = compileBlock(block, pass, members, leading, blocks[block]);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

std::string shardTableText(uint32_t shard, uint32_t disabledSets, const PassBlocks& passes) {
    std::string body =
        generationSetText() + enabledSetsText(disabledSets) +
        chainText("reset_action", "", {"meta l4proto 6 reject with tcp reset", "drop"});
    for (Pass pass : kPasses) {
        std::vector<std::string> jumps;
        for (const auto& [block, objects] : passes[static_cast<size_t>(pass)]) {
            body += blockText(pass, block, objects);
            jumps.push_back("jump " + blockChain(pass, block));
        }
        body += chainText(passChain(pass), "", jumps);
    }
    for (const Hook& hook : hooks()) {
        const std::string bit = hexWord(allowedBit(hook.pass));
        body += chainText(hook.chain,
                          std::string("\t\ttype filter hook ") + hook.hook + " priority filter + " +
                              std::to_string(hook.priority + shard) + "; policy accept;\n",
                          {"meta mark & " + bit + " == " + bit + " accept",
                           std::string("meta nfproto ipv4 jump ") + passChain(hook.pass)});
    }
    return "table " + shardTable(shard) + " {\n" + body + "}\n";
}

Status compileTable(const ipfwsim::FirewallState& state, uint32_t generation, std::string& script) {
    const std::vector<PlacedRule> rules = placedRules(state);
    const uint32_t disabledSets = state.header().disabledSets;
    // Per table, per pass: the objects of each block.
    std::map<uint32_t, PassBlocks> shards;
    for (Pass pass : kPasses) {
        BlockMap blocks;
        Status status = passBlocks(rules, disabledSets, pass, blocks);
        if (!status.ok()) {
            return status;
        }
        for (auto& [block, objects] : blocks) {
            shards[shardOf(block)][static_cast<size_t>(pass)][block] = std::move(objects);
        }
    }
    script = dropTablesScript() + headTableText();
    std::vector<uint32_t> built;
    for (const auto& [shard, passes] : shards) {
        script += shardTableText(shard, disabledSets, passes);
        built.push_back(shard);
    }
    script += generationMark(generation, built);
    return Status::success();
}

std::string dropTablesScript() {
    std::string script;
    auto drop = [&script](const std::string& table) {
        script += "table " + table + "\ndelete table " + table + "\n";
    };
    drop(kHeadTable);
    for (uint32_t shard = 0; shard < kShards; ++shard) {
        drop(shardTable(shard));
    }
    return script;
}

std::string setSwitchScript(uint32_t disabledBefore, uint32_t disabledAfter,
                            const std::vector<uint32_t>& shards) {
    std::string script;
    for (uint32_t set = 0; set < ipfwsim::kReservedSet; ++set) {
        const uint32_t bit = 1u << set;
        if ((disabledBefore & bit) == (disabledAfter & bit)) {
            continue;
        }
        for (uint32_t shard : shards) {
            script += std::string((disabledAfter & bit) != 0 ? "delete" : "add") + " element " +
                      shardTable(shard) + " " + kEnabledSets + " { " + std::to_string(set) + " }\n";
        }
    }
    return script;
}

}  // namespace ipfwnft
