#pragma once

#include "ipfwnft/KernelTable.h"

namespace ipfwnft {

// The table through libnftables, the library behind nft(8): one buffer, one transaction.
class LibNftTable : public KernelTable {
public:
    ipfwsim::Status apply(const std::string& script) override;
};

}  // namespace ipfwnft
