#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ipfwnft/Pass.h"
#include "ipfwnft/RuleCompiler.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// A block's rules in one pass are pieces, in number order. A rule that is an exact key
// (RuleKey.h) joins the group before it unless a packet could meet both it and one of
// the group's rules, or a rule that is no key came between: inside a group no packet
// meets two rules, so one lookup per shape finds the only one it meets, and their order
// there does not matter. Its element jumps to a verdict chain that tests its set and
// acts: one shared by the block's rules of that set and action, or the rule's own when
// it logs (the log line names the rule). The other rules are runs of lines of one set,
// entered behind one test of the set; a run ends at a group, another set, or every 1,024
// numbers, so that rewriting one stays cheap. (Every 256, the set tests cost a packet 3%
// more than the same lines as plain nftables rules.)
constexpr uint32_t kRunSpan = 1024;

struct VerdictMap {
    std::string expression;  // "meta l4proto . ip saddr . th dport"
    // By key ("6 . 10.0.0.1 . 22"): "comment \"3100\" : jump CHAIN".
    std::map<std::string, std::string> elements;
};

// What a block puts in its table for one pass, by name.
struct BlockObjects {
    std::vector<std::string> entries;  // the block chain's lines
    std::map<std::string, std::vector<std::string>> chains;
    std::map<std::string, VerdictMap> maps;
    // The chains that hold runs of lines, with their rules (indices into the block's).
    std::map<std::string, std::vector<size_t>> runs;
    // The chains and maps that rules left out have, and how many lines of the block
    // chain they account for, at its head.
    std::set<std::string> kept;
    size_t skippedEntries = 0;
};

// Lines that go before a rule's own: the lookups of kept flows, which a whole table puts
// ahead of the first rule that makes them.
using LeadingLines = std::map<const ipfwsim::Rule*, std::vector<std::string>>;

// How a change sees a block's rules: each one's identity (its stored line without its
// counters), and which were left unparsed because their stored words show they are no key.
struct StoredView {
    const std::vector<std::string>& identities;
    const std::vector<bool>& unparsed;
};

// The objects of `block` in `pass`, from its rules in number order. With `stored`, a
// run's chain holds its rules' identities in place of their lines, for comparing two
// states of a block without compiling, or parsing, what did not change.
// With `firstMember`, what the rules from that one on add to what the rules before it
// have (which the pieces still count): rules added after the last one of a block leave
// the pieces of the rules before them as they were, so a change that only adds there
// compares what the new rules add, and to nothing.
ipfwsim::Status compileBlock(uint32_t block, Pass pass, const std::vector<PlacedRule>& rules,
                             const LeadingLines& leading, BlockObjects& objects,
                             const StoredView* stored = nullptr, size_t firstMember = 0);

// The objects as the body of a table: chains, then maps, then the block's chain, so that
// everything is there before something names it.
std::string blockText(Pass pass, uint32_t block, const BlockObjects& objects);

// A map's element as "add element" and a table's text write it.
std::string elementText(const std::string& key, const std::string& value);

}  // namespace ipfwnft
