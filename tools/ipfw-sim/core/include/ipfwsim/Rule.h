#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace ipfwsim {

constexpr uint32_t kDefaultRuleNumber = 65535;
constexpr uint32_t kHighestUserRule = 65534;
constexpr uint32_t kReservedSet = 31;
constexpr uint32_t kAutoNumberStep = 100;
// Reject code meaning "answer with a TCP reset" rather than an ICMP unreachable.
constexpr uint32_t kRejectWithReset = 0x100;
constexpr uint32_t kUnreachHost = 1;
constexpr int32_t kProbabilityScale = 0x7fffffff;
constexpr uint8_t kProtoIcmp = 1;
constexpr uint8_t kProtoTcp = 6;
constexpr uint8_t kProtoUdp = 17;

// Addresses and masks in host byte order; the address is already masked.
struct AddressMask {
    uint32_t address = 0;
    uint32_t mask = 0;
};

struct PortRange {
    uint16_t low = 0;
    uint16_t high = 0;
};

using MacBytes = std::array<uint8_t, 6>;

struct MacMatch {
    MacBytes dstAddress{};
    MacBytes dstMask{};
    MacBytes srcAddress{};
    MacBytes srcMask{};
};

// An interface given by name (possibly a shell-style pattern) or by one of its addresses.
// An empty name stands for the address form, as in the real command.
struct InterfaceRef {
    std::string name;
    uint32_t address = 0;

    bool byName() const { return !name.empty(); }
};

enum class MatchKind : uint8_t {
    Proto,
    SrcAddr,
    DstAddr,
    SrcMe,
    DstMe,
    SrcPort,
    DstPort,
    IcmpTypes,
    TcpFlags,
    TcpOptions,
    IpOptions,
    IpTos,
    Established,
    Mac,
    In,  // negated: out
    Via,
    Recv,
    Xmit,
    KeepState,
};

// One match condition of a rule body, in the order the compiled rule keeps it.
struct Match {
    MatchKind kind = MatchKind::Proto;
    bool negated = false;
    // Protocol number, ICMP type bitmap, or flag bits (set | clear << 8).
    uint32_t value = 0;
    std::vector<AddressMask> addresses;
    std::vector<PortRange> ports;
    MacMatch mac;
    InterfaceRef iface;
};

enum class ActionKind : uint8_t { Allow, Deny, Reject, Count, Skipto, CheckState };

struct Action {
    ActionKind kind = ActionKind::Allow;
    // Reject: ICMP unreachable code or kRejectWithReset; Skipto: target rule number.
    uint32_t argument = 0;
};

struct Rule {
    uint32_t number = 0;
    uint32_t set = 0;
    bool hasProbability = false;
    int32_t probability = 0;  // match probability scaled by kProbabilityScale
    Action action;
    bool log = false;
    uint32_t logAmount = 0;
    // The body named no protocol, source or destination before its options.
    bool optionsOnly = false;
    std::vector<Match> matches;

    bool keepsState() const {
        return !matches.empty() && matches.back().kind == MatchKind::KeepState;
    }
};

}  // namespace ipfwsim
