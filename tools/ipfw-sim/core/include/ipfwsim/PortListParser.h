#pragma once

#include <cstdint>
#include <string>

#include "ipfwsim/Diagnostics.h"
#include "ipfwsim/NameService.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// A list of ports and ranges as the real command reads it: "80,8000-8080,http", numbers in
// any base strtol accepts, service names looked up for the rule's protocol.
class PortListParser {
public:
    PortListParser(const NameService& names, Diagnostics& diagnostics)
        : names_(names), diagnostics_(diagnostics) {}

    // Appends the ranges to `match.ports`; `valid` is false when the text is no port list
    // (the real command then goes on or complains, depending on where the list stood).
    // `protocol`: the rule's protocol so far, 0 for none.
    Status parse(const std::string& text, uint8_t protocol, Match& match, bool& valid) const;

private:
    bool value(const std::string& text, size_t start, uint8_t protocol, size_t& end,
               uint16_t& port) const;

    const NameService& names_;
    Diagnostics& diagnostics_;
};

}  // namespace ipfwsim
