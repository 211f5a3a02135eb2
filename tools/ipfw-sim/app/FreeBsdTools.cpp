#include "FreeBsdTools.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "ipfwsim/Killall.h"
#include "ipfwsim/Simulator.h"
#include "ipfwsim/Sysctl.h"

namespace ipfwsim {

namespace {

using Arguments = std::vector<std::string>;

std::string programName(const char* argv0) {
    const std::string path = argv0 != nullptr ? argv0 : "ipfw";
    return path.substr(path.rfind('/') + 1);
}

int runIpfw(const Arguments& arguments, IpfwRunner runner) {
    StdConsole console;
    std::unique_ptr<SystemEnvironment> environment;
    int lockSeconds = 0;
    Status status = SystemEnvironment::create(environment);
    if (status.ok()) {
        status = StateLockSeconds(lockSeconds);
    }
    if (!status.ok()) {
        console.err("ipfw: " + status.message + "\n");
        return status.code;
    }
    FileStateStore store(StatePath(), Simulator::changesState(arguments), lockSeconds);
    return runner(*environment, store, console, arguments);
}

int runSysctl(const Arguments& arguments) {
    StdConsole console;
    int lockSeconds = 0;
    Status status = StateLockSeconds(lockSeconds);
    if (!status.ok()) {
        console.err("sysctl: " + status.message + "\n");
        return status.code;
    }
    FileStateStore store(StatePath(), Sysctl::changesState(arguments), lockSeconds);
    return Sysctl(store, console).run(arguments);
}

int runKillall(const Arguments& arguments) {
    StdConsole console;
    return Killall(console).run(arguments);
}

}  // namespace

std::string StatePath() {
    const char* path = std::getenv("IPFW_SIM_STATE");
    return path != nullptr && *path != '\0' ? path : QV_IPFW_STATE_DEFAULT;
}

Status StateLockSeconds(int& seconds) {
    seconds = FileStateStore::kDefaultLockSeconds;
    const char* text = std::getenv("IPFW_SIM_LOCK_SECONDS");
    if (text == nullptr || *text == '\0') {
        return Status::success();
    }
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < 0 || value > 86400) {
        return Status::failure(
            kExitUsage, std::string("IPFW_SIM_LOCK_SECONDS: malformed value ``") + text + "''");
    }
    seconds = static_cast<int>(value);
    return Status::success();
}

int RunFreeBsdTool(int argc, char** argv, IpfwRunner runIpfwWith) {
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
    return runIpfw(arguments, runIpfwWith);
}

}  // namespace ipfwsim
