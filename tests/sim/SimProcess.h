#pragma once

// Runs command lines through /bin/sh with the simulator first in PATH, as the plug-in
// does, each test with its own temporary state.

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "TempDir.h"

extern char** environ;

namespace simtest {

struct ShellResult {
    std::string out;
    std::string err;
    int exitCode = -1;
};

using qvtest::readFile;
using qvtest::TempDir;
using qvtest::writeFile;

class Shell {
public:
    std::map<std::string, std::string> env;

    explicit Shell(const std::string& dir) {
        env["PATH"] = std::string(QV_SIM_DIR) + ":/usr/bin:/bin";
        env["IPFW_SIM_STATE"] = dir + "/state/rules";
        env["IPFW_SIM_SYSLOG_CONF"] = dir + "/syslog.conf";
        env["IPFW_SIM_HOSTS"] = dir + "/hosts";
        env["IPFW_SIM_NOW"] = "1700000000";
        env["IPFW_SIM_HOSTNAME"] = "myhost";
        env["IPFW_SIM_ME"] = "10.0.0.2";
        env["TZ"] = "UTC";
        writeFile(dir + "/hosts", "127.0.0.1 localhost\n");
    }

    ShellResult run(const std::string& script) const {
        int outPipe[2];
        int errPipe[2];
        if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
            return {};
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        std::vector<std::string> entries;
        for (const auto& entry : env) {
            entries.push_back(entry.first + "=" + entry.second);
        }
        std::vector<char*> envp;
        for (std::string& entry : entries) {
            envp.push_back(entry.data());
        }
        envp.push_back(nullptr);
        std::string shell = "/bin/sh";
        std::string dashC = "-c";
        std::string body = script;
        char* argv[] = {shell.data(), dashC.data(), body.data(), nullptr};
        pid_t pid = -1;
        int spawned = posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, envp.data());
        posix_spawn_file_actions_destroy(&actions);
        close(outPipe[1]);
        close(errPipe[1]);
        ShellResult result;
        drain(outPipe[0], errPipe[0], result);
        close(outPipe[0]);
        close(errPipe[0]);
        int status = 0;
        if (spawned == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
            result.exitCode = WEXITSTATUS(status);
        }
        return result;
    }

private:
    static void drain(int outFd, int errFd, ShellResult& result) {
        pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
        int open = 2;
        while (open > 0 && poll(fds, 2, 30000) > 0) {
            for (pollfd& fd : fds) {
                if (fd.fd < 0 || fd.revents == 0) {
                    continue;
                }
                char buffer[4096];
                ssize_t n = read(fd.fd, buffer, sizeof(buffer));
                if (n <= 0) {
                    fd.fd = -1;
                    --open;
                } else {
                    (fd.fd == outFd ? result.out : result.err)
                        .append(buffer, static_cast<size_t>(n));
                }
            }
        }
    }
};

}  // namespace simtest
