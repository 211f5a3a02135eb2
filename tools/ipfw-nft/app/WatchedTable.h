#pragma once

#include "RulesetWatch.h"
#include "ipfwnft/KernelTable.h"

namespace ipfwnft {

// The tables as ipfw-enforcer serves them to ipfw: changes through libnftables, the rules
// of a chain from what the kernel announced while the enforcer watched, so that a delete
// is one transaction of nft instead of listings that read the whole ruleset; listed by nft
// where the announcements do not cover the chain.
class WatchedTable : public KernelTable {
public:
    WatchedTable(KernelTable& nft, RulesetWatch& watch) : nft_(nft), watch_(watch) {}

    ipfwsim::Status apply(const std::string& script) override { return nft_.apply(script); }
    ipfwsim::Status listChain(const std::string& table, const std::string& chain,
                              std::vector<KernelRule>& rules) override {
        return watch_.listChain(table, chain, rules) ? ipfwsim::Status::success()
                                                     : nft_.listChain(table, chain, rules);
    }

private:
    KernelTable& nft_;
    RulesetWatch& watch_;
};

}  // namespace ipfwnft
