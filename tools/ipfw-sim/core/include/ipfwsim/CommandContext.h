#pragma once

#include <string>

#include "ipfwsim/CommandLine.h"
#include "ipfwsim/Console.h"
#include "ipfwsim/Diagnostics.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/StateStore.h"

namespace ipfwsim {

// What every command works with, and the way it reports.
struct CommandContext {
    Environment& env;
    StateStore& store;
    Console& console;
    Options options;

    // "ipfw: TEXT" on standard error.
    void warn(const std::string& text) const;
    void warnAll(const Diagnostics& diagnostics) const;
    // Reports a failed status and returns its exit code.
    int fail(const Status& status) const;
    Status loadState(FirewallState& state) const;
    Status saveState(const FirewallState& state) const;
};

}  // namespace ipfwsim
