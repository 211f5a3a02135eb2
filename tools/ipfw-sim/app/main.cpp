// ipfw: a simulator of FreeBSD's ipfw(8) command for Linux. The rule state lives in
// $IPFW_SIM_STATE; see "ipfw help".

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "FileStateStore.h"
#include "StdConsole.h"
#include "SystemEnvironment.h"
#include "ipfwsim/Simulator.h"

int main(int argc, char** argv) {
    using namespace ipfwsim;
    // A reader that closed the pipe early must not kill us in the middle of a rewrite.
    std::signal(SIGPIPE, SIG_IGN);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    StdConsole console;
    std::unique_ptr<SystemEnvironment> environment;
    Status status = SystemEnvironment::create(environment);
    if (!status.ok()) {
        console.err("ipfw: " + status.message + "\n");
        return status.code;
    }
    const char* path = std::getenv("IPFW_SIM_STATE");
    FileStateStore store(path != nullptr && *path != '\0' ? path : "/var/db/ipfw-sim/rules",
                         Simulator::changesState(arguments));
    return Simulator(*environment, store, console).run(arguments);
}
