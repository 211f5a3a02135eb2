#pragma once

#include <string>

#include "ipfwsim/Status.h"

namespace ipfwnft {

// The seam to the kernel's packet filter and the one table this back end owns.
class KernelTable {
public:
    virtual ~KernelTable() = default;
    // Runs one nftables script as one transaction.
    virtual ipfwsim::Status apply(const std::string& script) = 0;
};

}  // namespace ipfwnft
