#include "ipfwsim/RuleLister.h"

#include <cstdio>

#include "ipfwsim/Inet.h"
#include "ipfwsim/KeywordTables.h"
#include "ipfwsim/MacText.h"

namespace ipfwsim {
namespace {

// Which parts of "PROTO from SRC to DST" have been printed; once all three have,
// every further condition is printed in its option form.
constexpr int kHaveProto = 0x1;
constexpr int kHaveSrc = 0x2;
constexpr int kHaveDst = 0x4;
constexpr int kHaveOptions = 0x8000;
constexpr int kHaveAll = kHaveProto | kHaveSrc | kHaveDst;

void fillPrerequisites(std::string& out, int& flags, int want) {
    if ((flags & kHaveAll) == kHaveAll) {
        flags |= kHaveOptions;
    }
    if ((flags & kHaveOptions) == 0) {
        if ((flags & kHaveProto) == 0 && (want & kHaveProto) != 0) {
            out += " ip";
        }
        if ((flags & kHaveSrc) == 0 && (want & kHaveSrc) != 0) {
            out += " from any";
        }
        if ((flags & kHaveDst) == 0 && (want & kHaveDst) != 0) {
            out += " to any";
        }
    }
    flags |= want;
}

std::string addressList(const Match& match) {
    if (match.kind == MatchKind::SrcMe || match.kind == MatchKind::DstMe) {
        return "me";
    }
    std::string text;
    for (size_t i = 0; i < match.addresses.size(); ++i) {
        const AddressMask& element = match.addresses[i];
        int bits = contiguousMaskLength(element.mask);
        if (bits == 0) {
            text += "any";
        } else {
            text += dottedQuad(element.address);
            if (bits < 0) {
                text += ":" + dottedQuad(element.mask);
            } else if (bits < 32) {
                text += "/" + std::to_string(bits);
            }
        }
        if (i + 1 < match.addresses.size()) {
            text += ",";
        }
    }
    return text;
}

std::string portList(const Match& match) {
    std::string text;
    const char* sep = " ";
    for (const PortRange& range : match.ports) {
        text += sep + std::to_string(range.low);
        if (range.low != range.high) {
            text += "-" + std::to_string(range.high);
        }
        sep = ",";
    }
    return text;
}

std::string flagList(const char* name, const Match& match, const KeywordList& table) {
    uint32_t set = match.value & 0xff;
    uint32_t clear = (match.value >> 8) & 0xff;
    if (match.kind == MatchKind::TcpFlags && set == kTcpSyn && clear == kTcpAck) {
        return " setup";
    }
    std::string text = std::string(" ") + name + " ";
    const char* comma = "";
    for (const Keyword& entry : table) {
        if ((set & entry.value) != 0) {
            set &= ~entry.value;
            text += comma + std::string(entry.name);
            comma = ",";
        }
        if ((clear & entry.value) != 0) {
            clear &= ~entry.value;
            text += comma + std::string("!") + entry.name;
            comma = ",";
        }
    }
    return text;
}

std::string icmpTypeList(uint32_t bits) {
    std::string text = " icmptypes";
    char sep = ' ';
    for (int type = 0; type < 32; ++type) {
        if ((bits & (1u << type)) != 0) {
            text += sep + std::to_string(type);
            sep = ',';
        }
    }
    return text;
}

std::string interfaceText(const char* keyword, const InterfaceRef& iface) {
    return std::string(" ") + keyword + " " +
           (iface.byName() ? iface.name : dottedQuad(iface.address));
}

std::string optionText(const Match& match) {
    switch (match.kind) {
        case MatchKind::Mac:
            return " MAC " + formatMacAddressMask(match.mac.dstAddress, match.mac.dstMask) + " " +
                   formatMacAddressMask(match.mac.srcAddress, match.mac.srcMask);
        case MatchKind::In:
            return match.negated ? " out" : " in";
        case MatchKind::Via:
            return interfaceText("via", match.iface);
        case MatchKind::Recv:
            return interfaceText("recv", match.iface);
        case MatchKind::Xmit:
            return interfaceText("xmit", match.iface);
        case MatchKind::IcmpTypes:
            return icmpTypeList(match.value);
        case MatchKind::TcpFlags:
            return flagList("tcpflags", match, tcpFlagKeywords());
        case MatchKind::TcpOptions:
            return flagList("tcpoptions", match, tcpOptionKeywords());
        case MatchKind::IpOptions:
            return flagList("ipoptions", match, ipOptionKeywords());
        case MatchKind::IpTos:
            return flagList("iptos", match, ipTosKeywords());
        case MatchKind::Established:
            return " established";
        case MatchKind::KeepState:
            return " keep-state";
        default:
            return "";
    }
}

}  // namespace

int decimalWidth(uint64_t value) {
    return static_cast<int>(std::to_string(value).size());
}

RuleLister::RuleLister(const NameService& names) : names_(names) {}

std::string RuleLister::protocolText(uint32_t number) const {
    std::string name = number <= 0xff ? names_.protocolName(static_cast<uint8_t>(number)) : "";
    return name.empty() ? std::to_string(number) : name;
}

std::string RuleLister::actionText(const Rule& rule) const {
    const Action& action = rule.action;
    switch (action.kind) {
        case ActionKind::Allow:
            return "allow";
        case ActionKind::Deny:
            return "deny";
        case ActionKind::Count:
            return "count";
        case ActionKind::CheckState:
            return "check-state";
        case ActionKind::Skipto:
            return "skipto " + std::to_string(action.argument);
        case ActionKind::Reject:
            break;
    }
    if (action.argument == kRejectWithReset) {
        return "reset";
    }
    if (action.argument == kUnreachHost) {
        return "reject";
    }
    const char* name = keywordName(unreachCodeKeywords(), action.argument);
    return std::string("unreach ") + (name != nullptr ? name : std::to_string(action.argument));
}

std::string RuleLister::body(const Rule& rule) const {
    std::string out;
    if (rule.hasProbability) {
        char text[32];
        std::snprintf(text, sizeof(text), "prob %f ",
                      static_cast<double>(rule.probability) / kProbabilityScale);
        out += text;
    }
    out += actionText(rule);
    if (rule.log) {
        out += rule.logAmount > 0 ? " log logamount " + std::to_string(rule.logAmount) : " log";
    }
    // A check-state rule never shows "ip from any to any".
    int flags = rule.action.kind == ActionKind::CheckState ? kHaveAll : 0;
    if (rule.optionsOnly) {
        fillPrerequisites(out, flags, kHaveProto);
        out += " from any to any";
        flags |= kHaveAll | kHaveOptions;
    }
    for (const Match& match : rule.matches) {
        fillPrerequisites(out, flags, 0);
        out += conditionText(match, flags);
    }
    fillPrerequisites(out, flags, kHaveAll);
    return out;
}

// Before the options, addresses, ports and the protocol take their places in
// "PROTO from SRC [PORTS] to DST [PORTS]"; after, each is printed with its keyword.
std::string RuleLister::conditionText(const Match& match, int& flags) const {
    std::string out;
    const std::string notText = match.negated ? " not" : "";
    switch (match.kind) {
        case MatchKind::SrcAddr:
        case MatchKind::SrcMe:
            fillPrerequisites(out, flags, kHaveProto);
            out += (flags & kHaveSrc) == 0 ? " from" : "";
            out += notText + ((flags & kHaveOptions) != 0 ? " src-ip " : " ") + addressList(match);
            flags |= kHaveSrc;
            return out;
        case MatchKind::DstAddr:
        case MatchKind::DstMe:
            fillPrerequisites(out, flags, kHaveProto | kHaveSrc);
            out += (flags & kHaveDst) == 0 ? " to" : "";
            out += notText + ((flags & kHaveOptions) != 0 ? " dst-ip " : " ") + addressList(match);
            flags |= kHaveDst;
            return out;
        case MatchKind::DstPort:
        case MatchKind::SrcPort:
            if (match.kind == MatchKind::DstPort) {
                fillPrerequisites(out, flags, kHaveAll);
            }
            fillPrerequisites(out, flags, kHaveProto | kHaveSrc);
            out += notText;
            if ((flags & kHaveOptions) != 0) {
                out += match.kind == MatchKind::DstPort ? " dst-port" : " src-port";
            }
            return out + portList(match);
        case MatchKind::Proto:
            flags |= kHaveProto;
            return notText + ((flags & kHaveOptions) != 0 ? " proto " : " ") +
                   protocolText(match.value);
        default:
            fillPrerequisites(out, flags, kHaveAll | kHaveOptions);
            // "not in" is listed as "out", never as "not in".
            return out + (match.kind == MatchKind::In ? "" : notText) + optionText(match);
    }
}

std::string RuleLister::line(const Rule& rule, const Counters& counters,
                             const ListingStyle& style) const {
    bool disabled = (style.disabledSets & (1u << rule.set)) != 0;
    if (disabled && !style.sets) {
        return "";
    }
    char prefix[96];
    int used = std::snprintf(prefix, sizeof(prefix), "%s%05u ", disabled ? "# DISABLED " : "",
                             rule.number);
    if (style.counters) {
        used +=
            std::snprintf(prefix + used, sizeof(prefix) - static_cast<size_t>(used), "%*llu %*llu ",
                          style.packetWidth, static_cast<unsigned long long>(counters.packets),
                          style.byteWidth, static_cast<unsigned long long>(counters.bytes));
    }
    if (style.sets) {
        std::snprintf(prefix + used, sizeof(prefix) - static_cast<size_t>(used), "set %u ",
                      rule.set);
    }
    return prefix + body(rule) + "\n";
}

}  // namespace ipfwsim
