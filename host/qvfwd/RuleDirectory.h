// The rules the plug-in holds, as the daemon last read them (the plug-in's own list
// commands, after every change): which list and set a rule number belongs to, for the
// packet records and metrics, and each rule's message, for the change records and the
// deadlines. Read from many threads; refreshed by whoever changed something.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "EventRecord.h"
#include "PluginCaller.h"

namespace qor {
namespace vela {
class FwRule;
}
}  // namespace qor

namespace qvfwd {

// The same for the same rule under any number: FNV-1a of its message without the number.
uint64_t RuleFingerprint(const qor::vela::FwRule& rule);

struct StoredRule {
    std::string message;  // a serialized qor.vela.FwRule
    uint64_t fingerprint = 0;
};

class RuleDirectory {
public:
    RuleDirectory(PluginCaller caller, int64_t normalSet, int64_t exceptionSet)
        : m_call(std::move(caller)), m_sets{{"normal", normalSet}, {"exception", exceptionSet}} {}

    // Reads both lists again. False when the plug-in did not answer with them.
    bool Refresh();

    std::optional<RulePlace> PlaceOf(uint32_t number) const;
    std::optional<StoredRule> Find(const std::string& list, uint32_t number) const;
    int64_t SetOf(const std::string& list) const;
    size_t Count(const std::string& list) const;
    // Bumped by every refresh that saw something different.
    uint64_t generation() const;

private:
    bool ReadList(uint32_t command, std::map<uint32_t, StoredRule>* rules);

    PluginCaller m_call;
    const std::map<std::string, int64_t> m_sets;
    mutable std::mutex m_mutex;
    std::map<std::string, std::map<uint32_t, StoredRule>> m_rules;
    uint64_t m_generation = 0;
};

}  // namespace qvfwd
