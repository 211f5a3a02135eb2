// The memory of qvfwd: a daemon of its own in a scratch world whose configuration holds
// `--rules N` normal rules (installed at start-up through the simulated ipfw, one command
// per rule, as on a workstation), its peak resident size once started beside the size of
// the configuration file, then the growth of its resident size while `--events M` events
// go through its host-service socket as the plug-in sends them (command 65567, one
// EventLogItemFw per frame, one connection). Writes the figures as JSON to `--out`.
//
// usage: QvfwdMemory [--rules N] [--events M] [--out PATH]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BenchConfiguration.h"
#include "BenchFiles.h"
#include "VelaEventLogMsg.pb.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kMiB = 1024.0 * 1024.0;
// The kept-events ring holds 1,000 events; these many first fill it and warm the
// allocator, so that what follows measures growth and not the ring's own size.
constexpr int kWarmUpEvents = 2000;
// Resident growth under this much over the measured events counts as none: the
// allocator's arenas move by a few pages without anything being kept.
constexpr double kGrowthToleranceMiB = 1.0;
constexpr double kTargetPeakMiB = 64.0;

struct Options {
    int rules = 10000;
    int events = 100000;
    std::string out = "memory.json";
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

// The scratch world: configuration, logs, sockets and the simulator's state.
class World {
public:
    explicit World(int rules) {
        for (const char* name : {"conf", "log", "run", "ipfw"}) {
            mkdir(m_dir.file(name).c_str(), 0755);
        }
        qvbench::writeWhole(m_dir.file("syslog.conf"), "");
        WriteConfiguration(rules);
    }

    std::string file(const std::string& name) const { return m_dir.file(name); }
    std::string configPath() const { return file("conf/QvFw.conf.plist"); }
    std::string serviceSocket() const { return file("run/host.sock"); }
    std::string controlSocket() const { return file("run/qvfw.sock"); }

    std::vector<std::string> Environment() const {
        const char* path = getenv("PATH");
        return {
            "PATH=" + std::string(QV_SIM_DIR) + ":" + (path != nullptr ? path : "/usr/bin:/bin"),
            "QV_CONF_DIR=" + file("conf"),
            "QV_LOG_DIR=" + file("log"),
            "IPFW_SIM_STATE=" + file("ipfw/rules"),
            "IPFW_SIM_SYSLOG_CONF=" + file("syslog.conf"),
            "TZ=UTC"};
    }

private:
    void WriteConfiguration(int rules) const {
        qvbench::writeBenchConfiguration(configPath(), rules, file("log/ipfw.log"),
                                         file("syslog.conf"));
    }

