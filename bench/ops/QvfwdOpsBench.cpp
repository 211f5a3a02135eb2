// What operating qvfwd costs, each figure beside its floor in the same run:
//  - event throughput with --events-file against the same daemon without it: N events
//    through the host-service socket as the plug-in sends them (one connection, each
//    answered before the next), until every one was answered and, with the file, written;
//  - `metrics` (the control socket's kMetrics) with --rules N stored rules;
//  - how late an expiring rule (add --for 2s) is deleted after its deadline.
// Writes the figures as JSON to --out.
//
// usage: QvfwdOpsBench [--rules N] [--events M] [--out PATH]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BenchConfiguration.h"
#include "BenchFiles.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "TestUtil.h"
#include "VelaEventLogMsg.pb.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 5;
constexpr int kExpirySeconds = 2;

struct Options {
    int rules = 10000;
    int events = 20000;
    std::string out = "ops.json";
};

Options ParseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--rules") {
            options.rules = std::stoi(argv[i + 1]);
        } else if (name == "--events") {
            options.events = std::stoi(argv[i + 1]);
        } else if (name == "--out") {
            options.out = argv[i + 1];
        }
    }
    return options;
}

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// A daemon of its own in a scratch world with `rules` stored rules.
class Daemon {
public:
    Daemon(int rules, bool eventsFile) {
        for (const char* name : {"conf", "log", "run", "ipfw"}) {
            mkdir(m_dir.file(name).c_str(), 0755);
        }
        qvbench::writeWhole(m_dir.file("syslog.conf"), "");
        qvbench::writeBenchConfiguration(m_dir.file("conf/QvFw.conf.plist"), rules,
                                         m_dir.file("log/ipfw.log"), m_dir.file("syslog.conf"));
        std::string line = std::string("exec ") + QV_QVFWD_PATH + " --control " + control() +
                           " --service " + service() +
                           (eventsFile ? " --events-file " + file("events.jsonl") : "") + " 2>" +
                           file("qvfwd.log");
        m_pid = Spawn(line);
    }
    ~Daemon() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }

    std::string file(const std::string& name) const { return m_dir.file(name); }
    std::string control() const { return file("run/qvfw.sock"); }
    std::string service() const { return file("run/host.sock"); }

    pid_t Spawn(const std::string& line) const {
        const char* path = getenv("PATH");
        std::vector<std::string> env = {
            "PATH=" + std::string(QV_SIM_DIR) + ":" + (path != nullptr ? path : "/usr/bin:/bin"),
            "QV_CONF_DIR=" + file("conf"),
            "QV_LOG_DIR=" + file("log"),
            "QV_CONTROL_SOCKET=" + control(),
            "IPFW_SIM_STATE=" + file("ipfw/rules"),
            "IPFW_SIM_SYSLOG_CONF=" + file("syslog.conf"),
            "TZ=UTC"};
        std::vector<char*> envp;
        for (std::string& entry : env) {
            envp.push_back(entry.data());
        }
        envp.push_back(nullptr);
        std::string shell = "/bin/sh";
        std::string dashC = "-c";
        std::string command = line;
        char* argv[] = {shell.data(), dashC.data(), command.data(), nullptr};
        pid_t pid = -1;
        if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv, envp.data()) != 0) {
            pid = -1;
        }
        return pid;
    }

    bool WaitStarted() const {
        const auto deadline = Clock::now() + std::chrono::seconds(3600);
        while (Clock::now() < deadline) {
            if (qvbench::readWhole(file("qvfwd.log")).find("started:") != std::string::npos) {
                return true;
            }
            if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

private:
    qvbench::ScratchDir m_dir;
    pid_t m_pid = -1;
};

int Connect(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && !qvtest::connectUnix(fd, path)) {
        close(fd);
        return -1;
    }
    return fd;
}

bool ReadAll(int fd, char* data, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t got = recv(fd, data + done, size - done, 0);
        if (got <= 0) {
            return false;
        }
        done += static_cast<size_t>(got);
    }
    return true;
}

std::string Frame(uint32_t head, const std::string& payload) {
    std::string frame;
    for (uint32_t value : {head, static_cast<uint32_t>(payload.size())}) {
        for (int shift = 0; shift < 32; shift += 8) {
            frame.push_back(static_cast<char>((value >> shift) & 0xffu));
        }
    }
    return frame + payload;
}

// One request and its reply's payload; false when the exchange broke off.
bool Exchange(int fd, uint32_t head, const std::string& payload, std::string* reply) {
    unsigned char header[8];
    if (!qvtest::sendAll(fd, Frame(head, payload)) ||
        !ReadAll(fd, reinterpret_cast<char*>(header), 8)) {
        return false;
    }
    const uint32_t length =
        header[4] | header[5] << 8 | header[6] << 16 | uint32_t(header[7]) << 24;
    reply->assign(length, '\0');
    return length == 0 || ReadAll(fd, &(*reply)[0], length);
}

