#pragma once

#include <cstdint>
#include <string>

#include "ipfwsim/FirewallState.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// A script that replaces table "inet ipfw" in one transaction with all rules of the
// state, laid out as TableLayout.h says: base chains hooked at input, output and forward
// (a forwarded packet takes the in pass, then the out pass at a later priority), policy
// accept like ipfw's default rule 65535, and the enabled sets listed. Creating the table
// first makes the delete valid when none exists.
ipfwsim::Status compileTable(const ipfwsim::FirewallState& state, std::string& script);

// A script that removes the table, whether or not it exists.
std::string dropTableScript();

// "add element" or "delete element" lines for the sets whose switch differs.
std::string setSwitchScript(uint32_t disabledBefore, uint32_t disabledAfter);

}  // namespace ipfwnft
