// The entry of the binaries that stand in for FreeBSD's firewall commands: run as
// sysctl or killall (links beside the binary) they answer as those commands do on the
// same state file; under any other name they are ipfw, with the back end the binary
// brings.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "FileStateStore.h"
#include "StdConsole.h"
#include "SystemEnvironment.h"

namespace ipfwsim {

// Runs one ipfw command line against the state with the binary's back end.
using IpfwRunner = int (*)(Environment& environment, StateStore& store, Console& console,
                           const std::vector<std::string>& arguments);

// $IPFW_SIM_STATE, else the state file fixed when building (QV_IPFW_STATE_DEFAULT).
std::string StatePath();

// How long a command waits for the state's lock: $IPFW_SIM_LOCK_SECONDS (whole seconds,
// 0 for not at all), else FileStateStore's default. A malformed value is an error.
Status StateLockSeconds(int& seconds);

// Dispatches on the name the binary was run as; the exit code.
int RunFreeBsdTool(int argc, char** argv, IpfwRunner runIpfw);

}  // namespace ipfwsim
