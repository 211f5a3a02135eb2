#pragma once

#include <string>

#include "ipfwsim/FirewallState.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// The nftables family and name of the one table this back end owns.
constexpr const char* kTableName = "inet ipfw";

// A script that replaces table "inet ipfw" in one transaction with the rules of the
// enabled sets: chains hooked at input, output and forward, policy accept like ipfw's
// default rule 65535. Creating the table first makes the delete valid when none exists.
ipfwsim::Status compileTable(const ipfwsim::FirewallState& state, std::string& script);

// A script that removes the table, whether or not it exists.
std::string dropTableScript();

}  // namespace ipfwnft
