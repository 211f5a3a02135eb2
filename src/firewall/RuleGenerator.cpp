#include "RuleGenerator.h"

#include <regex.h>

#include <locale>
#include <sstream>

#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "QvRuleNames.h"
#include "StringMap.h"

namespace qor {
namespace vela {

namespace {

// The probability as an output stream writes a double by default: six significant
// digits, shortest form, always with a decimal point regardless of the host's locale.
std::string formatProbability(double probability) {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << probability;
    return stream.str();
}

template <typename T>
struct FlagEnum;
template <>
struct FlagEnum<TcpFlags> {
    using type = TcpFlagEnum;
};
template <>
struct FlagEnum<TcpOption> {
    using type = TcpOptionEnum;
};
template <>
struct FlagEnum<IpOption> {
    using type = IpOptionEnum;
};
template <>
struct FlagEnum<IpTosOpt> {
    using type = IpTosOptEnum;
};

}  // namespace

bool RuleGenerator::IsSafeHostName(const std::string& host) {
    return qor::vela::IsSafeHostName(host);
}

bool RuleGenerator::IsSafeInterfaceName(const std::string& device) {
    return qor::vela::IsSafeInterfaceName(device);
}

RuleGenerator::RuleGenerator() {
    InitFuncTab();
}

void RuleGenerator::InitFuncTab() {
    m_funcTab.push_back(&RuleGenerator::GenProto);
    m_funcTab.push_back(&RuleGenerator::GenSrcIp);
    m_funcTab.push_back(&RuleGenerator::GenDstIp);
    m_funcTab.push_back(&RuleGenerator::GenSrcPort);
    m_funcTab.push_back(&RuleGenerator::GenDstPort);
    m_funcTab.push_back(&RuleGenerator::GenIcmpType);
    m_funcTab.push_back(&RuleGenerator::GenTcpFlags);
    m_funcTab.push_back(&RuleGenerator::GenTcpOptions);
    m_funcTab.push_back(&RuleGenerator::GenIpOptions);
    m_funcTab.push_back(&RuleGenerator::GenIpTos);
    m_funcTab.push_back(&RuleGenerator::GenMacAddr);
    m_funcTab.push_back(&RuleGenerator::GenDirection);
    m_funcTab.push_back(&RuleGenerator::GenViaInterface);
    m_funcTab.push_back(&RuleGenerator::GenKeepState);
}

int32_t RuleGenerator::CreateRule(const FwRule& rule, std::string& out) const {
    const StringMap* keywords = StringMap::getObj();

    if (rule.has_probability()) {
        out += "prob ";
        out += formatProbability(rule.probability());
    }

    std::string action;
    if (keywords->getString(rule.action(), action) != 0) {
        QV_LOG(QV_LOG_ERROR, "%s not support actions %d", "RuleGenerator::CreateRule",
               static_cast<int>(rule.action()));
        return FW_ERR_ACTION;
    }
    out += " ";
    out += action;

    // Denied and reset packets are logged so that the event watcher reports them;
    // allowed ones never are.
    if (rule.action() == ACTION_DENY || rule.action() == ACTION_RESET) {
        out += " log logamount 0";
    }
    if (rule.action() == ACTION_CHECK_STATE) {
        return 0;  // a check-state rule carries no other fragment
    }
    if (rule.action() == ACTION_UNREACH) {
        out += " ";
        out += std::to_string(rule.unreach_code());
        out += " log logamount 0";
    }
    return ParseOpt(rule, out);
}

int32_t RuleGenerator::ParseOpt(const FwRule& rule, std::string& out) const {
    for (GenFunc func : m_funcTab) {
        int32_t ret = (this->*func)(rule, out);
        if (ret != 0) {
            return ret;
        }
    }
    QV_LOG(QV_LOG_DETAIL, "%s generated rule is %s", "RuleGenerator::ParseOpt", out.c_str());
    return 0;
}

int32_t RuleGenerator::GenProto(const FwRule& rule, std::string& out) const {
    if (!rule.has_protocol()) {
        return 0;
    }
    const FwProtocol& protocol = rule.protocol();
    if (protocol.type() == PROTO_ALL) {
        out += " proto all";
        return 0;
    }
    if (protocol.has_exclude() && protocol.exclude()) {
        out += " not";
    }
    out += " proto ";
    if (StringMap::getObj()->getString(protocol.protocol(), out) != 0) {
        out += "ip";
    }
    return 0;
}

int32_t RuleGenerator::GenSrcIp(const FwRule& rule, std::string& out) const {
    if (!rule.has_src_ip()) {
        return 0;
    }
    out += " src-ip ";
    return GetIpAndMask(rule.src_ip(), out);
}

int32_t RuleGenerator::GenDstIp(const FwRule& rule, std::string& out) const {
    if (!rule.has_dst_ip()) {
        return 0;
    }
    out += " dst-ip ";
    return GetIpAndMask(rule.dst_ip(), out);
}

int32_t RuleGenerator::GenSrcPort(const FwRule& rule, std::string& out) const {
    if (!rule.has_src_port()) {
        return 0;
    }
    out += " src-port ";
    return FillPort(rule.src_port(), out);
}

int32_t RuleGenerator::GenDstPort(const FwRule& rule, std::string& out) const {
    if (!rule.has_dst_port()) {
        return 0;
    }
    out += " dst-port ";
    return FillPort(rule.dst_port(), out);
}

int32_t RuleGenerator::GenIcmpType(const FwRule& rule, std::string& out) const {
    if (rule.icmp_type_size() == 0) {
        return 0;
    }
    out += " icmptypes ";
    return IntArray2String(rule.icmp_type(), out);
}

int32_t RuleGenerator::GenTcpFlags(const FwRule& rule, std::string& out) const {
    return FillFlags(rule.tcp_flags(), "tcpflags", out);
}

int32_t RuleGenerator::GenTcpOptions(const FwRule& rule, std::string& out) const {
    return FillFlags(rule.tcp_opts(), "tcpoptions", out);
}

int32_t RuleGenerator::GenIpOptions(const FwRule& rule, std::string& out) const {
    return FillFlags(rule.ip_opts(), "ipoptions", out);
}

int32_t RuleGenerator::GenIpTos(const FwRule& rule, std::string& out) const {
    return FillFlags(rule.ip_tos(), "iptos", out);
}

int32_t RuleGenerator::GenMacAddr(const FwRule& rule, std::string& out) const {
    if (!rule.has_mac_addr()) {
        return 0;
    }
    // ipfw takes the destination first, then the source.
    out += " mac ";
    int32_t ret = FillMacAddr(rule.mac_addr().dst_mac(), out);
    out += " ";
    if (ret != 0) {
        return ret;
    }
    return FillMacAddr(rule.mac_addr().src_mac(), out);
}

int32_t RuleGenerator::GenDirection(const FwRule& rule, std::string& out) const {
    if (!rule.has_direction()) {
        return 0;
    }
    if (rule.direction() == DIRECT_IN) {
        out += " in";
    } else if (rule.direction() == DIRECT_OUT) {
        out += " out";
    }
    return 0;
}

int32_t RuleGenerator::GenViaInterface(const FwRule& rule, std::string& out) const {
    if (!rule.has_via_interface()) {
        return 0;
    }
    const FwIfSpec& iface = rule.via_interface();
    if (iface.type() == FW_IF_TYPE_NAME && !IsSafeInterfaceName(iface.device())) {
        QV_LOG(QV_LOG_ERROR, "%s invalid interface name %s", "RuleGenerator::GenViaInterface",
               iface.device().c_str());
        return FW_ERR_UNSAFE_TEXT;
    }
    out += " via ";
    if (iface.type() == FW_IF_TYPE_NAME) {
        // The command line goes through /bin/sh, which would expand an unquoted "*" into
        // the names of files in its working directory; ipfw must get the wildcard itself.
        for (char c : iface.device()) {
            out += c == '*' ? std::string("\\*") : std::string(1, c);
        }
    } else {
        out += std::to_string(iface.ip());
    }
    return 0;
}

int32_t RuleGenerator::GenKeepState(const FwRule& rule, std::string& out) const {
    if (rule.has_keep_state() && rule.keep_state()) {
        out += " keep-state";
    }
    return 0;
}

int32_t RuleGenerator::GetIpAndMask(const FwIp& ip, std::string& out) const {
    if (ip.ip_type() == IP_ME) {
        out += "me";
        return 0;
    }
    if (ip.ip_type() == IP_ANY) {
        out += "any";
        return 0;
    }
    // Every host name is checked before any of the list is written.
    for (const IpAddr& addr : ip.ips()) {
        if (addr.use_host_name() && addr.has_host() && !IsSafeHostName(addr.host())) {
            QV_LOG(QV_LOG_ERROR, "%s invalid host name %s", "RuleGenerator::GetIpAndMask",
                   addr.host().c_str());
            return FW_ERR_UNSAFE_TEXT;
        }
    }
    const int count = ip.ips_size();
    for (int i = 0; i < count; ++i) {
        const IpAddr& addr = ip.ips(i);
        if (addr.use_host_name()) {
            if (!addr.has_host()) {
                continue;
            }
            out += addr.host();
        } else {
            if (!addr.has_ip()) {
                continue;
            }
            out += std::to_string(addr.ip());
            if (addr.has_mask_len()) {
                out += "/";
                out += std::to_string(addr.mask_len());
            }
        }
        // The separator depends only on the index, so a skipped last entry leaves the
        // previous one's comma in place.
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

int32_t RuleGenerator::FillPort(const FwPort& port, std::string& out) const {
    if (port.port_type() == PORT_ANY) {
        out += "any";
        return 0;
    }
    const int count = port.ports_size();
    for (int i = 0; i < count; ++i) {
        const Port& entry = port.ports(i);
        if (entry.use_range()) {
            out += std::to_string(entry.port_range().from());
            out += "-";
            out += std::to_string(entry.port_range().to());
        } else {
            out += std::to_string(entry.port());
        }
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

int32_t RuleGenerator::IntArray2String(const google::protobuf::RepeatedField<int>& values,
                                       std::string& out) const {
    const int count = values.size();
    for (int i = 0; i < count; ++i) {
        out += std::to_string(values.Get(i));
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

template <typename T>
int32_t RuleGenerator::FillFlags(const google::protobuf::RepeatedPtrField<T>& list,
                                 const std::string& name, std::string& out) const {
    if (list.empty()) {
        return 0;
    }
    out += " ";
    out += name;
    out += " ";
    const StringMap* keywords = StringMap::getObj();
    const int count = list.size();
    for (int i = 0; i < count; ++i) {
        const T& entry = list.Get(i);
        if (entry.has_exclude() && entry.exclude()) {
            // The shell consumes the backslash, so ipfw receives "!".
            out += "\\!";
        }
        keywords->getString(static_cast<typename FlagEnum<T>::type>(entry.value()), out);
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

template int32_t RuleGenerator::FillFlags<TcpFlags>(
    const google::protobuf::RepeatedPtrField<TcpFlags>&, const std::string&, std::string&) const;
template int32_t RuleGenerator::FillFlags<TcpOption>(
    const google::protobuf::RepeatedPtrField<TcpOption>&, const std::string&, std::string&) const;
template int32_t RuleGenerator::FillFlags<IpOption>(
    const google::protobuf::RepeatedPtrField<IpOption>&, const std::string&, std::string&) const;
template int32_t RuleGenerator::FillFlags<IpTosOpt>(
    const google::protobuf::RepeatedPtrField<IpTosOpt>&, const std::string&, std::string&) const;

int32_t RuleGenerator::VerifyMacAddr(const std::string& mac) const {
    // The matcher sees a C string: an embedded NUL would hide whatever follows it.
    if (mac.find('\0') != std::string::npos) {
        return REG_NOMATCH;
    }
    regex_t regex;
    int ret = regcomp(&regex, "^([0-9a-fA-F]{2})((:[0-9a-fA-F]{2}){5})$",
                      REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to compile regular expression",
               "RuleGenerator::VerifyMacAddr");
        return ret;
    }
    ret = regexec(&regex, mac.c_str(), 0, nullptr, 0);
    regfree(&regex);
    return ret;
}

int32_t RuleGenerator::FillMacAddr(const MacAddr& mac, std::string& out) const {
    // An absent side reads as an empty address: no type, no address. Both sides of a MAC
    // match must be given, so only an explicit MAC_ANY means "any".
    if (mac.has_type() && mac.type() == MAC_ANY) {
        out += "any";
        return 0;
    }
    if (!mac.has_mac()) {
        QV_LOG(QV_LOG_ERROR, "%s do not have mac addr", "RuleGenerator::FillMacAddr");
        return FW_ERR_MAC;
    }
    if (VerifyMacAddr(mac.mac()) != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Mac address %s invalid", "RuleGenerator::FillMacAddr",
               mac.mac().c_str());
        return FW_ERR_MAC;
    }
    out += mac.mac();
    if (mac.has_mask_len()) {
        out += "/";
        out += std::to_string(mac.mask_len());
    }
    return 0;
}

}  // namespace vela
}  // namespace qor
