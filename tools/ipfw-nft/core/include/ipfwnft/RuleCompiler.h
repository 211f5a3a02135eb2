#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwnft/Pass.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// A rule as the table holds it: the parsed rule and its place among the rules sharing
// its number.
struct PlacedRule {
    const ipfwsim::Rule* rule = nullptr;
    uint32_t ordinal = 0;
};

// A 32-bit value as nftables reads a mark: "0x0000001f".
std::string hexWord(uint32_t value);

// The connection mark of flows that a keep-state rule let in.
uint32_t flowMark(const PlacedRule& placed);

// The nftables rule for one ipfw rule in one pass; empty when the rule cannot match in
// that pass. Check-state rules have no line of their own (see stateLookupLines).
ipfwsim::Status compileRule(const PlacedRule& placed, Pass pass, std::vector<std::string>& lines);

// What a rule does once a packet met all its tests, in `pass`: its action alone ("drop"),
// or with `own` its log statement and its comment too ("log group 65 prefix \"...\" drop
// comment \"3100\""). The verdict chain of a keyed rule holds it.
ipfwsim::Status compileVerdict(const PlacedRule& placed, Pass pass, bool own, std::string& text);

// ipfw looks a packet up among the kept flows at the first keep-state or check-state
// rule it reaches, and a known flow takes the action of the rule that kept it. These
// lines do that through conntrack marks, gated by `lookupRule`'s probability.
ipfwsim::Status stateLookupLines(const std::vector<PlacedRule>& keepers,
                                 const ipfwsim::Rule& lookupRule, Pass pass,
                                 std::vector<std::string>& lines);

// Refuses, before it is stored, a rule that some pass could not enforce exactly.
ipfwsim::Status checkEnforceable(const ipfwsim::Rule& rule);

}  // namespace ipfwnft
