#pragma once

#include <cstdint>
#include <string>

namespace ipfwnft {

// The NFLOG group that logging rules send their packets to, read by ipfw-logd.
constexpr uint16_t kNflogGroup = 65;

// What a logging rule tells ipfw-logd in its NFLOG prefix: which rule (its number and
// its place among the rules sharing that number, so that logamount can be counted per
// rule), the pass, and the kernel's word for the action. "3100 0 in Deny".
struct LogTag {
    uint32_t number = 0;
    uint32_t ordinal = 0;
    bool outbound = false;
    std::string action;

    std::string format() const;
    static bool parse(const std::string& prefix, LogTag& tag);
};

}  // namespace ipfwnft
