#pragma once

#include "ipfwsim/StateFile.h"
#include "ipfwsim/StateStore.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// The kernel's switches, kept in the state header. Both "ipfw enable|disable verbose"
// and "sysctl net.inet.ip.fw.verbose=N" go through here, as on FreeBSD both end in the
// same kernel variable.

// Reads only the header, so a large rule set costs nothing to ask.
Status loadHeader(StateStore& store, StateHeader& header);
Status readVerbose(StateStore& store, bool& verbose);
Status writeVerbose(StateStore& store, bool verbose);

}  // namespace ipfwsim
