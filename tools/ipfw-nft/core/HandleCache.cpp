#include "ipfwnft/HandleCache.h"

#include "ipfwnft/TableLayout.h"

namespace ipfwnft {

using Kind = RulesetEvent::Kind;

void HandleCache::take(const RulesetEvent& event) {
    if (!isOwnTable(event.table)) {
        return;
    }
    if (event.kind == Kind::TableAdded) {
        tables_.try_emplace(event.table);  // a table known already was only changed
        return;
    }
    if (event.kind == Kind::TableDeleted) {
        tables_.erase(event.table);
        return;
    }
    const auto table = tables_.find(event.table);
    if (table == tables_.end()) {
        return;
    }
    // In a table seen from its creation, a chain not known yet is a new one, while a
    // known one that is announced again was changed and keeps its rules.
    if (event.kind == Kind::ChainAdded) {
        table->second.try_emplace(event.chain);
        return;
    }
    if (event.kind == Kind::ChainDeleted) {
        table->second.erase(event.chain);
        return;
    }
    const auto chain = table->second.find(event.chain);
    if (chain == table->second.end()) {
        return;
    }
    if (event.kind == Kind::RuleAdded) {
        chain->second[event.handle] = event.text;
    } else if (event.kind == Kind::RuleDeleted) {
        chain->second.erase(event.handle);
    }
}

bool HandleCache::listChain(const std::string& table, const std::string& chain,
                            std::vector<KernelRule>& rules) const {
    const auto known = tables_.find(table);
    if (known == tables_.end() || known->second.count(chain) == 0) {
        return false;
    }
    rules.clear();
    for (const auto& [handle, text] : known->second.at(chain)) {
        rules.push_back(KernelRule{handle, text});
    }
    return true;
}

}  // namespace ipfwnft
