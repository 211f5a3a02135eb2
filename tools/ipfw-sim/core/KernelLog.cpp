#include "ipfwsim/KernelLog.h"

#include <ctime>

#include "ipfwsim/Inet.h"

namespace ipfwsim {
namespace {

std::string protocolPart(const Packet& packet) {
    const FlowId& flow = packet.flow;
    const std::string src = dottedQuad(flow.srcAddress);
    const std::string dst = dottedQuad(flow.dstAddress);
    switch (flow.proto) {
        case kProtoTcp:
            return "TCP " + src + ":" + std::to_string(flow.srcPort) + " " + dst + ":" +
                   std::to_string(flow.dstPort);
        case kProtoUdp:
            return "UDP " + src + ":" + std::to_string(flow.srcPort) + " " + dst + ":" +
                   std::to_string(flow.dstPort);
        case kProtoIcmp:
            return "ICMP:" + std::to_string(packet.icmpType) + "." +
                   std::to_string(packet.icmpCode) + " " + src + " " + dst;
        default:
            return "P:" + std::to_string(flow.proto) + " " + src + " " + dst;
    }
}

}  // namespace

std::string actionLogWord(const Action& action) {
    switch (action.kind) {
        case ActionKind::Allow:
            return "Accept";
        case ActionKind::Deny:
            return "Deny";
        case ActionKind::Count:
            return "Count";
        case ActionKind::Skipto:
            return "SkipTo " + std::to_string(action.argument);
        case ActionKind::CheckState:
            return "UNKNOWN";
        case ActionKind::Reject:
            break;
    }
    if (action.argument == kRejectWithReset) {
        return "Reset";
    }
    if (action.argument == kUnreachHost) {
        return "Reject";
    }
    return "Unreach " + std::to_string(action.argument);
}

std::string packetLogText(uint32_t ruleNumber, const std::string& actionWord,
                          const Packet& packet) {
    std::string text =
        "ipfw: " + std::to_string(ruleNumber) + " " + actionWord + " " + protocolPart(packet);
    if (packet.iface.empty()) {
        return text + " [no if info]";
    }
    return text + (packet.outbound ? " out" : " in") + " via " + packet.iface;
}

std::string limitLogText(uint32_t amount, uint32_t ruleNumber) {
    return "ipfw: limit " + std::to_string(amount) + " reached on entry " +
           std::to_string(ruleNumber);
}

std::string syslogFileLine(int64_t epochSeconds, const std::string& host, const std::string& text) {
    std::time_t when = static_cast<std::time_t>(epochSeconds);
    std::tm local{};
    localtime_r(&when, &local);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%b %e %H:%M:%S", &local);
    return std::string(stamp) + " " + host + " kernel: " + text + "\n";
}

}  // namespace ipfwsim
