// The byte loops under every frame on a stream socket, for qvfwd's control socket
// (FrameChannel) and for the call to the host service (ipc::call) alike: a signal never
// ends a transfer, and what to do when the socket is not ready is the caller's to say.
// Header-only, since FrameChannel goes into programs that link none of our shared
// libraries and ipc::call lives in one of them.
#pragma once

#include <errno.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace ipc {

// macOS has no MSG_NOSIGNAL; there the socket carries SO_NOSIGPIPE or the process ignores
// SIGPIPE instead.
#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

enum class Transfer {
    kDone,
    kFailed,  // the socket failed, or would not take a byte
    kGaveUp,  // the caller's wait said to stop
};

// Sends all `size` bytes. `waitWritable()` is asked whenever the socket would block:
// true once it is writable again, false to give up.
template <typename Wait>
Transfer SendAll(int fd, const void* data, size_t size, Wait&& waitWritable) {
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = send(fd, next, size, kSendFlags);
        if (sent > 0) {
            next += sent;
            size -= static_cast<size_t>(sent);
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (!waitWritable()) {
                return Transfer::kGaveUp;
            }
        } else {
            return Transfer::kFailed;
        }
    }
    return Transfer::kDone;
}

// Receives at most `size` bytes once `waitReadable()` says the socket is readable (false:
// give up); `*got` is how many, 0 when the peer hung up.
template <typename Wait>
Transfer ReceiveSome(int fd, void* data, size_t size, Wait&& waitReadable, size_t* got) {
    for (;;) {
        if (!waitReadable()) {
            return Transfer::kGaveUp;
        }
        const ssize_t received = recv(fd, data, size, 0);
        if (received >= 0) {
            *got = static_cast<size_t>(received);
            return Transfer::kDone;
        }
        if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
            return Transfer::kFailed;
        }
    }
}

}  // namespace ipc
