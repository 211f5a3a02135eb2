#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwsim/Diagnostics.h"
#include "ipfwsim/NameService.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// Compiles the words of an "add" command into a rule the way the real command does:
// same grammar, same order of checks, same messages and exit codes. Host names are
// resolved here, at add time (AddressListParser), ports and services by
// PortListParser; every parse keeps its own state.
class RuleParser {
public:
    RuleParser(const NameService& names, Diagnostics& diagnostics)
        : names_(names), diagnostics_(diagnostics) {}

    // `requestedNumber` is 0 for automatic numbering; it is not range-checked here
    // because the real command only learns that from the kernel after parsing.
    Status parse(const std::vector<std::string>& words, Rule& rule,
                 uint64_t& requestedNumber) const;

private:
    const NameService& names_;
    Diagnostics& diagnostics_;
};

}  // namespace ipfwsim
