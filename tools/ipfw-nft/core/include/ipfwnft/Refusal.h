#pragma once

#include <string>

#include "ipfwsim/Status.h"

namespace ipfwnft {

// A rule that nftables cannot enforce exactly is refused as the kernel refuses a rule it
// cannot load: EX_UNAVAILABLE, so that the plug-in reports "ipfw refused the rule".
constexpr int kExitNotEnforceable = ipfwsim::kExitUnavailable;

inline ipfwsim::Status notEnforceable(const std::string& what, const std::string& why) {
    return ipfwsim::Status::failure(kExitNotEnforceable,
                                    "rule cannot be enforced: " + what + " (" + why + ")");
}

}  // namespace ipfwnft
