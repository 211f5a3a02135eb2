// ipfw: a simulator of FreeBSD's ipfw(8) command for Linux. The rule state lives in
// $IPFW_SIM_STATE; see "ipfw help". Run under the name sysctl or killall (the build
// links those names to this binary), it answers as those FreeBSD commands do for the
// firewall's kernel variables and syslogd.

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FileStateStore.h"
#include "StdConsole.h"
#include "SystemEnvironment.h"
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
    return Simulator(*environment, store, console).run(arguments);
}

int runSysctl(const Arguments& arguments) {
    StdConsole console;
    FileStateStore store(statePath(), Sysctl::changesState(arguments));
    return Sysctl(store, console).run(arguments);
}

int runKillall(const Arguments& arguments) {
    StdConsole console;
    return Killall(console).run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that closed the pipe early must not kill us in the middle of a rewrite.
    std::signal(SIGPIPE, SIG_IGN);
    const Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    const std::string program = programName(argc > 0 ? argv[0] : nullptr);
    if (program == "sysctl") {
        return runSysctl(arguments);
    }
    if (program == "killall") {
        return runKillall(arguments);
    }
    return runIpfw(arguments);
}
