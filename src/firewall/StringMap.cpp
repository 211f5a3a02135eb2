#include "StringMap.h"

#include "QvLock.h"

namespace qor {
namespace vela {

StringMap* StringMap::m_pObj = nullptr;
int32_t StringMap::m_objNum = 0;

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

StringMap* StringMap::getObj() {
    // Rules may be generated on several host threads at once; the lock keeps the very
    // first call from building two instances.
    static Mutex creation;
    Guard<Mutex> guard(creation);
    if (m_objNum == 0) {
        m_pObj = new StringMap();
        ++m_objNum;
    }
    return m_pObj;
}

StringMap::StringMap() {
    m_pObj = nullptr;

    // Value 0 has no keyword on purpose (except the IP protocol): it means "no value".
    m_actionMap[ACTION_ALLOW] = "allow";
    m_actionMap[ACTION_DENY] = "deny";
    m_actionMap[ACTION_CHECK_STATE] = "check-state";
    m_actionMap[ACTION_RESET] = "reset";
    m_actionMap[ACTION_UNREACH] = "unreach";

    m_tcpFlagMap[TCP_FLAG_SYN] = "syn";
    m_tcpFlagMap[TCP_FLAG_FIN] = "fin";
    m_tcpFlagMap[TCP_FLAG_ACK] = "ack";
    m_tcpFlagMap[TCP_FLAG_PSH] = "psh";
    m_tcpFlagMap[TCP_FLAG_RST] = "rst";
    m_tcpFlagMap[TCP_FLAG_URG] = "urg";

    m_tcpOptionMap[TCP_OPTION_MSS] = "mss";
    m_tcpOptionMap[TCP_OPTION_WINDOW] = "window";
    m_tcpOptionMap[TCP_OPTION_SACK] = "sack";
    m_tcpOptionMap[TCP_OPTION_TS] = "ts";
    m_tcpOptionMap[TCP_OPTION_CC] = "cc";

    m_ipOptionMap[IP_OPTION_SSRR] = "ssrr";
    m_ipOptionMap[IP_OPTION_LSRR] = "lsrr";
    m_ipOptionMap[IP_OPTION_RR] = "rr";
    m_ipOptionMap[IP_OPTION_TS] = "ts";

    m_ipTosMap[IP_TOS_LOWDELAY] = "lowdelay";
    m_ipTosMap[IP_TOS_THROUGHPUT] = "throughput";
    m_ipTosMap[IP_TOS_RELIABILITY] = "reliability";
    m_ipTosMap[IP_TOS_MINCOST] = "mincost";
    m_ipTosMap[IP_TOS_CONGESTION] = "congestion";

    m_protoMap[PROTO_VALUE_TCP] = "tcp";
    m_protoMap[PROTO_VALUE_UDP] = "udp";
    m_protoMap[PROTO_VALUE_ICMP] = "icmp";
    m_protoMap[PROTO_VALUE_IP] = "ip";
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
