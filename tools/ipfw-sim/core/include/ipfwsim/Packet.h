#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwsim/FirewallState.h"
#include "ipfwsim/NameService.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// A simulated packet as the firewall sees it.
struct Packet {
    FlowId flow;
    bool outbound = false;
    std::string iface;  // empty: the packet carries no interface information
    bool hasIfaceAddress = false;
    uint32_t ifaceAddress = 0;
    uint8_t tcpFlags = 0;
    uint8_t tcpOptions = 0;
    uint8_t ipOptions = 0;
    uint8_t ipTos = 0;
    uint8_t icmpType = 0;
    uint8_t icmpCode = 0;
    uint32_t length = 0;
    bool layer2 = false;  // true when it came with MAC addresses
    MacBytes dstMac{};
    MacBytes srcMac{};
};

// Reads the words after "packet":
//   PROTO SRC[:PORT] DST[:PORT] [in|out] [via IFNAME] [ifaddr ADDR] [tcpflags F,..]
//   [tcpoptions O,..] [ipoptions O,..] [iptos T,..] [icmptype T[.C]] [mac DST SRC] [len N]
Status parsePacket(const std::vector<std::string>& words, const NameService& names, Packet& packet);

}  // namespace ipfwsim
