#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ipfwnft/Pass.h"
#include "ipfwnft/RuleCompiler.h"
#include "ipfwsim/StateFile.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// Where a rule lives. The rules of each 16,384 numbers are a table of their own, "inet
// ipfw_s0" to "inet ipfw_s3", created with its first rule and deleted with its last; in
// it each pass has a chain ("rules_in", "rules_out") that jumps, in number order, to a
// chain per 8,192 numbers, a block ("rules_in_k1"). A block's chain holds its pieces in
// number order (BlockLayout.h): lookups in verdict maps for the rules that are exact
// keys, and runs of lines for the others. A change rewrites only what differs in the
// blocks of its numbers: one element for a keyed rule, the chain of its run for another.
// The kernel checks every chain of a table reachable from its base chains whenever a
// rule with a verdict goes in (about a tenth of a microsecond per rule), so smaller
// tables would cost it less; but nft reads every table and chain before each transaction
// and sets up four 128 KiB caches per table (about 50 microseconds a table), which costs
// more than the kernel's check saves.
constexpr uint32_t kBlockSpan = 8192;
constexpr uint32_t kShardSpan = 16384;
constexpr uint32_t kShards = 4;
constexpr Pass kPasses[] = {Pass::In, Pass::Out};

inline uint32_t blockOf(uint32_t number) {
    return number / kBlockSpan;
}
inline uint32_t shardOf(uint32_t block) {
    return block * kBlockSpan / kShardSpan;
}
inline std::string shardTable(uint32_t shard) {
    return "inet ipfw_s" + std::to_string(shard);
}
inline std::string blockChain(Pass pass, uint32_t block) {
    return std::string(passChain(pass)) + "_k" + std::to_string(block);
}

// The tables' base chains are hooked in number order: the in pass at prerouting, where
// every packet that comes in passes once, and the out pass at output and forward. A
// packet that a rule allowed carries a bit of its mark to the later tables, which let it
// through at once, as ipfw stops at an allow. The table "inet ipfw" clears both bits
// ahead of them all.
constexpr const char* kHeadTable = "inet ipfw";
constexpr uint32_t kAllowedIn = 0x00100000;
constexpr uint32_t kAllowedOut = 0x00200000;

// Whether `table` ("inet ipfw_s2") is one of this back end's.
bool isOwnTable(const std::string& table);

inline uint32_t allowedBit(Pass pass) {
    return pass == Pass::In ? kAllowedIn : kAllowedOut;
}

// The set, in each table, that lists the enabled rule sets. The jump to each run of lines
// outside set 31, and the verdict chain of each keyed rule, test the rule's set against
// it, so that switching a set is one element per table, however many rules the set
// holds and however their numbers interleave with other sets'.
constexpr const char* kEnabledSets = "enabled_sets";

std::string setGate(uint32_t set);
// The block chain's line that enters a run of lines of `set` kept in `chain`.
std::string runJump(uint32_t set, const std::string& chain);
// The first line of a verdict chain of `set`: it returns unless the set is enabled.
std::string setReturn(uint32_t set);

// The set, in every table, that holds one element: the count of kernel changes of the rule
// state that last wrote the table (its first line). Every change deletes the old count
// and adds the new one in each table it finds there, and deleting an element that is not
// there fails the whole transaction: so a change can only land on tables exactly as this
// state left them, and one that finds a table flushed, deleted or written by someone else
// fails and the tables are rebuilt.
constexpr const char* kGenerationSet = "gen";

// The statements that prove `generation` in the head table and in each of `shards`.
std::string generationProof(uint32_t generation, const std::vector<uint32_t>& shards);
// The statements that leave `generation` in the head table and in each of `shards`.
std::string generationMark(uint32_t generation, const std::vector<uint32_t>& shards);

// nft reads every table, chain and set before a transaction unless the kernel's ruleset is
// still the one it read last, and its own transactions change that too. This one changes
// nothing (the head table declared again, and the count the head table holds added again,
// which the kernel takes for no change) yet has nft read all that a change needs: run after
// `applied` went in, while ipfw prepares the next change, it takes that reading off the
// next change's way. Empty when `applied` leaves no count in the head table.
std::string readAheadScript(const std::string& applied);

// Whether ipfw looks a packet up among the kept flows at this rule.
bool looksUpState(const ipfwsim::Rule& rule);
// The same, read from stored rule lines as they stand.
bool linesLookUpState(std::string_view lines);

// The rule lines of a stretch of numbers, as they stand in the state: a change compares
// two stretches by their lines and decodes only what it must (see decode). Complete when
// the stretch starts and ends on a number boundary.
class RuleStretch {
public:
    RuleStretch(const ipfwsim::StateFile& file, uint32_t low, uint32_t high);

    bool empty() const { return lines_.empty(); }
    size_t size() const { return lines_.size(); }
    bool looksUpState() const;
    uint32_t numberAt(size_t index) const { return numbers_[index]; }
    // Each rule as its stored line names it, without the counters traffic changes: equal
    // for the same rule before and after a change. Those before the `from`th are left
    // empty, for a caller that needs only the last ones.
    std::vector<std::string> identities(size_t from = 0) const;
    // Whether this stretch's rules are the first ones of `other`, as identities go.
    bool leads(const RuleStretch& other) const;
    // The rules, decoded into `storage`, with their places among the rules sharing their
    // number; where `known` has the `i`th rule parsed already, that one stands for it.
    // With `unparsed`, a rule whose stored words show it is no key (surelyNoKey) is left
    // with its number and set only, and marked there, until parse() is asked for it.
    ipfwsim::Status decode(std::vector<ipfwsim::StoredRule>& storage,
                           std::vector<PlacedRule>& placed,
                           const std::function<const ipfwsim::Rule*(size_t)>& known = nullptr,
                           std::vector<bool>* unparsed = nullptr) const;
    ipfwsim::Status parse(size_t index, ipfwsim::StoredRule& stored) const;

private:
    std::vector<std::string_view> lines_;
    std::vector<uint32_t> numbers_;
};

// The lines of `rules` in `pass`; their sets are tested by the runs' jumps.
ipfwsim::Status compileLines(const std::vector<PlacedRule>& rules, Pass pass,
                             std::vector<std::string>& lines);

// The blocks of [low, high] that hold rules.
std::vector<uint32_t> blocksWithRules(const ipfwsim::StateFile& file, uint32_t low, uint32_t high);

// The tables that hold rules.
std::vector<uint32_t> shardsWithRules(const ipfwsim::StateFile& file);

}  // namespace ipfwnft
