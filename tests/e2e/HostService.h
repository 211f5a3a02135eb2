// The host service as the plug-in sees it: a Unix stream socket that answers every call
// with code 0 and an empty reply, and keeps what it was sent. Stops on a pipe it polls,
// never on a time-out.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qvtest {

struct ServiceCall {
    uint32_t command = 0;
    std::string payload;
};

class HostService {
public:
    explicit HostService(const std::string& path) {
        m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        m_listening =
            pipe2(m_stop, O_CLOEXEC) == 0 &&
            bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            listen(m_listener, 64) == 0;
        if (m_listening) {
            m_thread = std::thread([this] { Serve(); });
        }
    }
    ~HostService() {
        if (m_listening) {
            ssize_t ignored = write(m_stop[1], "x", 1);
            (void)ignored;
            m_thread.join();
        }
        close(m_listener);
        close(m_stop[0]);
        close(m_stop[1]);
    }
    HostService(const HostService&) = delete;
    HostService& operator=(const HostService&) = delete;

    bool listening() const { return m_listening; }

    std::vector<ServiceCall> calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }
    size_t callCount() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls.size();
    }

private:
    void Serve() {
        for (;;) {
            pollfd fds[2] = {{m_stop[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
            if (poll(fds, 2, -1) < 0 || (fds[0].revents & POLLIN) != 0) {
                return;
            }
            const int connection = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection >= 0) {
                Answer(connection);
                close(connection);
            }
        }
    }

    static bool ReadAll(int fd, void* buffer, size_t size) {
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

    static uint32_t Le32(const unsigned char* bytes) {
        return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    }

    // One request frame, then the reply: code 0, no payload.
    void Answer(int connection) {
        unsigned char header[8];
        if (!ReadAll(connection, header, sizeof header)) {
            return;
        }
        ServiceCall call;
        call.command = Le32(header);
        call.payload.resize(Le32(header + 4));
        if (!ReadAll(connection, call.payload.data(), call.payload.size())) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_calls.push_back(call);
        }
        const unsigned char reply[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        ssize_t ignored = send(connection, reply, sizeof reply, MSG_NOSIGNAL);
        (void)ignored;
    }

    int m_listener = -1;
    int m_stop[2] = {-1, -1};
    bool m_listening = false;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::vector<ServiceCall> m_calls;
};

}  // namespace qvtest
