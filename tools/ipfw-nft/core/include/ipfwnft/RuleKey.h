#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ipfwnft/Pass.h"
#include "ipfwsim/Rule.h"

namespace ipfwnft {

// A rule whose matches are all exact values (a protocol, host addresses, single ports,
// lists of them, a direction) is an element of a verdict map rather than a line: a packet
// finds it with one hash lookup, whatever the map holds. The fields the rule names are
// its shape; one map per shape, keyed by the concatenation of those fields. Prefixes and
// port ranges stay lines: an interval map's lookup grows with its elements (one of 10,000
// in each pass made loopback connect/close 21 times as slow), a hash map's does not.
enum KeyField : uint8_t {
    kKeyProto = 1,
    kKeySrcAddr = 2,
    kKeyDstAddr = 4,
    kKeySrcPort = 8,
    kKeyDstPort = 16,
};
constexpr size_t kKeyFields = 5;

// One element's values, by field in the order above; 0 where the shape lacks the field.
using KeyValues = std::array<uint32_t, kKeyFields>;

struct RuleKeys {
    uint8_t shape = 0;
    // No two alike; none when the rule cannot match in the pass.
    std::vector<KeyValues> keys;
};

// The keys of `rule` in `pass`; false when the rule needs a test a key cannot hold (a
// prefix, a range, a negation, an interface, flags, kept state, a probability ...), or
// would need more elements than one rule may take.
bool lookupKeys(const ipfwsim::Rule& rule, Pass pass, RuleKeys& keys);

// Whether a stored rule line ("03100 19 0 0 0 action=deny proto:6 dst-me ...") names
// something no key holds, so that lookupKeys would refuse the rule in every pass: a
// change need not parse such a rule unless it compiles its line.
bool surelyNoKey(std::string_view storedLine);

// "meta l4proto . ip saddr . th dport"
std::string keyExpression(uint8_t shape);
// "6 . 10.0.0.1 . 22"
std::string keyText(uint8_t shape, const KeyValues& key);

// The keys of rules that share a group, to tell whether another rule could meet a packet
// one of them meets: it could when it agrees with one of them on every field both name
// (a field a shape lacks matches anything).
class KeyIndex {
public:
    bool meets(const RuleKeys& rule);
    void add(const RuleKeys& rule);

private:
    using Projection = std::pair<uint8_t, uint8_t>;  // a shape, the fields kept of it
    std::set<KeyValues>& projected(const Projection& projection);

    std::map<uint8_t, std::vector<KeyValues>> byShape_;
    // Built when first asked for, kept up to date after.
    std::map<Projection, std::set<KeyValues>> projections_;
};

}  // namespace ipfwnft
