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
    kTimedOut,   // nothing came for `timeoutMs` between frames (or inside one, with no stall limit)
    kStalled,    // the peer sent part of a frame, then nothing for `stallMs`
};

class FrameChannel {
public:
    // `stopFd`: a descriptor whose readability ends any wait (-1: none). `timeoutMs`: the
    // longest wait for the next bytes (-1: none). `maxPayload`: the longest payload either
    // way (the host's limit unless the channel's own protocol needs more). `stallMs`: the
    // longest wait for the next bytes once a frame has begun (-1: `timeoutMs`), so that a
    // server may let a client idle between frames but not hold it half-way through one.
    explicit FrameChannel(int fd, int stopFd = -1, int timeoutMs = -1,
                          uint32_t maxPayload = ipc::kMaxPayload, int stallMs = -1)
        : m_fd(fd),
          m_stopFd(stopFd),
          m_timeoutMs(timeoutMs),
          m_maxPayload(maxPayload),
          m_stallMs(stallMs) {}

    // The payload grows with the bytes that arrive, never to the announced length up
    // front: a peer that announces the largest frame and sends nothing costs nothing.
    FrameStatus Read(Frame* frame);
    bool Write(uint32_t head, const std::string& payload);
    bool Write(uint32_t head, const void* data, size_t size);

private:
    FrameStatus WaitReadable(bool insideFrame);
    // Receives up to `size` bytes into `data` once the socket is readable; `*got` is how
    // many (0: the peer hung up).
    FrameStatus ReceiveSome(char* data, size_t size, bool insideFrame, size_t* got);
    FrameStatus ReadHeader(char* header);
    FrameStatus ReadPayload(uint32_t length, std::string* payload);

    int m_fd;
    int m_stopFd;
    int m_timeoutMs;
    uint32_t m_maxPayload;
    int m_stallMs;
};

}  // namespace qvctl
