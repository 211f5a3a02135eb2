#include "FrameChannel.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>
#include <utility>

#include "QvFrame.h"
#include "SocketTransfer.h"

namespace qvctl {

namespace {

// How much the payload grows per receive: large enough that a big frame takes few calls,
// small enough that an announced length that never comes costs next to nothing.
constexpr size_t kPayloadStep = 64 * 1024;

}  // namespace

FrameStatus FrameChannel::WaitReadable(bool insideFrame) {
    struct pollfd waits[2] = {{m_fd, POLLIN, 0}, {m_stopFd, POLLIN, 0}};
    const nfds_t count = m_stopFd >= 0 ? 2 : 1;
    const bool stallLimit = insideFrame && m_stallMs >= 0;
    const int timeoutMs = stallLimit ? m_stallMs : m_timeoutMs;
    for (;;) {
        int ready = poll(waits, count, timeoutMs);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            return FrameStatus::kMalformed;
        }
        if (ready == 0) {
            return stallLimit ? FrameStatus::kStalled : FrameStatus::kTimedOut;
        }
        if (count == 2 && waits[1].revents != 0) {
            return FrameStatus::kStopped;
        }
        return FrameStatus::kOk;
    }
}

FrameStatus FrameChannel::ReceiveSome(char* data, size_t size, bool insideFrame, size_t* got) {
    FrameStatus waited = FrameStatus::kOk;
    const auto readable = [&] {
        waited = WaitReadable(insideFrame);
        return waited == FrameStatus::kOk;
    };
    switch (ipc::ReceiveSome(m_fd, data, size, readable, got)) {
        case ipc::Transfer::kDone:
            return FrameStatus::kOk;
        case ipc::Transfer::kGaveUp:
            return waited;
        case ipc::Transfer::kFailed:
            break;
    }
    return FrameStatus::kMalformed;
}

FrameStatus FrameChannel::ReadHeader(char* header) {
    size_t done = 0;
    while (done < ipc::kHeaderBytes) {
        size_t got = 0;
        FrameStatus status = ReceiveSome(header + done, ipc::kHeaderBytes - done, done > 0, &got);
        if (status != FrameStatus::kOk) {
            return status;
        }
        if (got == 0) {
            return done == 0 ? FrameStatus::kClosed : FrameStatus::kMalformed;
        }
        done += got;
    }
    return FrameStatus::kOk;
}

FrameStatus FrameChannel::ReadPayload(uint32_t length, std::string* payload) {
    size_t done = 0;
    while (done < length) {
        const size_t step = std::min<size_t>(length - done, kPayloadStep);
        payload->resize(done + step);
        size_t got = 0;
        FrameStatus status = ReceiveSome(&(*payload)[done], step, true, &got);
        if (status != FrameStatus::kOk) {
            return status;
        }
        if (got == 0) {
            return FrameStatus::kMalformed;
        }
        done += got;
        payload->resize(done);
    }
    return FrameStatus::kOk;
}

FrameStatus FrameChannel::Read(Frame* frame) {
    char header[ipc::kHeaderBytes];
    FrameStatus status = ReadHeader(header);
    if (status != FrameStatus::kOk) {
        return status;
    }
    ipc::FrameHeader decoded{};
    if (!ipc::DecodeHeader(reinterpret_cast<const uint8_t*>(header), &decoded, m_maxPayload)) {
        return FrameStatus::kMalformed;
    }
    // A fresh string: the last frame's capacity is not kept for the connection's life.
    std::string payload;
    status = ReadPayload(decoded.length, &payload);
    if (status != FrameStatus::kOk) {
        return status;
    }
    frame->head = decoded.head;
    frame->payload = std::move(payload);
    return FrameStatus::kOk;
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
    // The socket blocks; one that would not (a send time-out) has failed.
    const auto neverWait = [] { return false; };
    return ipc::SendAll(m_fd, frame.data(), frame.size(), neverWait) == ipc::Transfer::kDone;
}

}  // namespace qvctl
