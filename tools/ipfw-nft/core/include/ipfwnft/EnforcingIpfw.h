#pragma once

#include <string>
#include <vector>

#include "ipfwnft/TableApplier.h"
#include "ipfwsim/Console.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/StateStore.h"

namespace ipfwnft {

// The simulator's ipfw command, unchanged in what it parses, stores, lists and prints,
// with the kernel's table kept in step: a rule nftables cannot enforce is refused before
// it is stored, and after every change of the rules or sets the table is replaced. When
// the table cannot be replaced, the change is undone, so state and kernel never differ.
class EnforcingIpfw {
public:
    EnforcingIpfw(ipfwsim::Environment& env, ipfwsim::StateStore& store, ipfwsim::Console& console,
                  TableApplier& applier);

    // `arguments` excludes the program name. Returns the exit code.
    int run(const std::vector<std::string>& arguments);

    // Whether the command can change which rules are enforced.
    static bool reprograms(const std::vector<std::string>& arguments);

private:
    ipfwsim::Status refuseUnenforceable(const std::vector<std::string>& arguments) const;
    ipfwsim::Status reprogram();

    ipfwsim::Environment& env_;
    ipfwsim::StateStore& store_;
    ipfwsim::Console& console_;
    TableApplier& applier_;
};

}  // namespace ipfwnft
