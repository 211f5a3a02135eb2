#include "IpcFrame.h"

#include "QvIpc.h"

namespace ipc {

uint32_t LoadLittleEndian32(const uint8_t* in) {
    return static_cast<uint32_t>(in[0]) | static_cast<uint32_t>(in[1]) << 8 |
           static_cast<uint32_t>(in[2]) << 16 | static_cast<uint32_t>(in[3]) << 24;
}

void StoreLittleEndian32(uint32_t value, uint8_t* out) {
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

bool EncodeRequestHeader(uint32_t command, uint32_t length, uint8_t out[kHeaderBytes]) {
    if (length > kMaxPayload) {
        return false;
    }
    StoreLittleEndian32(command, out);
    StoreLittleEndian32(length, out + 4);
    return true;
}

bool DecodeReplyHeader(const uint8_t in[kHeaderBytes], ReplyHeader* header) {
    header->code = static_cast<int32_t>(LoadLittleEndian32(in));
    header->length = LoadLittleEndian32(in + 4);
    return header->length <= kMaxPayload;
}

}  // namespace ipc
