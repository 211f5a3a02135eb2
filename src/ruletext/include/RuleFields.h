// A firewall rule as the generator reads it: the fields of a qor.vela.FwRule with what
// each means for the text already decided (RuleFieldsReader.h fills it from a message).
// Plain values, so that the generator is built once, without either protobuf runtime.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StringMap.h"

namespace qor {
namespace vela {

struct RuleFields {
    struct Address {
        bool useHostName = false;
        bool hasHost = false;
        std::string host;
        bool hasIp = false;
        uint32_t ip = 0;
        bool hasMaskLen = false;
        uint32_t maskLen = 0;
    };
    struct Addresses {
        enum class Kind { kMe, kAny, kList };
        bool present = false;
        Kind kind = Kind::kMe;
        std::vector<Address> entries;
    };
    struct PortEntry {
        bool useRange = false;
        uint32_t port = 0;
        uint32_t from = 0;
        uint32_t to = 0;
    };
    struct Ports {
        bool present = false;
        bool any = true;
        std::vector<PortEntry> entries;
    };
    template <typename Enum>
    struct Flag {
        bool exclude = false;
        Enum value;
    };
    struct Mac {
        bool any = false;
        bool hasMac = false;
        std::string mac;
        bool hasMaskLen = false;
        uint32_t maskLen = 0;
    };
    enum class Direction { kNone, kIn, kOut };

    bool hasProbability = false;
    double probability = 0;
    ActionEnum action{1};
    int32_t unreachCode = 0;

    bool hasProtocol = false;
    bool allProtocols = true;
    bool excludeProtocol = false;
    ProtoValueEnum protocol{6};

    Addresses srcIp;
    Addresses dstIp;
    Ports srcPort;
    Ports dstPort;
    std::vector<int> icmpTypes;
    std::vector<Flag<TcpFlagEnum>> tcpFlags;
    std::vector<Flag<TcpOptionEnum>> tcpOptions;
    std::vector<Flag<IpOptionEnum>> ipOptions;
    std::vector<Flag<IpTosOptEnum>> ipTos;

    bool hasMacAddr = false;
    Mac dstMac;
    Mac srcMac;

    Direction direction = Direction::kNone;

    bool hasViaInterface = false;
    bool viaByName = true;
    std::string viaDevice;
    uint32_t viaIp = 0;

    bool keepState = false;
};

}  // namespace vela
}  // namespace qor
