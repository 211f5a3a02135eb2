#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ipfwnft/KernelTable.h"
#include "ipfwnft/RulesetEvent.h"

namespace ipfwnft {

// The rules of this back end's chains with their handles, as the kernel announced them:
// so that a delete finds the handles of its rules without nft reading the whole ruleset.
// A chain is known only when its whole life was seen: created in a table whose own
// creation was seen. Listing any other chain is left to nft.
class HandleCache {
public:
    void take(const RulesetEvent& event);
    // False when the chain is not known.
    bool listChain(const std::string& table, const std::string& chain,
                   std::vector<KernelRule>& rules) const;
    // After announcements were lost nothing is known.
    void forget() { tables_.clear(); }

private:
    using Chain = std::map<uint64_t, std::string>;  // handle to text, in order of creation
    std::map<std::string, std::map<std::string, Chain>> tables_;
};

}  // namespace ipfwnft
