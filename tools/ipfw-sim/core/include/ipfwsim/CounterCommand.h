#pragma once

#include <string>
#include <vector>

#include "ipfwsim/CommandContext.h"

namespace ipfwsim {

// "ipfw zero [N ...]" clears counters and log budgets; "ipfw resetlog [N ...]" only
// the log budgets.
class CounterCommand {
public:
    CounterCommand(const CommandContext& context, bool logOnly)
        : context_(context), logOnly_(logOnly) {}
    int run(const std::vector<std::string>& words);

private:
    void clear(StoredRule& stored) const;
    bool clearNumber(FirewallState& state, uint32_t number) const;

    const CommandContext& context_;
    bool logOnly_;
};

}  // namespace ipfwsim
