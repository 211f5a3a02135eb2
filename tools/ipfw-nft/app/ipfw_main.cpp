// ipfw for Linux: the simulator's command with nftables enforcing its rules (see
// EnforcingIpfw.h). Run as sysctl or killall (links beside it) it answers as the
// simulator does, on the same state file.
#include "EnforcerClient.h"
#include "FreeBsdTools.h"
#include "ipfwnft/EnforcingIpfw.h"

namespace {

int enforce(ipfwsim::Environment& environment, ipfwsim::StateStore& store,
            ipfwsim::Console& console, const std::vector<std::string>& arguments) {
    ipfwnft::EnforcerClient table;
    return ipfwnft::EnforcingIpfw(environment, store, console, table).run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    return ipfwsim::RunFreeBsdTool(argc, argv, enforce);
}
