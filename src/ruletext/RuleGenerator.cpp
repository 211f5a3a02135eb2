#include "RuleGenerator.h"

#include <regex.h>

#include <locale>
#include <sstream>

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

}  // namespace

bool RuleGenerator::IsSafeHostName(const std::string& host) {
    return qor::vela::IsSafeHostName(host);
}

bool RuleGenerator::IsSafeInterfaceName(const std::string& device) {
    return qor::vela::IsSafeInterfaceName(device);
}

RuleGenerator::RuleGenerator(const RuleTextLog* log) : m_log(log) {
    InitFuncTab();
}

bool RuleGenerator::LogEnabled(int level) const {
    return m_log != nullptr && m_log->Enabled(level);
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

int32_t RuleGenerator::CreateRule(const RuleFields& rule, std::string& out) const {
    if (rule.hasProbability) {
        out += "prob ";
        out += formatProbability(rule.probability);
    }

    std::string action;
    if (StringMap::getObj()->getString(rule.action, action) != 0) {
        if (LogEnabled(RuleTextLog::kError)) {
            m_log->Write(RuleTextLog::kError, "RuleGenerator::CreateRule not support actions " +
                                                  std::to_string(static_cast<int>(rule.action)));
        }
        return FW_ERR_ACTION;
    }
    out += " ";
    out += action;

    // Denied and reset packets are logged so that the event watcher reports them;
    // allowed ones never are.
    if (action == "deny" || action == "reset") {
        out += " log logamount 0";
    }
    if (action == "check-state") {
        return 0;  // a check-state rule carries no other fragment
    }
    if (action == "unreach") {
        out += " ";
        out += std::to_string(rule.unreachCode);
        out += " log logamount 0";
    }
    return ParseOpt(rule, out);
}

int32_t RuleGenerator::ParseOpt(const RuleFields& rule, std::string& out) const {
    for (GenFunc func : m_funcTab) {
        int32_t ret = (this->*func)(rule, out);
        if (ret != 0) {
            return ret;
        }
    }
    if (LogEnabled(RuleTextLog::kDetail)) {
        m_log->Write(RuleTextLog::kDetail, "RuleGenerator::ParseOpt generated rule is " + out);
    }
    return 0;
}

int32_t RuleGenerator::GenProto(const RuleFields& rule, std::string& out) const {
    if (!rule.hasProtocol) {
        return 0;
    }
    if (rule.allProtocols) {
        out += " proto all";
        return 0;
    }
    if (rule.excludeProtocol) {
        out += " not";
    }
    out += " proto ";
    if (StringMap::getObj()->getString(rule.protocol, out) != 0) {
        out += "ip";
    }
    return 0;
}

int32_t RuleGenerator::GenSrcIp(const RuleFields& rule, std::string& out) const {
    if (!rule.srcIp.present) {
        return 0;
    }
    out += " src-ip ";
    return GetIpAndMask(rule.srcIp, out);
}

int32_t RuleGenerator::GenDstIp(const RuleFields& rule, std::string& out) const {
    if (!rule.dstIp.present) {
        return 0;
    }
    out += " dst-ip ";
    return GetIpAndMask(rule.dstIp, out);
}

int32_t RuleGenerator::GenSrcPort(const RuleFields& rule, std::string& out) const {
    if (!rule.srcPort.present) {
        return 0;
    }
    out += " src-port ";
    return FillPort(rule.srcPort, out);
}

int32_t RuleGenerator::GenDstPort(const RuleFields& rule, std::string& out) const {
    if (!rule.dstPort.present) {
        return 0;
    }
    out += " dst-port ";
    return FillPort(rule.dstPort, out);
}

int32_t RuleGenerator::GenIcmpType(const RuleFields& rule, std::string& out) const {
    if (rule.icmpTypes.empty()) {
        return 0;
    }
    out += " icmptypes ";
    return IntArray2String(rule.icmpTypes, out);
}

int32_t RuleGenerator::GenTcpFlags(const RuleFields& rule, std::string& out) const {
    return FillFlags(rule.tcpFlags, "tcpflags", out);
}

int32_t RuleGenerator::GenTcpOptions(const RuleFields& rule, std::string& out) const {
    return FillFlags(rule.tcpOptions, "tcpoptions", out);
}

int32_t RuleGenerator::GenIpOptions(const RuleFields& rule, std::string& out) const {
    return FillFlags(rule.ipOptions, "ipoptions", out);
}

int32_t RuleGenerator::GenIpTos(const RuleFields& rule, std::string& out) const {
    return FillFlags(rule.ipTos, "iptos", out);
}

int32_t RuleGenerator::GenMacAddr(const RuleFields& rule, std::string& out) const {
    if (!rule.hasMacAddr) {
        return 0;
    }
    // ipfw takes the destination first, then the source.
    out += " mac ";
    int32_t ret = FillMacAddr(rule.dstMac, out);
    out += " ";
    if (ret != 0) {
        return ret;
    }
    return FillMacAddr(rule.srcMac, out);
}

int32_t RuleGenerator::GenDirection(const RuleFields& rule, std::string& out) const {
    if (rule.direction == RuleFields::Direction::kIn) {
        out += " in";
    } else if (rule.direction == RuleFields::Direction::kOut) {
        out += " out";
    }
    return 0;
}

int32_t RuleGenerator::GenViaInterface(const RuleFields& rule, std::string& out) const {
    if (!rule.hasViaInterface) {
        return 0;
    }
    if (rule.viaByName && !IsSafeInterfaceName(rule.viaDevice)) {
        if (LogEnabled(RuleTextLog::kError)) {
            m_log->Write(RuleTextLog::kError,
                         "RuleGenerator::GenViaInterface invalid interface name " + rule.viaDevice);
        }
        return FW_ERR_UNSAFE_TEXT;
    }
    out += " via ";
    if (rule.viaByName) {
        // The command line goes through /bin/sh, which would expand an unquoted "*" into
        // the names of files in its working directory; ipfw must get the wildcard itself.
        for (char c : rule.viaDevice) {
            out += c == '*' ? std::string("\\*") : std::string(1, c);
        }
    } else {
        out += std::to_string(rule.viaIp);
    }
    return 0;
}

int32_t RuleGenerator::GenKeepState(const RuleFields& rule, std::string& out) const {
    if (rule.keepState) {
        out += " keep-state";
    }
    return 0;
}

int32_t RuleGenerator::GetIpAndMask(const RuleFields::Addresses& ip, std::string& out) const {
    if (ip.kind == RuleFields::Addresses::Kind::kMe) {
        out += "me";
        return 0;
    }
    if (ip.kind == RuleFields::Addresses::Kind::kAny) {
        out += "any";
        return 0;
    }
    // Every host name is checked before any of the list is written.
    for (const RuleFields::Address& addr : ip.entries) {
        if (addr.useHostName && addr.hasHost && !IsSafeHostName(addr.host)) {
            if (LogEnabled(RuleTextLog::kError)) {
                m_log->Write(RuleTextLog::kError,
                             "RuleGenerator::GetIpAndMask invalid host name " + addr.host);
            }
            return FW_ERR_UNSAFE_TEXT;
        }
    }
    const size_t count = ip.entries.size();
    for (size_t i = 0; i < count; ++i) {
        const RuleFields::Address& addr = ip.entries[i];
        if (addr.useHostName) {
            if (!addr.hasHost) {
                continue;
            }
            out += addr.host;
        } else {
            if (!addr.hasIp) {
                continue;
            }
            out += std::to_string(addr.ip);
            if (addr.hasMaskLen) {
                out += "/";
                out += std::to_string(addr.maskLen);
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

int32_t RuleGenerator::FillPort(const RuleFields::Ports& port, std::string& out) const {
    if (port.any) {
        out += "any";
        return 0;
    }
    const size_t count = port.entries.size();
    for (size_t i = 0; i < count; ++i) {
        const RuleFields::PortEntry& entry = port.entries[i];
        if (entry.useRange) {
            out += std::to_string(entry.from);
            out += "-";
            out += std::to_string(entry.to);
        } else {
            out += std::to_string(entry.port);
        }
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

int32_t RuleGenerator::IntArray2String(const std::vector<int>& values, std::string& out) const {
    const size_t count = values.size();
    for (size_t i = 0; i < count; ++i) {
        out += std::to_string(values[i]);
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

template <typename Enum>
int32_t RuleGenerator::FillFlags(const std::vector<RuleFields::Flag<Enum>>& list,
                                 const std::string& name, std::string& out) const {
    if (list.empty()) {
        return 0;
    }
    out += " ";
    out += name;
    out += " ";
    const StringMap* keywords = StringMap::getObj();
    const size_t count = list.size();
    for (size_t i = 0; i < count; ++i) {
        if (list[i].exclude) {
            // The shell consumes the backslash, so ipfw receives "!".
            out += "\\!";
        }
        keywords->getString(list[i].value, out);
        if (i != count - 1) {
            out += ",";
        }
    }
    return 0;
}

template int32_t RuleGenerator::FillFlags<TcpFlagEnum>(
    const std::vector<RuleFields::Flag<TcpFlagEnum>>&, const std::string&, std::string&) const;
template int32_t RuleGenerator::FillFlags<TcpOptionEnum>(
    const std::vector<RuleFields::Flag<TcpOptionEnum>>&, const std::string&, std::string&) const;
template int32_t RuleGenerator::FillFlags<IpOptionEnum>(
    const std::vector<RuleFields::Flag<IpOptionEnum>>&, const std::string&, std::string&) const;
template int32_t RuleGenerator::FillFlags<IpTosOptEnum>(
    const std::vector<RuleFields::Flag<IpTosOptEnum>>&, const std::string&, std::string&) const;

int32_t RuleGenerator::VerifyMacAddr(const std::string& mac) const {
    // The matcher sees a C string: an embedded NUL would hide whatever follows it.
    if (mac.find('\0') != std::string::npos) {
        return REG_NOMATCH;
    }
    regex_t regex;
    int ret = regcomp(&regex, "^([0-9a-fA-F]{2})((:[0-9a-fA-F]{2}){5})$",
                      REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (ret != 0) {
        if (LogEnabled(RuleTextLog::kError)) {
            m_log->Write(RuleTextLog::kError,
                         "RuleGenerator::VerifyMacAddr Failed to compile regular expression");
        }
        return ret;
    }
    ret = regexec(&regex, mac.c_str(), 0, nullptr, 0);
    regfree(&regex);
    return ret;
}

int32_t RuleGenerator::FillMacAddr(const RuleFields::Mac& mac, std::string& out) const {
    // An absent side reads as an empty address: no type, no address. Both sides of a MAC
    // match must be given, so only an explicit MAC_ANY means "any".
    if (mac.any) {
        out += "any";
        return 0;
    }
    if (!mac.hasMac) {
        if (LogEnabled(RuleTextLog::kError)) {
            m_log->Write(RuleTextLog::kError, "RuleGenerator::FillMacAddr do not have mac addr");
        }
        return FW_ERR_MAC;
    }
    if (VerifyMacAddr(mac.mac) != 0) {
        if (LogEnabled(RuleTextLog::kError)) {
            m_log->Write(RuleTextLog::kError,
                         "RuleGenerator::FillMacAddr Mac address " + mac.mac + " invalid");
        }
        return FW_ERR_MAC;
    }
    out += mac.mac;
    if (mac.hasMaskLen) {
        out += "/";
        out += std::to_string(mac.maskLen);
    }
    return 0;
}

}  // namespace vela
}  // namespace qor
