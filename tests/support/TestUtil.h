// Small helpers every test directory shares: waiting against a deadline, timing, CPU use,
// counting and splitting text, log lines, property-list documents, and Unix stream
// sockets by path with a server on them.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace qvtest {

// True once `condition` holds, false if it still does not after `limit`; asked `every` so
// often.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds limit = std::chrono::seconds(10),
                       std::chrono::milliseconds every = std::chrono::milliseconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(every);
    }
    return true;
}

// Joins every thread of `threads` (a container or an array).
template <typename Threads>
void joinAll(Threads& threads) {
    for (std::thread& thread : threads) {
        thread.join();
    }
}

inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The CPU time process `pid` uses in the next `seconds`, in seconds (from /proc/PID/stat).
inline double cpuSecondsOver(pid_t pid, double seconds) {
    const auto ticks = [pid] {
        std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
        const std::string stat((std::istreambuf_iterator<char>(in)), {});
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));  // from field 3 on
        std::string skipped;
        for (int field = 3; field < 14; ++field) {
            fields >> skipped;
        }
        long user = 0;
        long system = 0;
        fields >> user >> system;
        return user + system;
    };
    const long before = ticks();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    return static_cast<double>(ticks() - before) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// How often `part` occurs in `text`, overlaps included.
inline size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

inline std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// True when `log` has a line of `level` ("<N>") that holds `text`, or ends with it.
inline bool hasLogLine(const std::string& log, int level, const std::string& text,
                       bool atEnd = false) {
    const std::string tag = "<" + std::to_string(level) + ">";
    for (const std::string& line : splitLines(log)) {
        const size_t at = line.rfind(text);
        if (line.find(tag) != std::string::npos && at != std::string::npos &&
            (!atEnd || at + text.size() == line.size())) {
            return true;
        }
    }
    return false;
}

// An XML property list document around `body`, which ends with its own line end.
inline std::string plistDocument(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           body + "</plist>\n";
}

inline sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    return address;
}

// Sends all of `bytes` on socket `fd`; false when it cannot.
inline bool sendAll(int fd, const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t sent = send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

// A Unix stream socket listening on `path`, or -1.
inline int listenUnix(const std::string& path, int backlog = 16) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = unixAddress(path);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd, backlog) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// `fd` connected to the socket at `path`; false (errno set) when it is not.
inline bool connectUnix(int fd, const std::string& path) {
    const sockaddr_un address = unixAddress(path);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// A Unix stream socket listening on `path` that serves one connection after the other
// with `serve` on a thread of its own, closing each after it, until it is destroyed.
class UnixServer {
public:
    UnixServer(const std::string& path, std::function<void(int)> serve)
        : m_listener(listenUnix(path)), m_serve(std::move(serve)), m_thread([this] {
              for (int connection; (connection = accept(m_listener, nullptr, nullptr)) >= 0;) {
                  m_serve(connection);
                  close(connection);
              }
          }) {}
    ~UnixServer() {
        shutdown(m_listener, SHUT_RDWR);  // accept fails from now on
        m_thread.join();
        close(m_listener);
    }
    UnixServer(const UnixServer&) = delete;
    UnixServer& operator=(const UnixServer&) = delete;
    bool listening() const { return m_listener >= 0; }

private:
    int m_listener;
    std::function<void(int)> m_serve;
    std::thread m_thread;
};

}  // namespace qvtest
