#pragma once

#include <string>

#include "ipfwsim/Diagnostics.h"

namespace ipfwsim {

// True when `word` equals `keyword` or is a leading part of it (the empty word included),
// as the real command's keyword test works. A partial match is accepted with the
// command's "DEPRECATED" warning.
bool matchesAbbreviated(const std::string& word, const char* keyword, Diagnostics& diagnostics);

}  // namespace ipfwsim
