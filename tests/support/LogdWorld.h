// ipfw-logd under a burst, for the enforcement tests and benchmarks: in the caller's
// private network namespace (EnterPrivateNetwork first), a rule state and a log of its
// own, one logging deny rule for UDP to a port of 127.0.0.1, build/nft/ipfw-logd reading
// NFLOG, and a sender of UDP datagrams. Everything waits against a deadline.
#pragma once

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "DaemonSandbox.h"
#include "NetnsWorld.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace nfttest {

// What the log holds for the world's rule: packet lines, and the packets that the loss
// lines ("ipfw: lost N logged packets") count.
struct LogTally {
    long written = 0;
    long lost = 0;
};

class LogdWorld {
public:
    static constexpr int kRule = 3100;
    static constexpr int kPort = 9999;
    static constexpr int kMarkerPort = 9998;  // source port of the markers

    // `nftDir`: where ipfw and ipfw-logd were built.
    explicit LogdWorld(std::string nftDir) : m_nftDir(std::move(nftDir)) {
        qvtest::writeFile(m_dir.file("syslog.conf"), "!ipfw\n*.*\t" + logPath() + "\n!*\n");
    }
    ~LogdWorld() {
        if (m_logd > 0) {
            kill(m_logd, SIGCONT);
            kill(m_logd, SIGTERM);
            waitpid(m_logd, nullptr, 0);
        }
    }
    LogdWorld(const LogdWorld&) = delete;
    LogdWorld& operator=(const LogdWorld&) = delete;

    // Adds the rule and starts ipfw-logd with `arguments`; false with the reason.
    bool Start(const std::vector<std::string>& arguments, std::string& whyNot) {
        CommandResult added =
            Shell(variables() + " " + m_nftDir + "/ipfw -q add " + std::to_string(kRule) +
                  " set 19 deny log proto udp dst-port " + std::to_string(kPort));
        if (added.exitCode != 0) {
            whyNot = "ipfw add failed: " + added.output;
            return false;
        }
        m_logd = spawnLogd(arguments);
        if (!qvdaemontest::WaitFor(
                [&] { return LogdOutput().find("reading NFLOG") != std::string::npos; }, 20)) {
            whyNot = "ipfw-logd did not start: " + LogdOutput();
            return false;
        }
        return true;
    }

    // Holds ipfw-logd still (SIGSTOP) or lets it go on, to stand for a reader that fell
    // behind.
    void Pause() const { kill(m_logd, SIGSTOP); }
    void Resume() const { kill(m_logd, SIGCONT); }

    // Sends `count` one-byte datagrams to the rule's port in a raw loop; the number the
    // kernel took (the rule drops them at the output hook: EPERM, but logged).
    int SendBurst(int count) const {
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        const sockaddr_in to = Loopback(kPort);
        int sent = 0;
        for (int i = 0; i < count; ++i) {
            const ssize_t n =
                sendto(fd, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
            sent += n == 1 || errno == EPERM ? 1 : 0;
        }
        close(fd);
        return sent;
    }

    // Sends single datagrams from kMarkerPort until one shows in the log: the kernel
    // numbers packets in order, so every packet before a written marker is written or
    // counted lost by then. The markers sent (each a logged packet too), 0 on time-out.
    int SendMarkersUntilOneIsWritten(double seconds) const {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        const sockaddr_in from = Loopback(kMarkerPort);
        const sockaddr_in to = Loopback(kPort);
        bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from);
        int markers = 0;
        bool written = false;
        while (!written && std::chrono::steady_clock::now() < deadline) {
            sendto(fd, "m", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
            ++markers;
            written = qvdaemontest::WaitFor([&] { return markerWritten(); }, 1.0);
        }
        close(fd);
        return written ? markers : 0;
    }

    LogTally Tally() const {
        const std::string packetText = " ipfw: " + std::to_string(kRule) + " Deny UDP ";
        const std::string lostText = " ipfw: lost ";
        const std::string log = qvtest::readFile(logPath());
        LogTally tally;
        for (const std::string& line : qvtest::splitLines(log)) {
            if (line.find(packetText) != std::string::npos) {
                ++tally.written;
            } else if (const size_t lost = line.find(lostText); lost != std::string::npos) {
                tally.lost += std::atol(line.c_str() + lost + lostText.size());
            }
        }
        return tally;
    }

    std::string LogdOutput() const { return qvtest::readFile(m_dir.file("logd.txt")); }
    std::string Log() const { return qvtest::readFile(logPath()); }

private:
    std::string logPath() const { return m_dir.file("ipfw.log"); }

    std::string variables() const {
        return "IPFW_SIM_STATE=" + m_dir.file("rules") +
               " IPFW_SIM_SYSLOG_CONF=" + m_dir.file("syslog.conf");
    }

    bool markerWritten() const {
        return Log().find("127.0.0.1:" + std::to_string(kMarkerPort) + " ") != std::string::npos;
    }

    pid_t spawnLogd(const std::vector<std::string>& arguments) const {
        const std::string program = m_nftDir + "/ipfw-logd";
        const std::string output = m_dir.file("logd.txt");
        std::vector<std::string> words{program};
        words.insert(words.end(), arguments.begin(), arguments.end());
        const pid_t child = fork();
        if (child == 0) {
            setenv("IPFW_SIM_STATE", m_dir.file("rules").c_str(), 1);
            setenv("IPFW_SIM_SYSLOG_CONF", m_dir.file("syslog.conf").c_str(), 1);
            if (freopen(output.c_str(), "w", stderr) == nullptr) {
                _exit(127);
            }
            std::vector<char*> argv;
            for (std::string& word : words) {
                argv.push_back(word.data());
            }
            argv.push_back(nullptr);
            execv(program.c_str(), argv.data());
            _exit(127);
        }
        return child;
    }

    std::string m_nftDir;
    qvtest::TempDir m_dir;
    pid_t m_logd = -1;
};

}  // namespace nfttest
