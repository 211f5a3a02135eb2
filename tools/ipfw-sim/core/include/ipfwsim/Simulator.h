#pragma once

#include <string>
#include <vector>

#include "ipfwsim/Console.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/StateStore.h"

namespace ipfwsim {

// One invocation of the command: options, then the command word and its arguments.
class Simulator {
public:
    Simulator(Environment& env, StateStore& store, Console& console);

    // `arguments` excludes the program name. Returns the exit code.
    int run(const std::vector<std::string>& arguments);

    // Listing commands can share the state with each other; everything else changes it.
    static bool changesState(const std::vector<std::string>& arguments);
    static std::string helpText();

private:
    Environment& env_;
    StateStore& store_;
    Console& console_;
};

}  // namespace ipfwsim
