#pragma once

#include <cstdint>
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
};

// Reads the IPv4 header and, for TCP and UDP, the ports, ICMP type and code, into the
// simulator's packet as its log line formatter expects it. False for anything that is
// not a whole IPv4 header.
bool decodeIpv4(const std::vector<uint8_t>& bytes, ipfwsim::Packet& packet);

}  // namespace ipfwnft
