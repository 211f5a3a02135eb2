// The host service as the plug-in sees it, for tests and benchmarks: a Unix stream socket
// that answers every request frame with code 0 and no payload, keeps a connection open
// for as many frames as the client sends on it, and keeps every call it received. One
// thread serves everything and stops on a pipe it polls, never on a time-out.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestUtil.h"

namespace qvtest {

struct ServiceCall {
    uint32_t command = 0;
    std::string payload;
};

class HostService {
public:
    explicit HostService(const std::string& path) {
        m_listener = listenUnix(path, 64);
        m_listening = m_listener >= 0 && pipe2(m_stop, O_CLOEXEC) == 0;
        if (m_listening) {
            m_thread = std::thread([this] { serve(); });
        }
    }
    ~HostService() {
        if (m_listening) {
            (void)!write(m_stop[1], "x", 1);
            m_thread.join();
        }
        for (int fd : {m_listener, m_stop[0], m_stop[1]}) {
            close(fd);
        }
    }
    HostService(const HostService&) = delete;
    HostService& operator=(const HostService&) = delete;

    bool listening() const { return m_listening; }
    size_t callCount() const { return m_count.load(); }
    size_t connections() const { return m_connections.load(); }
    std::vector<ServiceCall> calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.clear();
        m_count = 0;
    }

    // Reads one request frame (command, length, payload; little-endian) from `fd`.
    static bool readCall(int fd, ServiceCall* call) {
        unsigned char header[8];
        if (!readAll(fd, header, sizeof header)) {
            return false;
        }
        call->command = le32(header);
        call->payload.resize(le32(header + 4));
        return readAll(fd, call->payload.data(), call->payload.size());
    }

private:
    static bool readAll(int fd, void* buffer, size_t size) {
        char* at = static_cast<char*>(buffer);
        while (size > 0) {
            const ssize_t got = read(fd, at, size);
            if (got <= 0) {
                return false;
            }
            at += got;
            size -= static_cast<size_t>(got);
        }
        return true;
    }
    static uint32_t le32(const unsigned char* bytes) {
        return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    }

    // One thread serves the listener and every open connection with poll.
    void serve() {
        std::vector<pollfd> fds = {{m_stop[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
        for (;;) {
            if (poll(fds.data(), fds.size(), -1) < 0 || (fds[0].revents & POLLIN) != 0) {
                break;
            }
            if ((fds[1].revents & POLLIN) != 0) {
                const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (connection >= 0) {
                    fds.push_back({connection, POLLIN, 0});
                    ++m_connections;
                }
            }
            for (size_t i = 2; i < fds.size();) {
                if (fds[i].revents != 0 && !answer(fds[i].fd)) {
                    close(fds[i].fd);
                    fds.erase(fds.begin() + static_cast<long>(i));
                } else {
                    ++i;
                }
            }
        }
        for (size_t i = 2; i < fds.size(); ++i) {
            close(fds[i].fd);
        }
    }

    // One request frame and its reply; false when the client closed or broke the frame.
    bool answer(int connection) {
        ServiceCall call;
        if (!readCall(connection, &call)) {
            return false;
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_calls.push_back(std::move(call));
        }
        ++m_count;
        const unsigned char reply[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        return send(connection, reply, sizeof reply, MSG_NOSIGNAL) == sizeof reply;
    }

    int m_listener = -1;
    int m_stop[2] = {-1, -1};
    bool m_listening = false;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::vector<ServiceCall> m_calls;
    std::atomic<size_t> m_count{0};
    std::atomic<size_t> m_connections{0};
};

}  // namespace qvtest
