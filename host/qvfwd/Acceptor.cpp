#include "Acceptor.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "FrameChannel.h"
#include "PeerCredentials.h"
#include "QvControl.h"

namespace qvfwd {

namespace {

// A client that stops reading must not hold a session thread (and shutdown) forever.
constexpr int kSendTimeoutSeconds = 10;

void LimitSendTime(int fd) {
    struct timeval limit {};
    limit.tv_sec = kSendTimeoutSeconds;
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace

void Acceptor::Start() {
    m_thread = std::thread([this] { Loop(); });
}

void Acceptor::Join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

bool Acceptor::WaitForConnection() {
    struct pollfd waits[2] = {{m_listenFd, POLLIN, 0}, {m_stop.fd(), POLLIN, 0}};
    for (;;) {
        int ready = poll(waits, 2, -1);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        return ready > 0 && waits[1].revents == 0;
    }
}

void Acceptor::Loop() {
    while (WaitForConnection()) {
        int fd = accept(m_listenFd, nullptr, nullptr);
        if (fd >= 0) {
            Admit(fd);
        }
    }
}

void Acceptor::Admit(int fd) {
    if (!PeerMayConnect(fd)) {
        qvctl::FrameChannel(fd).Write(static_cast<uint32_t>(qvctl::kPeerRefused), "", 0);
        close(fd);
        return;
    }
    LimitSendTime(fd);
    m_pool.Serve(fd, m_session);
}

}  // namespace qvfwd
