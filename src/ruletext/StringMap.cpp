#include "StringMap.h"

namespace qor {
namespace vela {

namespace {

template <typename Enum>
int32_t appendKeyword(const std::map<Enum, std::string>& map, Enum value, std::string& out) {
    auto it = map.find(value);
    if (it == map.end()) {
        return -1;
    }
    out += it->second;
    return 0;
}

}  // namespace

const StringMap* StringMap::getObj() {
    // Rules may be generated on several host threads at once; a function's static is
    // made exactly once however many threads ask first.
    static const StringMap* const instance = new StringMap();
    return instance;
}

StringMap::StringMap() {
    // Value 0 has no keyword on purpose (except the IP protocol): it means "no value".
    m_actionMap[ActionEnum{1}] = "allow";        // ACTION_ALLOW
    m_actionMap[ActionEnum{2}] = "deny";         // ACTION_DENY
    m_actionMap[ActionEnum{3}] = "check-state";  // ACTION_CHECK_STATE
    m_actionMap[ActionEnum{4}] = "reset";        // ACTION_RESET
    m_actionMap[ActionEnum{5}] = "unreach";      // ACTION_UNREACH

    m_tcpFlagMap[TcpFlagEnum{1}] = "syn";  // TCP_FLAG_SYN
    m_tcpFlagMap[TcpFlagEnum{2}] = "fin";  // TCP_FLAG_FIN
    m_tcpFlagMap[TcpFlagEnum{3}] = "ack";  // TCP_FLAG_ACK
    m_tcpFlagMap[TcpFlagEnum{4}] = "psh";  // TCP_FLAG_PSH
    m_tcpFlagMap[TcpFlagEnum{5}] = "rst";  // TCP_FLAG_RST
    m_tcpFlagMap[TcpFlagEnum{6}] = "urg";  // TCP_FLAG_URG

    m_tcpOptionMap[TcpOptionEnum{1}] = "mss";     // TCP_OPTION_MSS
    m_tcpOptionMap[TcpOptionEnum{2}] = "window";  // TCP_OPTION_WINDOW
    m_tcpOptionMap[TcpOptionEnum{3}] = "sack";    // TCP_OPTION_SACK
    m_tcpOptionMap[TcpOptionEnum{4}] = "ts";      // TCP_OPTION_TS
    m_tcpOptionMap[TcpOptionEnum{5}] = "cc";      // TCP_OPTION_CC

    m_ipOptionMap[IpOptionEnum{1}] = "ssrr";  // IP_OPTION_SSRR
    m_ipOptionMap[IpOptionEnum{2}] = "lsrr";  // IP_OPTION_LSRR
    m_ipOptionMap[IpOptionEnum{3}] = "rr";    // IP_OPTION_RR
    m_ipOptionMap[IpOptionEnum{4}] = "ts";    // IP_OPTION_TS

    m_ipTosMap[IpTosOptEnum{1}] = "lowdelay";     // IP_TOS_LOWDELAY
    m_ipTosMap[IpTosOptEnum{2}] = "throughput";   // IP_TOS_THROUGHPUT
    m_ipTosMap[IpTosOptEnum{3}] = "reliability";  // IP_TOS_RELIABILITY
    m_ipTosMap[IpTosOptEnum{4}] = "mincost";      // IP_TOS_MINCOST
    m_ipTosMap[IpTosOptEnum{5}] = "congestion";   // IP_TOS_CONGESTION

    // The IP protocol numbers themselves.
    m_protoMap[ProtoValueEnum{6}] = "tcp";
    m_protoMap[ProtoValueEnum{17}] = "udp";
    m_protoMap[ProtoValueEnum{1}] = "icmp";
    m_protoMap[ProtoValueEnum{0}] = "ip";
}

int32_t StringMap::getString(ActionEnum value, std::string& out) const {
    return appendKeyword(m_actionMap, value, out);
}

int32_t StringMap::getString(TcpFlagEnum value, std::string& out) const {
    return appendKeyword(m_tcpFlagMap, value, out);
}

int32_t StringMap::getString(TcpOptionEnum value, std::string& out) const {
    return appendKeyword(m_tcpOptionMap, value, out);
}

int32_t StringMap::getString(IpOptionEnum value, std::string& out) const {
    return appendKeyword(m_ipOptionMap, value, out);
}

int32_t StringMap::getString(IpTosOptEnum value, std::string& out) const {
    return appendKeyword(m_ipTosMap, value, out);
}

int32_t StringMap::getString(ProtoValueEnum value, std::string& out) const {
    return appendKeyword(m_protoMap, value, out);
}

}  // namespace vela
}  // namespace qor
