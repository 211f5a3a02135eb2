#include "RuleCounters.h"

#include <sstream>

namespace qvctl {

std::map<uint32_t, RuleCounters> ParseIpfwShow(const std::string& listing) {
    std::map<uint32_t, RuleCounters> counters;
    std::istringstream lines(listing);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        uint32_t number = 0;
        RuleCounters counted;
        // Digits only: a sign or a word in a counter column is not a listing line.
        if (line.empty() || !isdigit(static_cast<unsigned char>(line[0])) ||
            !(fields >> number >> counted.packets >> counted.bytes)) {
            continue;
        }
        RuleCounters& total = counters[number];
        total.packets += counted.packets;
        total.bytes += counted.bytes;
    }
    return counters;
}

}  // namespace qvctl
