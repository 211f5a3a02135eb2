// The counters of "ipfw -S show" by rule number: each line starts with the number, the
// packets and the bytes; lines that do not are skipped.
#pragma once

#include <stdint.h>

#include <map>
#include <string>

namespace qvctl {

struct RuleCounters {
    uint64_t packets = 0;
    uint64_t bytes = 0;
};

// Lines of one number (ipfw may hold several rules under it) are added up.
std::map<uint32_t, RuleCounters> ParseIpfwShow(const std::string& listing);

}  // namespace qvctl
