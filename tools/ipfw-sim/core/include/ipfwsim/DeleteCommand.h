#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwsim/CommandContext.h"

namespace ipfwsim {

// The operands of "ipfw delete N|N-M ...": like the real command, the words up to the
// first one that is not a number.
std::vector<std::string> deleteOperands(std::vector<std::string> words);

// "N" or "N-M" as the bounds of the user rules it covers; false when it covers none.
bool userRuleRange(const std::string& word, uint32_t& low, uint32_t& high);

// "ipfw delete [set] N|N-M ..." and "ipfw flush". Deleting a rule also drops the
// dynamic entries it created; the default rule and the disabled-set mask survive.
class DeleteCommand {
public:
    explicit DeleteCommand(const CommandContext& context) : context_(context) {}
    int runDelete(std::vector<std::string> words);
    int runFlush();

private:
    // Deletes by number without rewriting the state: each deleted line becomes a
    // tombstone in place, so that a delete costs the same however many rules there are.
    // False, with nothing done, when a kept flow belongs to a rule in the ranges: its
    // entry has to leave the header too.
    bool deleteInPlace(const std::vector<std::string>& words, int& exitCode);
    size_t deleteSet(const std::string& word, FirewallState& state) const;
    size_t deleteNumbers(const std::string& word, FirewallState& state) const;
    bool confirmFlush() const;

    const CommandContext& context_;
};

}  // namespace ipfwsim
