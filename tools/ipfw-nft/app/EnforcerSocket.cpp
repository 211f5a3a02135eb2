#include "EnforcerSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

#include "ipfwnft/EnforcerProtocol.h"

namespace ipfwnft {
namespace {

// The name of this process's user's enforcer.
socklen_t abstractAddress(sockaddr_un& address) {
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    const std::string name = enforcerSocketName(geteuid());
    std::memcpy(address.sun_path + 1, name.data(), name.size());  // sun_path[0] stays 0
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

}  // namespace

EnforcerSocket::~EnforcerSocket() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

EnforcerSocket::EnforcerSocket(int fd, int timeoutSeconds)
    : fd_(fd), timeoutSeconds_(timeoutSeconds) {
    // A peer that stops reading does not hold this end for longer either.
    const timeval limit{timeoutSeconds, 0};
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

EnforcerSocket::EnforcerSocket(EnforcerSocket&& other) noexcept
    : fd_(other.fd_), timeoutSeconds_(other.timeoutSeconds_) {
    other.fd_ = -1;
}

EnforcerSocket& EnforcerSocket::operator=(EnforcerSocket&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = other.fd_;
        timeoutSeconds_ = other.timeoutSeconds_;
        other.fd_ = -1;
    }
    return *this;
}

EnforcerSocket EnforcerSocket::connect(int timeoutSeconds) {
    EnforcerSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), timeoutSeconds);
    sockaddr_un address;
    const socklen_t length = abstractAddress(address);
    if (!socket.open() ||
        ::connect(socket.fd_, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        return EnforcerSocket();
    }
    return socket;
}

EnforcerSocket EnforcerSocket::listen() {
    EnforcerSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), 0);
    sockaddr_un address;
    const socklen_t length = abstractAddress(address);
    if (!socket.open() || bind(socket.fd_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(socket.fd_, 64) != 0) {
        return EnforcerSocket();
    }
    return socket;
}

EnforcerSocket EnforcerSocket::accept(int idleMs, int timeoutSeconds) const {
    pollfd waiting{fd_, POLLIN, 0};
    while (poll(&waiting, 1, idleMs) > 0) {
        EnforcerSocket peer(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC), timeoutSeconds);
        PeerCredentials credentials;
        if (peer.open() && peer.peer(credentials) && credentials.uid == geteuid()) {
            return peer;
        }
    }
    return EnforcerSocket();
}

bool EnforcerSocket::peer(PeerCredentials& credentials) const {
#ifdef SO_PEERCRED
    ucred kernel{};
    socklen_t size = sizeof(kernel);
    if (getsockopt(fd_, SOL_SOCKET, SO_PEERCRED, &kernel, &size) != 0) {
        return false;
    }
    credentials = PeerCredentials{kernel.uid, static_cast<int64_t>(kernel.pid)};
    return true;
#else
    uid_t uid = 0;
    gid_t gid = 0;
    if (getpeereid(fd_, &uid, &gid) != 0) {
        return false;
    }
    credentials = PeerCredentials{uid, -1};
    return true;
#endif
}

std::string EnforcerSocket::name() {
    return "@" + enforcerSocketName(geteuid());
}

bool EnforcerSocket::send(uint32_t head, const std::string& payload) const {
    return qvctl::FrameChannel(fd_, -1, timeoutSeconds_ * 1000, kMaxEnforcerPayload)
        .Write(head, payload);
}

bool EnforcerSocket::receive(qvctl::Frame& frame) const {
    return qvctl::FrameChannel(fd_, -1, timeoutSeconds_ * 1000, kMaxEnforcerPayload).Read(&frame) ==
           qvctl::FrameStatus::kOk;
}

}  // namespace ipfwnft
