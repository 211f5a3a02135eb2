// ipc::call and ipc::free: one call to the host service over its Unix stream socket.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Deadline.h"
#include "QvIpc.h"
#include "QvLog.h"
#include "SocketTransfer.h"
#include "UtilLog.h"

#define QV_EXPORT __attribute__((visibility("default")))

namespace ipc {
namespace {

using qvutil::Deadline;

constexpr const char* kDefaultSocketPath = "/var/run/Quorvane/QvrnCore.sock";
constexpr uint64_t kConnectMs = 1000;
constexpr uint64_t kReplyMs = 3000;
// A listener with a full backlog refuses at once instead of queueing; retry this often.
constexpr useconds_t kBacklogRetryUs = 10000;

const char* SocketPath() {
    const char* path = getenv("QV_IPC_SOCKET");
    return path != nullptr && *path != '\0' ? path : kDefaultSocketPath;
}

// Closes the socket at scope end.
class Socket {
public:
    Socket() : m_fd(Open()) {}
    ~Socket() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int fd() const { return m_fd; }

private:
    static int Open() {
#ifdef SOCK_CLOEXEC
        return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
#else
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (fd >= 0) {
            int on = 1;
            fcntl(fd, F_SETFD, FD_CLOEXEC);
            fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
            setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
        }
        return fd;
#endif
    }
    int m_fd;
};

// Waits until `fd` is ready for `events`; false on time-out or error.
bool WaitFor(int fd, short events, const Deadline& deadline) {
    for (;;) {
        struct pollfd entry = {fd, events, 0};
        int ready = poll(&entry, 1, deadline.PollTimeout());
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

bool Connect(int fd, const char* path) {
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof address.sun_path) {
        return false;
    }
    strcpy(address.sun_path, path);
    Deadline deadline = Deadline::AfterMilliseconds(kConnectMs);
    for (;;) {
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            return true;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno == EAGAIN && !deadline.Expired()) {
            usleep(kBacklogRetryUs);
            continue;
        }
        if (errno != EINPROGRESS) {
            return false;
        }
        int error = 0;
        socklen_t length = sizeof error;
        return WaitFor(fd, POLLOUT, deadline) &&
               getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
    }
}

// The socket does not block: every wait is for the one deadline of the whole call.
bool SendAll(int fd, const uint8_t* data, size_t length, const Deadline& deadline) {
    const auto writable = [&] { return WaitFor(fd, POLLOUT, deadline); };
    return ipc::SendAll(fd, data, length, writable) == Transfer::kDone;
}

// False when the peer closes before `length` bytes came, on error or time-out.
bool ReceiveAll(int fd, uint8_t* data, size_t length, const Deadline& deadline) {
    const auto readable = [&] { return WaitFor(fd, POLLIN, deadline); };
    while (length > 0) {
        size_t got = 0;
        if (ReceiveSome(fd, data, length, readable, &got) != Transfer::kDone || got == 0) {
            return false;
        }
        data += got;
        length -= got;
    }
    return true;
}

bool SendRequest(int fd, int command, const void* data, int size, const Deadline& deadline) {
    uint8_t header[kHeaderBytes];
    if (!EncodeHeader({static_cast<uint32_t>(command), static_cast<uint32_t>(size)}, header)) {
        return false;
    }
    return SendAll(fd, header, sizeof header, deadline) &&
           SendAll(fd, static_cast<const uint8_t*>(data), static_cast<size_t>(size), deadline);
}

// Reads the reply; on success `*payload` is malloc'ed (null when empty).
bool ReceiveReply(int fd, const Deadline& deadline, FrameHeader* header, uint8_t** payload) {
    uint8_t raw[kHeaderBytes];
    if (!ReceiveAll(fd, raw, sizeof raw, deadline) || !DecodeHeader(raw, header)) {
        return false;
    }
    *payload = nullptr;
    if (header->length == 0) {
        return true;
    }
    *payload = static_cast<uint8_t*>(malloc(header->length));
    if (*payload == nullptr || !ReceiveAll(fd, *payload, header->length, deadline)) {
        ::free(*payload);
        *payload = nullptr;
        return false;
    }
    return true;
}

bool ValidArguments(const void* data, int size, void** reply, int* replyLength) {
    return reply != nullptr && replyLength != nullptr && size >= 0 &&
           static_cast<unsigned int>(size) <= kMaxPayload && (data != nullptr || size == 0);
}

}  // namespace

QV_EXPORT int call(int command, const void* data, int size, void** reply, int* replyLength) {
    if (!ValidArguments(data, size, reply, replyLength)) {
        QV_UTIL_LOG(3, "%s invalid argument for command %d", "ipc::call", command);
        return -1;
    }
    *reply = nullptr;
    *replyLength = 0;
    Socket socket;
    const char* path = SocketPath();
    if (socket.fd() < 0 || !Connect(socket.fd(), path)) {
        QV_UTIL_LOG(4, "%s cannot reach %s, errno is %d", "ipc::call", path, errno);
        return -1;
    }
    Deadline deadline = Deadline::AfterMilliseconds(kReplyMs);
    FrameHeader header{};
    uint8_t* payload = nullptr;
    if (!SendRequest(socket.fd(), command, data, size, deadline) ||
        !ReceiveReply(socket.fd(), deadline, &header, &payload)) {
        QV_UTIL_LOG(3, "%s exchange for command %d broke off", "ipc::call", command);
        return -1;
    }
    *reply = payload;
    *replyLength = static_cast<int>(header.length);
    return static_cast<int32_t>(header.head);
}

QV_EXPORT void free(void* buffer, int /*length*/) {
    ::free(buffer);
}

}  // namespace ipc
