// Frames on a connected stream socket, in the layout of ipc::call: an 8-byte
// little-endian header (u32 command or i32 code, u32 length) and `length` payload bytes.
// The daemon reads requests and writes replies with it, qvfwctl the other way round.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "QvFrame.h"

namespace qvctl {

struct Frame {
    uint32_t head = 0;  // the command of a request, the code of a reply
    std::string payload;
};

enum class FrameStatus {
    kOk,
    kClosed,     // the peer hung up between frames
    kMalformed,  // too long, or the peer hung up inside a frame
    kStopped,    // the stop descriptor became readable
    kTimedOut,
};

class FrameChannel {
public:
    // `stopFd`: a descriptor whose readability ends any wait (-1: none). `timeoutMs`: the
    // longest wait for the next bytes (-1: none). `maxPayload`: the longest payload either
    // way (the host's limit unless the channel's own protocol needs more).
    explicit FrameChannel(int fd, int stopFd = -1, int timeoutMs = -1,
                          uint32_t maxPayload = ipc::kMaxPayload)
        : m_fd(fd), m_stopFd(stopFd), m_timeoutMs(timeoutMs), m_maxPayload(maxPayload) {}

    FrameStatus Read(Frame* frame);
    bool Write(uint32_t head, const std::string& payload);
    bool Write(uint32_t head, const void* data, size_t size);

private:
    FrameStatus WaitReadable();
    FrameStatus ReadExactly(char* data, size_t size, bool atFrameStart);

    int m_fd;
    int m_stopFd;
    int m_timeoutMs;
    uint32_t m_maxPayload;
};

}  // namespace qvctl
