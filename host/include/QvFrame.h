// The one frame layout of the host service (ipc::call) and of qvfwd's control socket: an
// 8-byte little-endian header, u32 command in a request or i32 code in a reply, then u32
// length, followed by `length` payload bytes, never more than kMaxPayload.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace ipc {

constexpr size_t kHeaderBytes = 8;
constexpr uint32_t kMaxPayload = 16u * 1024u * 1024u;

struct FrameHeader {
    uint32_t head;  // the command of a request, the code of a reply
    uint32_t length;
};

inline uint32_t LoadLittleEndian32(const uint8_t* in) {
    return static_cast<uint32_t>(in[0]) | static_cast<uint32_t>(in[1]) << 8 |
           static_cast<uint32_t>(in[2]) << 16 | static_cast<uint32_t>(in[3]) << 24;
}

inline void StoreLittleEndian32(uint32_t value, uint8_t* out) {
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

// Fills `out` with the header of a frame. False when `length` exceeds the limit (the
// host's, unless a channel carries larger payloads).
inline bool EncodeHeader(const FrameHeader& header, uint8_t out[kHeaderBytes],
                         uint32_t maxPayload = kMaxPayload) {
    if (header.length > maxPayload) {
        return false;
    }
    StoreLittleEndian32(header.head, out);
    StoreLittleEndian32(header.length, out + 4);
    return true;
}

// Reads a header. False when the length it announces exceeds the limit.
inline bool DecodeHeader(const uint8_t in[kHeaderBytes], FrameHeader* header,
                         uint32_t maxPayload = kMaxPayload) {
    header->head = LoadLittleEndian32(in);
    header->length = LoadLittleEndian32(in + 4);
    return header->length <= maxPayload;
}

}  // namespace ipc
