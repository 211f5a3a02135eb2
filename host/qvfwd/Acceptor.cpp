#include "Acceptor.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
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
// How long accepting rests when no descriptor is left for the next connection: long
// enough not to spin on the pending one, short enough that clients barely notice.
constexpr int kDescriptorPauseMs = 100;

void LimitSendTime(int fd) {
    struct timeval limit {};
    limit.tv_sec = kSendTimeoutSeconds;
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool OutOfDescriptors(int code) {
    return code == EMFILE || code == ENFILE || code == ENOBUFS || code == ENOMEM;
}

}  // namespace

bool Acceptor::Start(std::string* error) {
    int code = 0;
    if (!m_thread.Start([this] { Loop(); }, &code)) {
        *error = "cannot make the thread that accepts on the " + m_name + ": " + strerror(code);
        return false;
    }
    return true;
}

void Acceptor::Join() {
    m_thread.Join();
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
            if (m_outOfDescriptors) {
                m_log("accepting again on the " + m_name);
                m_outOfDescriptors = false;
            }
            Admit(fd);
        } else if (OutOfDescriptors(errno)) {
            PauseForDescriptors(errno);
        }
    }
}

// The pending connection stays in the backlog, so the listening socket stays readable:
// without the pause the loop would spin on it until a descriptor is freed.
void Acceptor::PauseForDescriptors(int code) {
    if (!m_outOfDescriptors) {
        m_log("cannot accept on the " + m_name + ": " + strerror(code) + "; trying again every " +
              std::to_string(kDescriptorPauseMs) + " ms until descriptors are free");
        m_outOfDescriptors = true;
    }
    struct pollfd stop = {m_stop.fd(), POLLIN, 0};
    poll(&stop, 1, kDescriptorPauseMs);
}

void Acceptor::Admit(int fd) {
    if (!PeerMayConnect(fd)) {
        qvctl::FrameChannel(fd).Write(static_cast<uint32_t>(qvctl::kPeerRefused), "", 0);
        close(fd);
        return;
    }
    LimitSendTime(fd);
    int code = 0;
    switch (m_pool.Serve(fd, m_session, &code)) {
        case ConnectionPool::Admission::kServed:
            m_refusing = false;
            return;
        case ConnectionPool::Admission::kFull:
            Refuse(fd, "qvfwd already serves " + std::to_string(m_pool.limit()) +
                           " clients on its " + m_name + " (--max-clients)");
            return;
        case ConnectionPool::Admission::kNoThread:
            Refuse(fd, std::string("qvfwd cannot make a thread for another client on its ") +
                           m_name + ": " + strerror(code));
            return;
    }
}

// The client learns why in its reply; the log says it once per run of refusals, which
// ends with the next connection served.
void Acceptor::Refuse(int fd, const std::string& why) {
    qvctl::FrameChannel(fd).Write(static_cast<uint32_t>(qvctl::kDaemonBusy), why);
    close(fd);
    if (!m_refusing) {
        m_log("refusing clients: " + why);
        m_refusing = true;
    }
}

}  // namespace qvfwd
