#pragma once

#include <string>

#include "ipfwsim/Status.h"

namespace ipfwnft {

// The seam to the kernel's packet filter: runs one nftables script as one transaction.
class TableApplier {
public:
    virtual ~TableApplier() = default;
    virtual ipfwsim::Status apply(const std::string& script) = 0;
};

}  // namespace ipfwnft
