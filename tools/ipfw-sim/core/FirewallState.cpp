#include "ipfwsim/FirewallState.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace ipfwsim {

Status FirewallState::load(std::string_view content, FirewallState& state) {
    StateFile file(content);
    Status status = file.open();
    StateHeader header;
    std::vector<StoredRule> stored;
    if (status.ok()) {
        status = file.readAll(header, stored);
    }
    if (!status.ok()) {
        return status;
    }
    state = FirewallState{};
    std::map<std::pair<uint32_t, uint32_t>, uint64_t> keyOf;
    std::map<uint32_t, uint32_t> seen;
    for (StoredRule& rule : stored) {
        uint32_t number = rule.rule.number;
        uint64_t key = state.insert(std::move(rule));
        keyOf[{number, seen[number]++}] = key;
    }
    // Entries whose parent is gone are dropped, as the kernel drops them with the rule.
    for (const DynamicState& saved : header.dynamic) {
        auto parent = keyOf.find({saved.ruleNumber, saved.ordinal});
        if (parent == keyOf.end()) {
            continue;
        }
        FlowId flow{saved.proto, saved.srcAddress, saved.srcPort, saved.dstAddress, saved.dstPort};
        state.dynamic_.push_back(DynamicEntry{parent->second, flow, saved.expires, saved.counters});
    }
    header.dynamic.clear();
    state.header_ = header;
    return Status::success();
}

std::string FirewallState::serialize() const {
    StateHeader header = header_;
    header.dynamic.clear();
    std::unordered_map<uint64_t, std::pair<uint32_t, uint32_t>> positionOf;
    std::unordered_map<uint32_t, uint32_t> seen;
    Counters widest;
    std::string ruleText;
    for (const RuleEntry& entry : rules_) {
        uint32_t number = entry.stored.rule.number;
        positionOf[entry.key] = {number, seen[number]++};
        widest.packets = std::max(widest.packets, entry.stored.counters.packets);
        widest.bytes = std::max(widest.bytes, entry.stored.counters.bytes);
        ruleText += StateFile::formatRuleLine(entry.stored);
    }
    for (const DynamicEntry& entry : dynamic_) {
        auto position = positionOf.find(entry.ruleKey);
        if (position == positionOf.end()) {
            continue;
        }
        DynamicState saved;
        saved.ruleNumber = position->second.first;
        saved.ordinal = position->second.second;
        saved.proto = entry.flow.proto;
        saved.srcAddress = entry.flow.srcAddress;
        saved.srcPort = entry.flow.srcPort;
        saved.dstAddress = entry.flow.dstAddress;
        saved.dstPort = entry.flow.dstPort;
        saved.expires = entry.expires;
        saved.counters = entry.counters;
        header.dynamic.push_back(saved);
    }
    return StateFile::assemble(header, widest, ruleText);
}

uint64_t FirewallState::insert(StoredRule stored) {
    auto after = std::upper_bound(
        rules_.begin(), rules_.end(), stored.rule.number,
        [](uint32_t number, const RuleEntry& entry) { return number < entry.stored.rule.number; });
    uint64_t key = nextKey_++;
    rules_.insert(after, RuleEntry{std::move(stored), key});
    return key;
}

template <typename Predicate>
size_t FirewallState::eraseWhere(Predicate doomed) {
    std::unordered_set<uint64_t> goneKeys;
    for (const RuleEntry& entry : rules_) {
        if (doomed(entry.stored.rule)) {
            goneKeys.insert(entry.key);
        }
    }
    rules_.erase(std::remove_if(rules_.begin(), rules_.end(),
                                [&](const RuleEntry& entry) { return doomed(entry.stored.rule); }),
                 rules_.end());
    dynamic_.erase(std::remove_if(dynamic_.begin(), dynamic_.end(),
                                  [&](const DynamicEntry& entry) {
                                      return goneKeys.count(entry.ruleKey) != 0;
                                  }),
                   dynamic_.end());
    return goneKeys.size();
}

size_t FirewallState::eraseNumbers(uint32_t low, uint32_t high) {
    return eraseWhere([&](const Rule& rule) { return rule.number >= low && rule.number <= high; });
}

size_t FirewallState::eraseSet(uint32_t set) {
    return eraseWhere([&](const Rule& rule) { return rule.set == set; });
}

void FirewallState::flush() {
    rules_.clear();
    dynamic_.clear();
}

const RuleEntry* FirewallState::findByKey(uint64_t key) const {
    for (const RuleEntry& entry : rules_) {
        if (entry.key == key) {
            return &entry;
        }
    }
    return nullptr;
}

RuleEntry* FirewallState::findByKey(uint64_t key) {
    return const_cast<RuleEntry*>(static_cast<const FirewallState*>(this)->findByKey(key));
}

}  // namespace ipfwsim
