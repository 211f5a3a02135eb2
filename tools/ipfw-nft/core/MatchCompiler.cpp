#include "ipfwnft/MatchCompiler.h"

#include <cstdio>

#include "ipfwnft/IntervalText.h"
#include "ipfwnft/Refusal.h"
#include "ipfwsim/Inet.h"
#include "ipfwsim/KeywordTables.h"

namespace ipfwnft {
namespace {

using ipfwsim::Match;
using ipfwsim::MatchKind;
using ipfwsim::Status;

std::string hexByte(uint32_t value) {
    char text[8];
    std::snprintf(text, sizeof(text), "0x%02x", value & 0xffu);
    return text;
}

std::string decimal(uint32_t value) {
    return std::to_string(value);
}

const char* optionName(MatchKind kind) {
    switch (kind) {
        case MatchKind::SrcPort:
            return "src-port";
        case MatchKind::DstPort:
            return "dst-port";
        case MatchKind::IcmpTypes:
            return "icmptypes";
        case MatchKind::TcpFlags:
            return "tcpflags";
        case MatchKind::TcpOptions:
            return "tcpoptions";
        case MatchKind::IpOptions:
            return "ipoptions";
        case MatchKind::Established:
            return "established";
        case MatchKind::Mac:
            return "mac";
        case MatchKind::Recv:
            return "recv";
        case MatchKind::Xmit:
            return "xmit";
        default:
            return "via";
    }
}

// "set | clear << 8" as "& (set|clear) == set".
std::string maskedEquals(const std::string& field, uint32_t flags, bool negated = false) {
    const uint32_t set = flags & 0xff;
    const uint32_t mask = set | ((flags >> 8) & 0xff);
    return field + " & " + hexByte(mask) + (negated ? " != " : " == ") + hexByte(set);
}

std::string addressText(const Match& match, const char* field, bool& refused) {
    refused = false;
    // One prefix as a prefix: nftables masks and compares it, which costs a packet less than
    // half of what the same test as a range does.
    const int length =
        match.addresses.size() == 1 ? ipfwsim::contiguousMaskLength(match.addresses[0].mask) : -1;
    if (length > 0 && length < 32) {
        return std::string(field) + (match.negated ? " != " : " ") +
               ipfwsim::dottedQuad(match.addresses[0].address) + "/" + std::to_string(length);
    }
    std::vector<Interval> intervals;
    for (const ipfwsim::AddressMask& element : match.addresses) {
        if (ipfwsim::contiguousMaskLength(element.mask) < 0) {
            if (match.addresses.size() > 1) {
                refused = true;
                return {};
            }
            return std::string(field) + " & " + ipfwsim::dottedQuad(element.mask) +
                   (match.negated ? " != " : " == ") + ipfwsim::dottedQuad(element.address);
        }
        intervals.emplace_back(element.address, element.address | ~element.mask);
    }
    return std::string(field) + (match.negated ? " != " : " ") +
           intervalsText(intervals, ipfwsim::dottedQuad);
}

Status compileAddress(const Match& match, Condition& condition) {
    bool refused = false;
    const char* field = match.kind == MatchKind::SrcAddr ? "ip saddr" : "ip daddr";
    std::string text = addressText(match, field, refused);
    if (refused) {
        return notEnforceable(match.kind == MatchKind::SrcAddr ? "src-ip" : "dst-ip",
                              "nftables matches an address with a non-contiguous mask only "
                              "when it stands alone");
    }
    condition = Condition::test(text);
    return Status::success();
}

Condition compilePorts(const Match& match, uint32_t transport) {
    std::vector<Interval> intervals;
    for (const ipfwsim::PortRange& range : match.ports) {
        intervals.emplace_back(range.low, range.high);
    }
    // ipfw tests ports of TCP and UDP only; "th" alone would read any protocol's bytes.
    const char* header = transport == ipfwsim::kProtoTcp   ? "tcp "
                         : transport == ipfwsim::kProtoUdp ? "udp "
                                                           : "meta l4proto { 6, 17 } th ";
    return Condition::test(header +
                           std::string(match.kind == MatchKind::SrcPort ? "sport " : "dport ") +
                           intervalsText(intervals, decimal));
}

Condition compileIcmpTypes(uint32_t bitmap) {
    std::vector<Interval> types;
    for (uint32_t type = 0; type < 32; ++type) {
        if ((bitmap & (1u << type)) != 0) {
            types.emplace_back(type, type);
        }
    }
    return Condition::test("icmp type " + intervalsText(types, decimal));
}

struct OptionTest {
    uint32_t bit;
    const char* expression;  // nullptr: nftables has no test for it
    const char* refusedAs;
    const char* why;
};

Status compileOptions(const std::vector<OptionTest>& table, uint32_t flags, const char* dependency,
                      Condition& condition) {
    std::string text;
    for (const OptionTest& option : table) {
        const bool wanted = (flags & option.bit) != 0;
        const bool unwanted = ((flags >> 8) & option.bit) != 0;
        if (!wanted && !unwanted) {
            continue;
        }
        if (option.expression == nullptr) {
            return notEnforceable(option.refusedAs, option.why);
        }
        text += (text.empty() ? "" : " ") + std::string(option.expression) +
                (wanted ? " exists" : " missing");
    }
    condition = Condition::test(text.empty() ? dependency : text);
    return Status::success();
}

Status compileTcpOptions(uint32_t flags, Condition& condition) {
    static const std::vector<OptionTest> table = {
        {0x01, "tcp option maxseg", nullptr, nullptr},
        {0x02, "tcp option window", nullptr, nullptr},
        {0x04, "tcp option sack-perm", nullptr, nullptr},
        {0x08, "tcp option timestamp", nullptr, nullptr},
        {0x10, nullptr, "tcpoptions cc", "nftables has no test for the T/TCP CC options"}};
    return compileOptions(table, flags, "meta l4proto 6", condition);
}

Status compileIpOptions(uint32_t flags, Condition& condition) {
    static const std::vector<OptionTest> table = {
        {0x01, "ip option ssrr", nullptr, nullptr},
        {0x02, "ip option lsrr", nullptr, nullptr},
        {0x04, "ip option rr", nullptr, nullptr},
        {0x08, nullptr, "ipoptions ts", "nftables has no test for the IP timestamp option"}};
    // ipfw's "ipoptions" with nothing left in it matches every packet.
    Status status = compileOptions(table, flags, "", condition);
    if (status.ok() && condition.text.empty()) {
        condition = Condition::always();
    }
    return status;
}

std::string macSide(const char* field, const ipfwsim::MacBytes& address,
                    const ipfwsim::MacBytes& mask) {
    auto text = [](const ipfwsim::MacBytes& bytes) {
        char buffer[18];
        std::snprintf(buffer, sizeof(buffer), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1],
                      bytes[2], bytes[3], bytes[4], bytes[5]);
        return std::string(buffer);
    };
    const ipfwsim::MacBytes none{};
    const ipfwsim::MacBytes all{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    if (mask == none) {
        return {};
    }
    if (mask == all) {
        return std::string(field) + " " + text(address) + " ";
    }
    return std::string(field) + " & " + text(mask) + " == " + text(address) + " ";
}

// Only a packet that came in on an Ethernet link carries MAC addresses at this layer.
Condition compileMac(const ipfwsim::MacMatch& mac, Pass pass) {
    if (!isInbound(pass)) {
        return Condition::never();
    }
    std::string text = macSide("ether daddr", mac.dstAddress, mac.dstMask) +
                       macSide("ether saddr", mac.srcAddress, mac.srcMask);
    return Condition::test(text.empty() ? "meta iiftype ether" : text.substr(0, text.size() - 1));
}

Status interfaceName(const ipfwsim::InterfaceRef& iface, const char* keyword, std::string& name) {
    if (!iface.byName()) {
        return notEnforceable(std::string(keyword) + " " + ipfwsim::dottedQuad(iface.address),
                              "nftables cannot test the address of an interface");
    }
    name = iface.name;
    const size_t special = name.find_first_of("*?[\"\\");
    if (special != std::string::npos && !(special == name.size() - 1 && name.back() == '*')) {
        return notEnforceable(std::string(keyword) + " " + name,
                              "nftables interface patterns allow one trailing * only");
    }
    return Status::success();
}

// via: the receiving interface on the way in, the sending one on the way out. recv and
// xmit name one side only; a packet made on this machine has no receiving interface, and
// its empty name matches no recv (and every "not recv").
Status compileInterface(const Match& match, Pass pass, Condition& condition) {
    std::string name;
    Status status = interfaceName(match.iface, optionName(match.kind), name);
    if (!status.ok()) {
        return status;
    }
    bool received = isInbound(pass);
    if (match.kind == MatchKind::Recv) {
        received = true;
    } else if (match.kind == MatchKind::Xmit) {
        if (isInbound(pass)) {
            condition = match.negated ? Condition::always() : Condition::never();
            return Status::success();
        }
        received = false;
    }
    condition = Condition::test(std::string(received ? "iifname" : "oifname") +
                                (match.negated ? " != \"" : " \"") + name + "\"");
    return Status::success();
}

Condition direction(bool holds, bool negated) {
    return holds != negated ? Condition::always() : Condition::never();
}

// Tests that also require a protocol or a link header have no exact negation inside one
// nftables rule (it would need "or").
bool negationUnsupported(const Match& match) {
    switch (match.kind) {
        case MatchKind::SrcPort:
        case MatchKind::DstPort:
        case MatchKind::IcmpTypes:
        case MatchKind::TcpFlags:
        case MatchKind::TcpOptions:
        case MatchKind::IpOptions:
        case MatchKind::Established:
        case MatchKind::Mac:
            return match.negated;
        default:
            return false;
    }
}

}  // namespace

std::vector<uint32_t> requiredProtocols(const Match& match) {
    if (match.negated) {
        return {};
    }
    switch (match.kind) {
        case MatchKind::Proto:
            return {match.value};
        case MatchKind::SrcPort:
        case MatchKind::DstPort:
            return {ipfwsim::kProtoTcp, ipfwsim::kProtoUdp};
        case MatchKind::TcpFlags:
        case MatchKind::TcpOptions:
        case MatchKind::Established:
            return {ipfwsim::kProtoTcp};
        case MatchKind::IcmpTypes:
            return {ipfwsim::kProtoIcmp};
        default:
            return {};
    }
}

Status compileMatch(const Match& match, Pass pass, uint32_t transport, Condition& condition) {
    if (negationUnsupported(match)) {
        return notEnforceable(std::string("not ") + optionName(match.kind),
                              "nftables cannot negate a test that needs a protocol or a link "
                              "header");
    }
    const char* inequality = match.negated ? " != " : " ";
    switch (match.kind) {
        case MatchKind::Proto:
            condition = Condition::test("meta l4proto" + (inequality + decimal(match.value)));
            return Status::success();
        case MatchKind::SrcAddr:
        case MatchKind::DstAddr:
            return compileAddress(match, condition);
        case MatchKind::SrcMe:
        case MatchKind::DstMe:
            condition = Condition::test(
                std::string(match.kind == MatchKind::SrcMe ? "fib saddr type" : "fib daddr type") +
                inequality + "local");
            return Status::success();
        case MatchKind::SrcPort:
        case MatchKind::DstPort:
            condition = compilePorts(match, transport);
            return Status::success();
        case MatchKind::IcmpTypes:
            condition = compileIcmpTypes(match.value);
            return Status::success();
        case MatchKind::TcpFlags:
            condition = Condition::test(maskedEquals("tcp flags", match.value));
            return Status::success();
        case MatchKind::TcpOptions:
            return compileTcpOptions(match.value, condition);
        case MatchKind::IpOptions:
            return compileIpOptions(match.value, condition);
        case MatchKind::IpTos:
            // The whole TOS byte; "ip dscp" would cover only its upper six bits.
            condition = Condition::test(maskedEquals("@nh,8,8", match.value, match.negated));
            return Status::success();
        case MatchKind::Established:
            condition = Condition::test("tcp flags & " +
                                        hexByte(ipfwsim::kTcpRst | ipfwsim::kTcpAck) + " != 0x00");
            return Status::success();
        case MatchKind::Mac:
            condition = compileMac(match.mac, pass);
            return Status::success();
        case MatchKind::In:
            condition = direction(isInbound(pass), match.negated);
            return Status::success();
        case MatchKind::Via:
        case MatchKind::Recv:
        case MatchKind::Xmit:
            return compileInterface(match, pass, condition);
        case MatchKind::KeepState:
            break;
    }
    condition = Condition::always();
    return Status::success();
}

}  // namespace ipfwnft
