// ipfw: a simulator of FreeBSD's ipfw(8) command for Linux. The rule state lives in
// $IPFW_SIM_STATE; see "ipfw help". Run under the name sysctl or killall (the build
// links those names to this binary), it answers as those FreeBSD commands do for the
// firewall's kernel variables and syslogd.
#include "FreeBsdTools.h"
#include "ipfwsim/Simulator.h"

namespace {

int simulate(ipfwsim::Environment& environment, ipfwsim::StateStore& store,
             ipfwsim::Console& console, const std::vector<std::string>& arguments) {
    return ipfwsim::Simulator(environment, store, console).run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    return ipfwsim::RunFreeBsdTool(argc, argv, simulate);
}
