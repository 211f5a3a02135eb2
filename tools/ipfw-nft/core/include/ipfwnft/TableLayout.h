#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwnft/Pass.h"
#include "ipfwnft/RuleCompiler.h"
#include "ipfwsim/StateFile.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// The nftables family and name of the one table this back end owns.
constexpr const char* kTableName = "inet ipfw";

// Where the lines of a rule live. Each pass has one chain ("rules_in") that jumps, in
// number order, to a chain per 4096 rule numbers that hold rules ("rules_in_s1"), which
// jumps to a chain per 256 numbers ("rules_in_b20") holding the rules' lines. A change
// of some numbers rewrites only their chains, so its cost does not grow with the rules
// elsewhere; and the kernel copies only the chains a transaction touches. nft reads every
// chain of the table before each command (about a microsecond each), which keeps the
// buckets this wide.
constexpr uint32_t kBucketSpan = 256;
constexpr uint32_t kSuperSpan = 4096;
constexpr Pass kPasses[] = {Pass::In, Pass::Out};

inline uint32_t bucketOf(uint32_t number) {
    return number / kBucketSpan;
}
inline uint32_t superOf(uint32_t bucket) {
    return bucket * kBucketSpan / kSuperSpan;
}
inline std::string bucketChain(Pass pass, uint32_t bucket) {
    return std::string(passChain(pass)) + "_b" + std::to_string(bucket);
}
inline std::string superChain(Pass pass, uint32_t super) {
    return std::string(passChain(pass)) + "_s" + std::to_string(super);
}

// The set that lists the enabled rule sets. Every line of a rule outside set 31 starts
// with a test of its set against it, so that switching a set is one element, however
// many rules the set holds and however their numbers interleave with other sets'.
constexpr const char* kEnabledSets = "enabled_sets";

std::string setGate(uint32_t set);

// Whether ipfw looks a packet up among the kept flows at this rule.
bool looksUpState(const ipfwsim::Rule& rule);

// The rules of a stretch of numbers, decoded, with their places among the rules sharing
// their number. Complete when the stretch starts and ends on a number boundary.
class RuleStretch {
public:
    static ipfwsim::Status read(const ipfwsim::StateFile& file, uint32_t low, uint32_t high,
                                RuleStretch& stretch);

    const std::vector<PlacedRule>& placed() const { return placed_; }
    bool empty() const { return stored_.empty(); }
    bool looksUpState() const;
    // Whether this stretch is `earlier` with rules added after its last one.
    bool extends(const RuleStretch& earlier) const;

private:
    std::vector<ipfwsim::StoredRule> stored_;
    std::vector<PlacedRule> placed_;
};

// The lines of `rules` in `pass`, each behind its set's gate. Lookups of kept flows are
// the caller's: these rules must hold none.
ipfwsim::Status compileLines(const std::vector<PlacedRule>& rules, Pass pass,
                             std::vector<std::string>& lines);

// The buckets of [low, high] that hold rules.
std::vector<uint32_t> bucketsWithRules(const ipfwsim::StateFile& file, uint32_t low,
                                       uint32_t high);

}  // namespace ipfwnft
