#pragma once

#include <string>
#include <string_view>

#include "ipfwsim/Rule.h"

namespace ipfwsim {

// The compiled rule as space-separated tokens for the state file, exact and free of
// the ambiguities of the listing form (which cannot always be read back).
// Number and set are kept by the caller, not in the tokens.
std::string encodeRule(const Rule& rule);
bool decodeRule(std::string_view text, Rule& rule);

}  // namespace ipfwsim