    qvbench::ScratchDir m_dir;
};

pid_t SpawnDaemon(const World& world, const std::string& logFile) {
    std::vector<std::string> env = world.Environment();
    std::vector<char*> envp;
    for (std::string& entry : env) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    std::string program = QV_QVFWD_PATH;
    std::string control = "--control=" + world.controlSocket();
    std::string service = "--service=" + world.serviceSocket();
    char* argv[] = {program.data(), control.data(), service.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, envp.data()) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// The daemon logs "started:" once the plug-in is initialized, every stored rule installed.
bool WaitStarted(pid_t pid, const std::string& logFile, double seconds) {
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < deadline) {
        if (qvbench::readWhole(logFile).find("started:") != std::string::npos) {
            return true;
        }
        if (waitpid(pid, nullptr, WNOHANG) == pid) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

// A field of /proc/PID/status in kB ("VmHWM", "VmRSS"), -1 when absent.
long StatusKb(pid_t pid, const char* field) {
    const std::string text = qvbench::readWhole("/proc/" + std::to_string(pid) + "/status");
    const std::string key = std::string("\n") + field + ":";
    const size_t at = text.find(key);
    return at == std::string::npos ? -1 : std::strtol(text.c_str() + at + key.size(), nullptr, 10);
}

double Mib(long kb) {
    return static_cast<double>(kb) * 1024.0 / kMiB;
}

int Connect(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool SendAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

bool ReadAll(int fd, char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t got = recv(fd, data + done, size - done, 0);
        if (got <= 0) {
            return false;
        }
        done += static_cast<size_t>(got);
    }
    return true;
}

void PutLittleEndian32(uint32_t value, std::string* out) {
    for (int shift = 0; shift < 32; shift += 8) {
        out->push_back(static_cast<char>((value >> shift) & 0xffu));
    }
}

// One event as the watcher makes it from a kernel line; each one different.
std::string EventFrame(int sequence) {
    qor::vela::EventLogItemFw event;
    event.set_id(sequence);
    event.set_time(1700000000 + sequence);
    event.set_rule_index(3100 + 10 * (sequence % 1000));
    event.set_detail(
        "Nov 23 12:00:00 host kernel: ipfw: " + std::to_string(3100 + sequence % 1000) +
        " Deny TCP 10.0." + std::to_string(sequence % 250) +
        ".9:" + std::to_string(1024 + sequence % 60000) + " 10.0.0.2:22 in via en0");
    std::string payload;
    event.SerializeToString(&payload);
    std::string frame;
    PutLittleEndian32(65567u, &frame);
    PutLittleEndian32(static_cast<uint32_t>(payload.size()), &frame);
    return frame + payload;
}

// Sends events [first, first + count) over `fd`, each answered before the next, as the
// plug-in's calls are. False when the exchange broke off or a reply was not success.
bool SendEvents(int fd, int first, int count) {
    for (int i = first; i < first + count; ++i) {
        char reply[8];
        if (!SendAll(fd, EventFrame(i)) || !ReadAll(fd, reply, sizeof reply)) {
            return false;
        }
        // Code 0 and no payload: all eight bytes zero.
        if (std::memcmp(reply, "\0\0\0\0\0\0\0\0", sizeof reply) != 0) {
            return false;
        }
    }
    return true;
}

struct Figures {
    double startSeconds = 0;
    long peakAfterStartKb = -1;
    long rssBeforeKb = -1;
    long rssAfterKb = -1;
    long peakKb = -1;
    double eventSeconds = 0;
    bool eventsOk = false;
};

bool Measure(const Options& options, const World& world, pid_t pid, Figures* figures) {
    const auto started = Clock::now();
    if (!WaitStarted(pid, world.file("qvfwd.log"), 3600)) {
        std::fprintf(stderr, "QvfwdMemory: qvfwd did not start:\n%s\n",
                     qvbench::readWhole(world.file("qvfwd.log")).c_str());
        return false;
    }
    figures->startSeconds = std::chrono::duration<double>(Clock::now() - started).count();
    figures->peakAfterStartKb = StatusKb(pid, "VmHWM");
    const int fd = Connect(world.serviceSocket());
    if (fd < 0 || !SendEvents(fd, 0, kWarmUpEvents)) {
        std::fprintf(stderr, "QvfwdMemory: the host-service socket did not answer\n");
        return false;
    }
    figures->rssBeforeKb = StatusKb(pid, "VmRSS");
    const auto sending = Clock::now();
    figures->eventsOk = SendEvents(fd, kWarmUpEvents, options.events);
    figures->eventSeconds = std::chrono::duration<double>(Clock::now() - sending).count();
    figures->rssAfterKb = StatusKb(pid, "VmRSS");
    figures->peakKb = StatusKb(pid, "VmHWM");
    close(fd);
    return figures->eventsOk;
}

void WriteJson(const Options& options, const World& world, const Figures& f, bool ok) {
    struct stat info {};
    stat(world.configPath().c_str(), &info);
    const double peak = Mib(f.peakKb);
    const double growth = Mib(f.rssAfterKb - f.rssBeforeKb);
    const bool holds = ok && peak < kTargetPeakMiB && growth < kGrowthToleranceMiB;
    char note[512];
    std::snprintf(note, sizeof note,
                  "%d rules, start-up %.0f s; peak %.1f MiB after start-up; RSS %.1f -> %.1f MiB "
                  "over %d events (+%.2f MiB, %.0f events/s)",
                  options.rules, f.startSeconds, Mib(f.peakAfterStartKb), Mib(f.rssBeforeKb),
                  Mib(f.rssAfterKb), options.events, growth,
                  f.eventSeconds > 0 ? options.events / f.eventSeconds : 0.0);
    FILE* out = std::fopen(options.out.c_str(), "w");
    if (out == nullptr) {
        return;
    }
    std::fprintf(out,
                 "{\n  \"rules\": %d,\n  \"events\": %d,\n  \"peak_rss_mib\": %.3f,\n"
                 "  \"peak_after_start_mib\": %.3f,\n  \"config_mib\": %.3f,\n"
                 "  \"rss_before_events_mib\": %.3f,\n  \"rss_after_events_mib\": %.3f,\n"
                 "  \"growth_mib\": %.3f,\n  \"start_seconds\": %.1f,\n  \"measured\": %s,\n"
                 "  \"holds\": %s,\n  \"note\": \"%s\"\n}\n",
                 options.rules, options.events, peak, Mib(f.peakAfterStartKb),
                 static_cast<double>(info.st_size) / kMiB, Mib(f.rssBeforeKb), Mib(f.rssAfterKb),
                 growth, f.startSeconds, ok ? "true" : "false", holds ? "true" : "false", note);
    std::fclose(out);
    std::printf("%s\n", note);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    World world(options.rules);
    const pid_t pid = SpawnDaemon(world, world.file("qvfwd.log"));
    if (pid <= 0) {
        std::fprintf(stderr, "QvfwdMemory: cannot start %s\n", QV_QVFWD_PATH);
        return 1;
    }
    Figures figures;
    const bool ok = Measure(options, world, pid, &figures);
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    WriteJson(options, world, figures, ok);
    return ok ? 0 : 1;
}
