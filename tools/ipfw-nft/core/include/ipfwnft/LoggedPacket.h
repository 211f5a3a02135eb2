#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ipfwsim/Packet.h"

namespace ipfwnft {

// A packet that a logging rule sent to NFLOG, as the kernel hands it over.
struct LoggedPacket {
    std::string prefix;
    std::vector<uint8_t> payload;  // from the IPv4 header on
    std::string inInterface;       // empty when none
    std::string outInterface;
    // NFLOG's number for the packet: the kernel numbers every packet it logs to the
    // group, delivered or not, from 0 when the group is bound. Absent when not asked for.
    std::optional<uint32_t> sequence;
};

// Reads the IPv4 header and, for TCP and UDP, the ports, ICMP type and code, into the
// simulator's packet as its log line formatter expects it. False for anything that is
// not a whole IPv4 header.
bool decodeIpv4(const std::vector<uint8_t>& bytes, ipfwsim::Packet& packet);

}  // namespace ipfwnft
