#pragma once

#include <string>
#include <vector>

#include "ipfwsim/CommandContext.h"

namespace ipfwsim {

// "ipfw set show|enable S..|disable S.." and the "ipfw enable|disable verbose" switch.
// Set 31 holds the default rule and silently stays enabled.
class SetCommand {
public:
    explicit SetCommand(const CommandContext& context) : context_(context) {}
    int runSet(const std::vector<std::string>& words);
    int runSwitch(const std::vector<std::string>& words, bool enable);

private:
    int show();
    int changeSets(const std::vector<std::string>& words, bool enableFirst);
    Status switchSets(uint32_t disable, uint32_t enable);

    const CommandContext& context_;
};

std::string setShowLine(uint32_t disabledSets);

}  // namespace ipfwsim
