#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwsim/Status.h"

namespace ipfwnft {

// A rule as the kernel lists it: its handle and its text.
struct KernelRule {
    uint64_t handle = 0;
    std::string text;
};

// The seam to the kernel's packet filter and the one table this back end owns.
class KernelTable {
public:
    virtual ~KernelTable() = default;
    // Runs one nftables script as one transaction. A failure whose outcome is unknown
    // (the answer was lost: the kernel may have taken the change) carries kExitIoErr.
    virtual ipfwsim::Status apply(const std::string& script) = 0;
    // The rules of one chain ("inet ipfw_s0", "rules_in") with their handles.
    virtual ipfwsim::Status listChain(const std::string& table, const std::string& chain,
                                      std::vector<KernelRule>& rules) = 0;
};

}  // namespace ipfwnft
