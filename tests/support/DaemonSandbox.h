// A qvfwd of its own for each test: a temporary state directory with a configuration
// file, the simulated ipfw first in PATH, and the daemon and qvfwctl run as real
// processes with that environment. Everything waits against a deadline.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "TempDir.h"
#include "TestUtil.h"

namespace qvdaemontest {

struct RunResult {
    std::string out;
    std::string err;
    int exitCode = -1;  // -1: killed or not run
};

// Polls `condition` every 20 ms until it holds or `seconds` have passed.
inline bool WaitFor(const std::function<bool()>& condition, double seconds) {
    return qvtest::eventually(condition,
                              std::chrono::milliseconds(static_cast<long>(seconds * 1000)),
                              std::chrono::milliseconds(20));
}

class DaemonSandbox {
public:
    DaemonSandbox();
    ~DaemonSandbox();
    DaemonSandbox(const DaemonSandbox&) = delete;
    DaemonSandbox& operator=(const DaemonSandbox&) = delete;

    // Starts qvfwd (with `extraArguments`) and waits until it answers. False (with its
    // log) if it does not.
    bool StartDaemon(const std::string& extraArguments = "");
    // Sends `signal` and waits for the exit; returns the exit status, -1 if it was killed
    // by a signal or did not end in time.
    int StopDaemon(int signal = SIGTERM);
    pid_t daemonPid() const { return m_daemon; }
    std::string daemonLog() const;

    // Runs a shell command line (qvfwctl, ipfw, ...) in the sandbox's environment.
    RunResult Run(const std::string& commandLine, const std::string& input = "") const;

    // Starts a command line in the background with its output going to `outputFile`.
    pid_t Spawn(const std::string& commandLine, const std::string& outputFile) const;
    // As Spawn, but without waiting for readiness: qvfwd with extra arguments.
    pid_t SpawnDaemon(const std::string& extraArguments, const std::string& logFile) const;

    // Waits for a spawned process; its exit status, or -1.
    static int WaitExit(pid_t pid, double seconds);

    std::string file(const std::string& name) const { return m_dir.file(name); }
    std::string controlSocket() const { return m_dir.file("run/qvfw.sock"); }
    const std::map<std::string, std::string>& env() const { return m_env; }
    void SetEnv(const std::string& name, const std::string& value) { m_env[name] = value; }
    void RemoveConfiguration() const;

private:
    void WriteConfiguration() const;

    qvtest::TempDir m_dir;
    std::map<std::string, std::string> m_env;
    pid_t m_daemon = -1;
};

}  // namespace qvdaemontest
