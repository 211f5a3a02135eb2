#pragma once

#include <string>

#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// "any", or six colon-separated hex groups with an optional "/len" or "&mask".
// The address is stored already masked.
Status parseMacAddressMask(const std::string& text, MacBytes& address, MacBytes& mask);
// Listing form: "any", "xx:xx:xx:xx:xx:xx", then "/len" or "&mask" when masked.
std::string formatMacAddressMask(const MacBytes& address, const MacBytes& mask);

}  // namespace ipfwsim
