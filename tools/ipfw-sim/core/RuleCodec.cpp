#include "ipfwsim/RuleCodec.h"

#include <charconv>
#include <cstdio>
#include <vector>

namespace ipfwsim {
namespace {

struct KindName {
    MatchKind kind;
    const char* name;
};

constexpr KindName kKindNames[] = {{MatchKind::Proto, "proto"},
                                   {MatchKind::SrcAddr, "src"},
                                   {MatchKind::DstAddr, "dst"},
                                   {MatchKind::SrcMe, "src-me"},
                                   {MatchKind::DstMe, "dst-me"},
                                   {MatchKind::SrcPort, "src-port"},
                                   {MatchKind::DstPort, "dst-port"},
                                   {MatchKind::IcmpTypes, "icmptypes"},
                                   {MatchKind::TcpFlags, "tcpflags"},
                                   {MatchKind::TcpOptions, "tcpoptions"},
                                   {MatchKind::IpOptions, "ipoptions"},
                                   {MatchKind::IpTos, "iptos"},
                                   {MatchKind::Established, "established"},
                                   {MatchKind::Mac, "mac"},
                                   {MatchKind::In, "in"},
                                   {MatchKind::Via, "via"},
                                   {MatchKind::Recv, "recv"},
                                   {MatchKind::Xmit, "xmit"},
                                   {MatchKind::KeepState, "keep-state"}};

const char* kindName(MatchKind kind) {
    for (const KindName& entry : kKindNames) {
        if (entry.kind == kind) {
            return entry.name;
        }
    }
    return "?";
}

bool kindByName(std::string_view name, MatchKind& kind) {
    for (const KindName& entry : kKindNames) {
        if (name == entry.name) {
            kind = entry.kind;
            return true;
        }
    }
    return false;
}

std::string hex32(uint32_t value) {
    char text[9];
    std::snprintf(text, sizeof(text), "%08x", value);
    return text;
}

std::string macHex(const MacBytes& bytes) {
    char text[13];
    std::snprintf(text, sizeof(text), "%02x%02x%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return text;
}

// Interface names may hold any byte; everything that could break a token is %-escaped.
std::string escapeName(const std::string& name) {
    std::string out;
    for (unsigned char c : name) {
        if (c <= 0x20 || c >= 0x7f || c == '%') {
            char text[4];
            std::snprintf(text, sizeof(text), "%%%02X", c);
            out += text;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

template <typename T>
bool parseNumber(std::string_view text, T& value, int base = 10) {
    if (text.empty()) {
        return false;
    }
    auto result = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

bool unescapeName(std::string_view text, std::string& name) {
    name.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            name += text[i];
            continue;
        }
        uint8_t byte = 0;
        if (i + 2 >= text.size()) {
            return false;
        }
        if (!parseNumber(text.substr(i + 1, 2), byte, 16)) {
            return false;
        }
        name += static_cast<char>(byte);
        i += 2;
    }
    return true;
}

bool parseMacHex(std::string_view text, MacBytes& bytes) {
    if (text.size() != 12) {
        return false;
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (!parseNumber(text.substr(2 * i, 2), bytes[i], 16)) {
            return false;
        }
    }
    return true;
}

std::vector<std::string_view> split(std::string_view text, char sep) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (true) {
        size_t end = text.find(sep, start);
        parts.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) {
            return parts;
        }
        start = end + 1;
    }
}

std::string matchValue(const Match& match) {
    std::string text;
    switch (match.kind) {
        case MatchKind::Proto:
            return std::to_string(match.value);
        case MatchKind::IcmpTypes:
        case MatchKind::TcpFlags:
        case MatchKind::TcpOptions:
        case MatchKind::IpOptions:
        case MatchKind::IpTos:
            return hex32(match.value);
        case MatchKind::SrcAddr:
        case MatchKind::DstAddr:
            for (const AddressMask& element : match.addresses) {
                text +=
                    (text.empty() ? "" : ",") + hex32(element.address) + "/" + hex32(element.mask);
            }
            return text;
        case MatchKind::SrcPort:
        case MatchKind::DstPort:
            for (const PortRange& range : match.ports) {
                text += (text.empty() ? "" : ",") + std::to_string(range.low) + "-" +
                        std::to_string(range.high);
            }
            return text;
        case MatchKind::Mac:
            return macHex(match.mac.dstAddress) + "/" + macHex(match.mac.dstMask) + "/" +
                   macHex(match.mac.srcAddress) + "/" + macHex(match.mac.srcMask);
        case MatchKind::Via:
        case MatchKind::Recv:
        case MatchKind::Xmit:
            return match.iface.byName() ? "n:" + escapeName(match.iface.name)
                                        : "a:" + hex32(match.iface.address);
        default:
            return text;
    }
}

bool hasValue(MatchKind kind) {
    return kind != MatchKind::SrcMe && kind != MatchKind::DstMe && kind != MatchKind::Established &&
           kind != MatchKind::In && kind != MatchKind::KeepState;
}

bool decodeAddresses(std::string_view text, Match& match) {
    for (std::string_view element : split(text, ',')) {
        std::vector<std::string_view> parts = split(element, '/');
        AddressMask address;
        if (parts.size() != 2 || !parseNumber(parts[0], address.address, 16) ||
            !parseNumber(parts[1], address.mask, 16)) {
            return false;
        }
        match.addresses.push_back(address);
    }
    return true;
}

bool decodePorts(std::string_view text, Match& match) {
    for (std::string_view element : split(text, ',')) {
        std::vector<std::string_view> parts = split(element, '-');
        PortRange range;
        if (parts.size() != 2 || !parseNumber(parts[0], range.low) ||
            !parseNumber(parts[1], range.high)) {
            return false;
        }
        match.ports.push_back(range);
    }
    return true;
}

bool decodeInterface(std::string_view text, InterfaceRef& iface) {
    if (text.substr(0, 2) == "n:") {
        return unescapeName(text.substr(2), iface.name) && !iface.name.empty();
    }
    return text.substr(0, 2) == "a:" && parseNumber(text.substr(2), iface.address, 16);
}

bool decodeMatchValue(std::string_view text, Match& match) {
    switch (match.kind) {
        case MatchKind::Proto:
            return parseNumber(text, match.value);
        case MatchKind::SrcAddr:
        case MatchKind::DstAddr:
            return decodeAddresses(text, match);
        case MatchKind::SrcPort:
        case MatchKind::DstPort:
            return decodePorts(text, match);
        case MatchKind::Mac: {
            std::vector<std::string_view> parts = split(text, '/');
            return parts.size() == 4 && parseMacHex(parts[0], match.mac.dstAddress) &&
                   parseMacHex(parts[1], match.mac.dstMask) &&
                   parseMacHex(parts[2], match.mac.srcAddress) &&
                   parseMacHex(parts[3], match.mac.srcMask);
        }
        case MatchKind::Via:
        case MatchKind::Recv:
        case MatchKind::Xmit:
            return decodeInterface(text, match.iface);
        default:
            return parseNumber(text, match.value, 16);
    }
}

bool decodeMatch(std::string_view token, Match& match) {
    match.negated = !token.empty() && token[0] == '!';
    if (match.negated) {
        token.remove_prefix(1);
    }
    size_t colon = token.find(':');
    std::string_view name = token.substr(0, colon);
    if (!kindByName(name, match.kind)) {
        return false;
    }
    if (!hasValue(match.kind)) {
        return colon == std::string_view::npos;
    }
    return colon != std::string_view::npos && decodeMatchValue(token.substr(colon + 1), match);
}

bool decodeAction(std::string_view text, Action& action) {
    size_t colon = text.find(':');
    std::string_view name = text.substr(0, colon);
    std::string_view argument = colon == std::string_view::npos ? "" : text.substr(colon + 1);
    if (name == "reject" || name == "skipto") {
        action.kind = name == "reject" ? ActionKind::Reject : ActionKind::Skipto;
        return parseNumber(argument, action.argument);
    }
    const std::pair<const char*, ActionKind> simple[] = {{"allow", ActionKind::Allow},
                                                         {"deny", ActionKind::Deny},
                                                         {"count", ActionKind::Count},
                                                         {"check-state", ActionKind::CheckState}};
    for (const auto& entry : simple) {
        if (text == entry.first) {
            action.kind = entry.second;
            return true;
        }
    }
    return false;
}

std::string actionToken(const Action& action) {
    switch (action.kind) {
        case ActionKind::Allow:
            return "allow";
        case ActionKind::Deny:
            return "deny";
        case ActionKind::Count:
            return "count";
        case ActionKind::CheckState:
            return "check-state";
        case ActionKind::Reject:
            return "reject:" + std::to_string(action.argument);
        case ActionKind::Skipto:
            return "skipto:" + std::to_string(action.argument);
    }
    return "?";
}

bool decodeHeadToken(std::string_view token, Rule& rule) {
    if (token.substr(0, 5) == "prob=") {
        rule.hasProbability = true;
        return parseNumber(token.substr(5), rule.probability);
    }
    if (token.substr(0, 4) == "log=") {
        rule.log = true;
        return parseNumber(token.substr(4), rule.logAmount);
    }
    if (token == "options-only") {
        rule.optionsOnly = true;
        return true;
    }
    return false;
}

}  // namespace

std::string encodeRule(const Rule& rule) {
    std::string text = "action=" + actionToken(rule.action);
    if (rule.hasProbability) {
        text += " prob=" + std::to_string(rule.probability);
    }
    if (rule.log) {
        text += " log=" + std::to_string(rule.logAmount);
    }
    if (rule.optionsOnly) {
        text += " options-only";
    }
    for (const Match& match : rule.matches) {
        text += std::string(" ") + (match.negated ? "!" : "") + kindName(match.kind);
        if (hasValue(match.kind)) {
            text += ":" + matchValue(match);
        }
    }
    return text;
}

bool decodeRule(std::string_view text, Rule& rule) {
    std::vector<std::string_view> tokens = split(text, ' ');
    if (tokens.empty() || tokens[0].substr(0, 7) != "action=" ||
        !decodeAction(tokens[0].substr(7), rule.action)) {
        return false;
    }
    size_t index = 1;
    while (index < tokens.size() && decodeHeadToken(tokens[index], rule)) {
        ++index;
    }
    for (; index < tokens.size(); ++index) {
        Match match;
        if (!decodeMatch(tokens[index], match)) {
            return false;
        }
        rule.matches.push_back(std::move(match));
    }
    return true;
}

}  // namespace ipfwsim
