#include "FrameChannel.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include "QvFrame.h"

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0  // macOS: the daemon ignores SIGPIPE instead
#endif

namespace qvctl {

FrameStatus FrameChannel::WaitReadable() {
    struct pollfd waits[2] = {{m_fd, POLLIN, 0}, {m_stopFd, POLLIN, 0}};
    const nfds_t count = m_stopFd >= 0 ? 2 : 1;
    for (;;) {
        int ready = poll(waits, count, m_timeoutMs);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            return FrameStatus::kMalformed;
        }
        if (ready == 0) {
            return FrameStatus::kTimedOut;
        }
        if (count == 2 && waits[1].revents != 0) {
            return FrameStatus::kStopped;
        }
        return FrameStatus::kOk;
    }
}

FrameStatus FrameChannel::ReadExactly(char* data, size_t size, bool atFrameStart) {
    size_t done = 0;
    while (done < size) {
        FrameStatus waited = WaitReadable();
        if (waited != FrameStatus::kOk) {
            return waited;
        }
        ssize_t got = recv(m_fd, data + done, size - done, 0);
        if (got < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (got <= 0) {
            return atFrameStart && done == 0 && got == 0 ? FrameStatus::kClosed
                                                         : FrameStatus::kMalformed;
        }
        done += static_cast<size_t>(got);
    }
    return FrameStatus::kOk;
}

FrameStatus FrameChannel::Read(Frame* frame) {
    char header[ipc::kHeaderBytes];
    FrameStatus status = ReadExactly(header, sizeof header, true);
    if (status != FrameStatus::kOk) {
        return status;
    }
    ipc::FrameHeader decoded{};
    if (!ipc::DecodeHeader(reinterpret_cast<const uint8_t*>(header), &decoded, m_maxPayload)) {
        return FrameStatus::kMalformed;
    }
    frame->head = decoded.head;
    frame->payload.assign(decoded.length, '\0');
    status = ReadExactly(&frame->payload[0], decoded.length, false);
    return status == FrameStatus::kClosed ? FrameStatus::kMalformed : status;
}

bool FrameChannel::Write(uint32_t head, const std::string& payload) {
    return Write(head, payload.data(), payload.size());
}

bool FrameChannel::Write(uint32_t head, const void* data, size_t size) {
    std::string frame(ipc::kHeaderBytes, '\0');
    if (size > m_maxPayload ||
        !ipc::EncodeHeader({head, static_cast<uint32_t>(size)},
                           reinterpret_cast<uint8_t*>(&frame[0]), m_maxPayload)) {
        return false;
    }
    frame.append(static_cast<const char*>(data), size);
    size_t done = 0;
    while (done < frame.size()) {
        ssize_t sent = send(m_fd, frame.data() + done, frame.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent <= 0) {
            return false;
        }
        done += static_cast<size_t>(sent);
    }
    return true;
}

}  // namespace qvctl
