#include "EnforcerSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "ipfwnft/EnforcerProtocol.h"

namespace ipfwnft {
namespace {

socklen_t abstractAddress(sockaddr_un& address) {
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(kEnforcerSocketName);
    std::memcpy(address.sun_path + 1, kEnforcerSocketName, length);  // sun_path[0] stays 0
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
}

bool receiveAll(int fd, char* data, size_t size) {
    while (size > 0) {
        const ssize_t got = recv(fd, data, size, 0);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        data += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

}  // namespace

EnforcerSocket::~EnforcerSocket() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

EnforcerSocket::EnforcerSocket(EnforcerSocket&& other) noexcept : fd_(other.fd_) {
    other.fd_ = -1;
}

EnforcerSocket& EnforcerSocket::operator=(EnforcerSocket&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

EnforcerSocket EnforcerSocket::connect(int timeoutSeconds) {
    EnforcerSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address;
    const socklen_t length = abstractAddress(address);
    if (!socket.open() ||
        ::connect(socket.fd_, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        return EnforcerSocket();
    }
    socket.setTimeout(timeoutSeconds);
    return socket;
}

EnforcerSocket EnforcerSocket::listen() {
    EnforcerSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
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
        EnforcerSocket peer(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
        ucred credentials{};
        socklen_t size = sizeof(credentials);
        if (peer.open() &&
            getsockopt(peer.fd_, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 &&
            credentials.uid == geteuid()) {
            peer.setTimeout(timeoutSeconds);
            return peer;
        }
    }
    return EnforcerSocket();
}

bool EnforcerSocket::send(const std::string& body) const {
    std::string header = frameHeader(body.size());
    iovec parts[2] = {{header.data(), header.size()},
                      {const_cast<char*>(body.data()), body.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    while (message.msg_iovlen > 0) {
        const ssize_t sent = sendmsg(fd_, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        // A large frame may go out in pieces: step past what was taken.
        size_t taken = static_cast<size_t>(sent);
        while (message.msg_iovlen > 0 && taken >= message.msg_iov[0].iov_len) {
            taken -= message.msg_iov[0].iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0) {
            message.msg_iov[0].iov_base = static_cast<char*>(message.msg_iov[0].iov_base) + taken;
            message.msg_iov[0].iov_len -= taken;
        }
    }
    return true;
}

bool EnforcerSocket::receive(std::string& body) const {
    char header[4];
    uint32_t length = 0;
    if (!receiveAll(fd_, header, sizeof(header)) || !readFrameHeader(header, length)) {
        return false;
    }
    body.resize(length);
    return receiveAll(fd_, body.data(), length);
}

void EnforcerSocket::setTimeout(int seconds) const {
    const timeval limit{seconds, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

}  // namespace ipfwnft
