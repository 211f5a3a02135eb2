#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwnft/Pass.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// What one ipfw match becomes in one pass: a test in nftables' syntax, or a condition
// that the pass decides by itself ("in" is always true on the way in, never on the way
// out).
struct Condition {
    enum class Kind { Always, Never, Test };
    Kind kind = Kind::Always;
    std::string text;

    static Condition always() { return {Kind::Always, {}}; }
    static Condition never() { return {Kind::Never, {}}; }
    static Condition test(std::string text) { return {Kind::Test, std::move(text)}; }
};

// Translates one match of an IPv4 rule (the chains only ever see IPv4, as ipfw on the
// target systems). `transport` is the one protocol the whole rule requires, or 0; ports
// are then read as that protocol's, since nftables refuses two protocols in one rule.
// Keep-state is the rule compiler's business and yields Always here. A match nftables
// cannot test exactly yields a refusal (see Refusal.h).
ipfwsim::Status compileMatch(const ipfwsim::Match& match, Pass pass, uint32_t transport,
                             Condition& condition);

// The protocols a match can only hold for (empty: any protocol).
std::vector<uint32_t> requiredProtocols(const ipfwsim::Match& match);

}  // namespace ipfwnft
