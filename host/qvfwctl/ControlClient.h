// qvfwctl's connection to qvfwd's control socket: calls (one request, one reply) and the
// event stream. Connects on first use and keeps the connection for later calls; talks
// only to a socket that root or its own user serves.
#pragma once

#include <stdint.h>

#include <string>

#include "FrameChannel.h"

namespace qvctl {

class ControlClient {
public:
    explicit ControlClient(std::string socketPath) : m_path(std::move(socketPath)) {}
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    // True when a reply came, with its code and payload. False when the daemon cannot
    // be reached or the exchange broke off; error() says which and what to do.
    bool Call(uint32_t command, const std::string& request, int32_t* code, std::string* reply);

    // Starts the event stream; `backlog` kept events come first; `flags`: StreamFlags
    // (QvControl.h). False as for Call.
    bool OpenStream(uint32_t backlog, uint32_t flags, uint32_t* backlogCount);
    // The next frame of the stream (no time limit).
    FrameStatus NextFrame(Frame* frame);

    const std::string& error() const { return m_error; }
    bool unreachable() const { return m_unreachable; }

private:
    bool Connect();
    // False (and the connection closed) unless root or this user serves the socket.
    bool ListenerTrusted();

    std::string m_path;
    int m_fd = -1;
    std::string m_error;
    bool m_unreachable = false;
};

}  // namespace qvctl
