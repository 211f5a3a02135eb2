#pragma once

#include <array>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "ipfwnft/BlockLayout.h"
#include "ipfwnft/Pass.h"
#include "ipfwnft/RuleCompiler.h"
#include "ipfwnft/TableLayout.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// The objects of each block of rule numbers in one pass, and the same for each pass.
using BlockMap = std::map<uint32_t, BlockObjects>;
using PassBlocks = std::array<BlockMap, std::size(kPasses)>;

// A script that replaces this back end's tables in one transaction with all rules of
// the state, laid out as TableLayout.h says: base chains hooked at input, output and
// forward, policy accept like ipfw's default rule 65535, the enabled sets listed.
// Creating each table first makes its delete valid when none exists. Every table carries
// `generation` in its set "gen".
ipfwsim::Status compileTable(const ipfwsim::FirewallState& state, uint32_t generation,
                             std::string& script);

// A script that removes every table of this back end, whether or not it exists.
std::string dropTablesScript();

// The objects of `rules` (all rules, in order) per block in `pass`, with the lookups of
// kept flows where ipfw makes them.
ipfwsim::Status passBlocks(const std::vector<PlacedRule>& rules, uint32_t disabledSets, Pass pass,
                           BlockMap& blocks);

// Table `shard` whole, with `passes[pass]` the objects of its blocks and its set "gen"
// empty.
std::string shardTableText(uint32_t shard, uint32_t disabledSets, const PassBlocks& passes);

// "add element" or "delete element" lines, in each of `shards`, for the sets whose switch
// differs.
std::string setSwitchScript(uint32_t disabledBefore, uint32_t disabledAfter,
                            const std::vector<uint32_t>& shards);

}  // namespace ipfwnft
