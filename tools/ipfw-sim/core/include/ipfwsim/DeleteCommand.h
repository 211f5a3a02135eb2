#pragma once

#include <string>
#include <vector>

#include "ipfwsim/CommandContext.h"

namespace ipfwsim {

// "ipfw delete [set] N|N-M ..." and "ipfw flush". Deleting a rule also drops the
// dynamic entries it created; the default rule and the disabled-set mask survive.
class DeleteCommand {
public:
    explicit DeleteCommand(const CommandContext& context) : context_(context) {}
    int runDelete(std::vector<std::string> words);
    int runFlush();

private:
    size_t deleteSet(const std::string& word, FirewallState& state) const;
    size_t deleteNumbers(const std::string& word, FirewallState& state) const;
    bool confirmFlush() const;

    const CommandContext& context_;
};

}  // namespace ipfwsim
