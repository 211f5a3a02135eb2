#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipfwsim/StateFile.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

struct FlowId {
    uint8_t proto = 0;
    uint32_t srcAddress = 0;
    uint16_t srcPort = 0;
    uint32_t dstAddress = 0;
    uint16_t dstPort = 0;
};

// A keep-state entry in memory; it points at its parent rule by a key that survives
// insertions and deletions.
struct DynamicEntry {
    uint64_t ruleKey = 0;
    FlowId flow;
    int64_t expires = 0;
    Counters counters;
};

struct RuleEntry {
    StoredRule stored;
    uint64_t key = 0;
};

// The whole rule set in memory, for the commands that change more than one line.
class FirewallState {
public:
    static Status load(std::string_view content, FirewallState& state);
    std::string serialize() const;

    // Inserts after every rule with the same number; returns its key.
    uint64_t insert(StoredRule stored);
    size_t eraseNumbers(uint32_t low, uint32_t high);
    size_t eraseSet(uint32_t set);
    void flush();
    const RuleEntry* findByKey(uint64_t key) const;
    RuleEntry* findByKey(uint64_t key);

    std::vector<RuleEntry>& rules() { return rules_; }
    const std::vector<RuleEntry>& rules() const { return rules_; }
    std::vector<DynamicEntry>& dynamic() { return dynamic_; }
    const std::vector<DynamicEntry>& dynamic() const { return dynamic_; }
    StateHeader& header() { return header_; }
    const StateHeader& header() const { return header_; }

private:
    template <typename Predicate>
    size_t eraseWhere(Predicate doomed);

    StateHeader header_;  // its dynamic list is unused in memory
    std::vector<RuleEntry> rules_;
    std::vector<DynamicEntry> dynamic_;
    uint64_t nextKey_ = 1;
};

}  // namespace ipfwsim
