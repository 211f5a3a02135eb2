#include "ipfwnft/LoggedPacket.h"

namespace ipfwnft {
namespace {

constexpr size_t kMinHeader = 20;
constexpr uint16_t kFragmentOffsetMask = 0x1fff;

uint16_t read16(const std::vector<uint8_t>& bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

uint32_t read32(const std::vector<uint8_t>& bytes, size_t at) {
    return static_cast<uint32_t>(read16(bytes, at)) << 16 | read16(bytes, at + 2);
}

void decodeTransport(const std::vector<uint8_t>& bytes, size_t at, ipfwsim::Packet& packet) {
    const uint8_t proto = packet.flow.proto;
    if ((proto == ipfwsim::kProtoTcp || proto == ipfwsim::kProtoUdp) && bytes.size() >= at + 4) {
        packet.flow.srcPort = read16(bytes, at);
        packet.flow.dstPort = read16(bytes, at + 2);
    } else if (proto == ipfwsim::kProtoIcmp && bytes.size() >= at + 2) {
        packet.icmpType = bytes[at];
        packet.icmpCode = bytes[at + 1];
    }
}

}  // namespace

bool decodeIpv4(const std::vector<uint8_t>& bytes, ipfwsim::Packet& packet) {
    if (bytes.size() < kMinHeader || bytes[0] >> 4 != 4) {
        return false;
    }
    const size_t headerLength = static_cast<size_t>(bytes[0] & 0x0f) * 4;
    if (headerLength < kMinHeader || headerLength > bytes.size()) {
        return false;
    }
    packet.length = read16(bytes, 2);
    packet.ipTos = bytes[1];
    packet.flow.proto = bytes[9];
    packet.flow.srcAddress = read32(bytes, 12);
    packet.flow.dstAddress = read32(bytes, 16);
    // Only the first fragment carries the transport header.
    if ((read16(bytes, 6) & kFragmentOffsetMask) == 0) {
        decodeTransport(bytes, headerLength, packet);
    }
    return true;
}

}  // namespace ipfwnft