std::string EventPayload(int sequence) {
    qor::vela::EventLogItemFw event;
    event.set_id(sequence);
    event.set_time(1700000000 + sequence);
    event.set_rule_index(3100 + 10 * (sequence % 100));
    event.set_detail(std::to_string(3100 + 10 * (sequence % 100)) + " Deny TCP 10.0." +
                     std::to_string(sequence % 250) +
                     ".9:" + std::to_string(1024 + sequence % 60000) + " 10.0.0.2:22 in via en0");
    return event.SerializeAsString();
}

size_t Lines(const std::string& path) {
    const std::string text = qvbench::readWhole(path);
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Seconds for `events` events through a daemon, with or without the events file.
double EventSeconds(int events, bool withFile) {
    Daemon daemon(0, withFile);
    const std::string eventsPath = daemon.file("events.jsonl");
    if (!daemon.WaitStarted()) {
        return -1;
    }
    const int fd = Connect(daemon.service());
    std::vector<std::string> payloads;
    for (int i = 0; i < events; ++i) {
        payloads.push_back(EventPayload(i));
    }
    std::string reply;
    const auto start = Clock::now();
    for (const std::string& payload : payloads) {
        if (!Exchange(fd, 65567u, payload, &reply)) {
            close(fd);
            return -1;
        }
    }
    const double sent = Seconds(start);
    while (withFile && Lines(eventsPath) < static_cast<size_t>(events)) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        if (Seconds(start) > 120) {
            close(fd);
            return -1;
        }
    }
    const double seconds = Seconds(start);
    std::fprintf(stderr, "%s: sent in %.3f s, written in %.3f s\n", withFile ? "file" : "none",
                 sent, seconds);
    close(fd);
    return seconds;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? -1 : values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    std::vector<double> without;
    std::vector<double> with;
    for (int round = 0; round < kRounds; ++round) {
        without.push_back(EventSeconds(options.events, false));
        with.push_back(EventSeconds(options.events, true));
    }

    // Expiry, on an empty daemon: how long after its deadline a rule is gone.
    double worstLateSeconds = -1;
    {
        Daemon daemon(0, false);
        if (daemon.WaitStarted()) {
            const int fd = Connect(daemon.control());
            for (int round = 0; round < kRounds; ++round) {
                const auto added = Clock::now();
                const pid_t ctl = daemon.Spawn(std::string("exec ") + QV_QVFWCTL_PATH +
                                               " add --for " + std::to_string(kExpirySeconds) +
                                               "s deny proto tcp dst-port 22 >/dev/null");
                waitpid(ctl, nullptr, 0);
                std::string rules = "x";
                while (Exchange(fd, QV_CMD_GET_ALL_RULES, "", &rules) && !rules.empty() &&
                       Seconds(added) < 30) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                }
                // The deadline was set after `added`, so this is at most the lateness.
                worstLateSeconds = std::max(worstLateSeconds, Seconds(added) - kExpirySeconds);
            }
            close(fd);
        }
    }

    // metrics with the stored rules.
    std::vector<double> metricsMs;
    double startSeconds = 0;
    {
        const auto starting = Clock::now();
        Daemon daemon(options.rules, false);
        if (daemon.WaitStarted()) {
            startSeconds = Seconds(starting);
            const int fd = Connect(daemon.control());
            std::string text;
            for (int i = 0; i < 200; ++i) {
                const auto start = Clock::now();
                if (!Exchange(fd, qvctl::kMetrics, "", &text)) {
                    break;
                }
                metricsMs.push_back(Seconds(start) * 1000);
            }
            close(fd);
        }
    }

    FILE* out = std::fopen(options.out.c_str(), "w");
    if (out == nullptr) {
        return 1;
    }
    std::fprintf(out,
                 "{\"events\": %d, \"events_seconds_without_file\": %.6f, "
                 "\"events_seconds_with_file\": %.6f, \"rules\": %d, \"metrics_ms\": %.6f, "
                 "\"start_seconds\": %.1f, \"expiry_late_seconds\": %.6f, \"expiry_after\": %d}\n",
                 options.events, Median(without), Median(with), options.rules, Median(metricsMs),
                 startSeconds, worstLateSeconds, kExpirySeconds);
    std::fclose(out);
    std::printf(
        "events %d: %.3f s without the file, %.3f s with it; metrics with %d rules "
        "%.3f ms; expiry at most %.3f s late\n",
        options.events, Median(without), Median(with), options.rules, Median(metricsMs),
        worstLateSeconds);
    return Median(without) > 0 && Median(with) > 0 && !metricsMs.empty() && worstLateSeconds >= 0
               ? 0
               : 1;
}
