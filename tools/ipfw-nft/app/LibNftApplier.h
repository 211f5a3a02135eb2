#pragma once

#include "ipfwnft/TableApplier.h"

namespace ipfwnft {

// Runs scripts through libnftables, the library behind nft(8): one buffer, one
// transaction.
class LibNftApplier : public TableApplier {
public:
    ipfwsim::Status apply(const std::string& script) override;
};

}  // namespace ipfwnft
