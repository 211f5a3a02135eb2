#pragma once

#include <string>
#include <vector>

#include "ipfwsim/CommandContext.h"

namespace ipfwsim {

// "ipfw add": compiles the rule, numbers it (last rule + 100 when no number is given)
// and stores it after every rule with the same number. A rule that keeps the stored
// order is appended; others go to the bounded overflow, merged by a rewrite when full.
class AddCommand {
public:
    explicit AddCommand(const CommandContext& context) : context_(context) {}
    int run(const std::vector<std::string>& words);

private:
    Status store(StoredRule& stored);
    void echo(const Rule& rule) const;

    const CommandContext& context_;
};

uint32_t automaticRuleNumber(uint32_t lastNumber);

}  // namespace ipfwsim
