// Reads the rules out of what `ipfw -S show` or `ipfw -S list` prints.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace qvtest {

struct IpfwRuleLine {
    int number = 0;
    int set = 0;
    bool disabled = false;  // the rule's set is disabled
    std::string body;       // the text after "set N "
};

inline std::vector<IpfwRuleLine> parseIpfwListing(const std::string& listing) {
    static const std::string kDisabled = "# DISABLED ";
    std::vector<IpfwRuleLine> rules;
    std::istringstream in(listing);
    for (std::string line; std::getline(in, line);) {
        IpfwRuleLine rule;
        if (line.rfind(kDisabled, 0) == 0) {
            rule.disabled = true;
            line.erase(0, kDisabled.size());
        }
        const size_t setAt = line.find(" set ");
        int consumed = 0;
        if (setAt == std::string::npos || sscanf(line.c_str(), "%d", &rule.number) != 1 ||
            sscanf(line.c_str() + setAt, " set %d %n", &rule.set, &consumed) != 1) {
            continue;
        }
        rule.body = line.substr(setAt + static_cast<size_t>(consumed));
        rules.push_back(rule);
    }
    return rules;
}

// The numbers of the listing's rules in `set`, in its order.
inline std::vector<uint32_t> numbersInSet(const std::string& listing, int set) {
    std::vector<uint32_t> numbers;
    for (const IpfwRuleLine& rule : parseIpfwListing(listing)) {
        if (rule.set == set) {
            numbers.push_back(static_cast<uint32_t>(rule.number));
        }
    }
    return numbers;
}

}  // namespace qvtest
