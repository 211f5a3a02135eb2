#pragma once

#include <string>

#include "ipfwsim/Diagnostics.h"
#include "ipfwsim/NameService.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// One address of a rule as the real command reads it: "any", "me", or a list of
// "host[/len|:mask]" elements, each a number or a host name resolved here.
class AddressListParser {
public:
    AddressListParser(const NameService& names, Diagnostics& diagnostics)
        : names_(names), diagnostics_(diagnostics) {}

    // Fills `match` (of `kind`, SrcAddr or DstAddr) and sets `emitted` when the address
    // compiles to a condition: "any", or an element masked to nothing, match anything and
    // compile to none. `negated`: a "not" stands before it ("not any" never matches).
    Status parse(const std::string& text, MatchKind kind, bool negated, bool& emitted,
                 Match& match) const;

private:
    Status parseElement(const std::string& text, size_t start, AddressMask& element,
                        size_t& next) const;

    const NameService& names_;
    Diagnostics& diagnostics_;
};

}  // namespace ipfwsim
