#pragma once

#include <cstdint>
#include <string>

#include "ipfwsim/NameService.h"
#include "ipfwsim/Rule.h"

namespace ipfwsim {

struct Counters {
    uint64_t packets = 0;
    uint64_t bytes = 0;
};

// How one listing line looks: "ipfw list" has no counters, "ipfw show" has both
// columns padded to the widest value, "-S" adds the set and reveals disabled sets.
struct ListingStyle {
    bool counters = false;
    int packetWidth = 1;
    int byteWidth = 1;
    bool sets = false;
    uint32_t disabledSets = 0;
};

// Prints rules in the command's canonical listing form.
class RuleLister {
public:
    explicit RuleLister(const NameService& names);

    // The text after the number (and counters and set): action, log, then the body
    // with "PROTO from SRC to DST" filled in where the rule left them out.
    std::string body(const Rule& rule) const;
    // A whole listing line with its newline; empty for a rule of a disabled set when
    // sets are not shown.
    std::string line(const Rule& rule, const Counters& counters, const ListingStyle& style) const;

private:
    std::string actionText(const Rule& rule) const;
    std::string conditionText(const Match& match, int& flags) const;
    std::string protocolText(uint32_t number) const;

    const NameService& names_;
};

int decimalWidth(uint64_t value);

}  // namespace ipfwsim
