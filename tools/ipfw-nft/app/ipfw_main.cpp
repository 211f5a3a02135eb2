// ipfw for Linux: the simulator's command with nftables enforcing its rules (see
// EnforcingIpfw.h). Run as sysctl or killall (links beside it) it answers as the
// simulator does, on the same state file.

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FileStateStore.h"
#include "LibNftApplier.h"
#include "StdConsole.h"
#include "SystemEnvironment.h"
#include "ipfwnft/EnforcingIpfw.h"
#include "ipfwsim/Killall.h"
#include "ipfwsim/Simulator.h"
#include "ipfwsim/Sysctl.h"

namespace {

using namespace ipfwsim;
using Arguments = std::vector<std::string>;

std::string statePath() {
    const char* path = std::getenv("IPFW_SIM_STATE");
    return path != nullptr && *path != '\0' ? path : "/var/db/ipfw-sim/rules";
}

std::string programName(const char* argv0) {
    const std::string path = argv0 != nullptr ? argv0 : "ipfw";
    return path.substr(path.rfind('/') + 1);
}

int runIpfw(const Arguments& arguments) {
    StdConsole console;
    std::unique_ptr<SystemEnvironment> environment;
    Status status = SystemEnvironment::create(environment);
    if (!status.ok()) {
        console.err("ipfw: " + status.message + "\n");
        return status.code;
    }
    FileStateStore store(statePath(), Simulator::changesState(arguments));
    ipfwnft::LibNftApplier applier;
    return ipfwnft::EnforcingIpfw(*environment, store, console, applier).run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    const Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    const std::string program = programName(argc > 0 ? argv[0] : nullptr);
    if (program == "sysctl") {
        StdConsole console;
        FileStateStore store(statePath(), Sysctl::changesState(arguments));
        return Sysctl(store, console).run(arguments);
    }
    if (program == "killall") {
        StdConsole console;
        return Killall(console).run(arguments);
    }
    return runIpfw(arguments);
}
