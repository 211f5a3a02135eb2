// The byte layout of the host service's frames, kept apart from the socket so that it can
// be checked on plain bytes. Every header is 8 bytes, little-endian:
//   request: u32 command, u32 length
//   reply:   i32 code,    u32 length
// and `length` payload bytes follow.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace ipc {

constexpr size_t kHeaderBytes = 8;

struct ReplyHeader {
    int32_t code;
    uint32_t length;
};

// Fills `out` with a request header. False when `length` exceeds the wire limit.
bool EncodeRequestHeader(uint32_t command, uint32_t length, uint8_t out[kHeaderBytes]);

// Reads a reply header. False when its length exceeds the wire limit.
bool DecodeReplyHeader(const uint8_t in[kHeaderBytes], ReplyHeader* header);

uint32_t LoadLittleEndian32(const uint8_t* in);
void StoreLittleEndian32(uint32_t value, uint8_t* out);

}  // namespace ipc
