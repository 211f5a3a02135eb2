#include "DaemonSandbox.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

extern char** environ;

namespace qvdaemontest {

namespace {

using qvtest::readFile;
using qvtest::writeFile;

// A process of /bin/sh -c `commandLine` with `env`, its standard streams on files.
pid_t SpawnShell(const std::string& commandLine, const std::map<std::string, std::string>& env,
                 const std::string& in, const std::string& out, const std::string& err) {
    std::vector<std::string> entries;
    for (const auto& [name, value] : env) {
        entries.push_back(name + "=" + value);
    }
    std::vector<char*> envp;
    for (std::string& entry : entries) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    std::string shell = "/bin/sh";
    std::string dashC = "-c";
    std::string line = "exec " + commandLine;
    char* argv[] = {shell.data(), dashC.data(), line.data(), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, envp.data()) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

}  // namespace

DaemonSandbox::DaemonSandbox() {
    for (const char* directory : {"conf", "log", "run", "ipfw"}) {
        std::filesystem::create_directories(m_dir.file(directory));
    }
    m_env["PATH"] = std::string(QV_SIM_DIR) + ":" + QV_BUILD_DIR + "/bin:/usr/bin:/bin";
    m_env["QV_CONF_DIR"] = m_dir.file("conf");
    m_env["QV_LOG_DIR"] = m_dir.file("log");
    m_env["QV_CONTROL_SOCKET"] = controlSocket();
    m_env["QV_IPC_SOCKET"] = m_dir.file("run/host.sock");
    m_env["IPFW_SIM_STATE"] = m_dir.file("ipfw/rules");
    m_env["IPFW_SIM_SYSLOG_CONF"] = m_dir.file("syslog.conf");
    m_env["IPFW_SIM_HOSTS"] = m_dir.file("hosts");
    m_env["IPFW_SIM_ME"] = "10.0.0.2";
    m_env["TZ"] = "UTC";
    for (const char* passed : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
        if (const char* value = getenv(passed)) {
            m_env[passed] = value;
        }
    }
    writeFile(m_dir.file("hosts"), "127.0.0.1 localhost\n10.0.0.1 admin.example\n");
    writeFile(m_dir.file("syslog.conf"), "");
    WriteConfiguration();
}

DaemonSandbox::~DaemonSandbox() {
    if (m_daemon > 0) {
        StopDaemon(SIGKILL);
    }
}

void DaemonSandbox::WriteConfiguration() const {
    std::string text = readFile(std::string(QV_SOURCE_DIR) + "/host/qvfwd/dist/QvFw.conf.plist.in");
    for (const auto& [from, to] :
         {std::pair<std::string, std::string>{"@QV_FW_LOG_PATH@", m_dir.file("log/ipfw.log")},
          {"@QV_SYSLOG_CONF@", m_dir.file("syslog.conf")}}) {
        for (size_t at; (at = text.find(from)) != std::string::npos;) {
            text.replace(at, from.size(), to);
        }
    }
    writeFile(m_dir.file("conf/QvFw.conf.plist"), text);
}

void DaemonSandbox::RemoveConfiguration() const {
    std::filesystem::remove(m_dir.file("conf/QvFw.conf.plist"));
}

pid_t DaemonSandbox::SpawnDaemon(const std::string& extraArguments,
                                 const std::string& logFile) const {
    std::string line = std::string(QV_BUILD_DIR) + "/bin/qvfwd --control " + controlSocket() + " " +
                       extraArguments;
    return SpawnShell(line, m_env, "/dev/null", "/dev/null", logFile);
}

bool DaemonSandbox::StartDaemon(const std::string& extraArguments) {
    m_daemon = SpawnDaemon(extraArguments, file("qvfwd.log"));
    return m_daemon > 0 && WaitFor([this] { return Run("qvfwctl status").exitCode == 0; }, 30);
}

std::string DaemonSandbox::daemonLog() const {
    return readFile(file("qvfwd.log"));
}

int DaemonSandbox::StopDaemon(int signal) {
    if (m_daemon <= 0) {
        return -1;
    }
    kill(m_daemon, signal);
    int status = WaitExit(m_daemon, 30);
    m_daemon = -1;
    return status;
}

int DaemonSandbox::WaitExit(pid_t pid, double seconds) {
    int status = 0;
    pid_t done = 0;
    WaitFor([&] { return (done = waitpid(pid, &status, WNOHANG)) != 0; }, seconds);
    if (done != pid) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

RunResult DaemonSandbox::Run(const std::string& commandLine, const std::string& input) const {
    const std::string in = file("run.in");
    const std::string out = file("run.out");
    const std::string err = file("run.err");
    writeFile(in, input);
    writeFile(err, "");
    RunResult result;
    pid_t pid = SpawnShell(commandLine, m_env, in, out, err);
    if (pid > 0) {
        result.exitCode = WaitExit(pid, 60);
    }
    result.out = readFile(out);
    result.err = readFile(err);
    return result;
}

pid_t DaemonSandbox::Spawn(const std::string& commandLine, const std::string& outputFile) const {
    return SpawnShell(commandLine, m_env, "/dev/null", outputFile, outputFile + ".err");
}

}  // namespace qvdaemontest
