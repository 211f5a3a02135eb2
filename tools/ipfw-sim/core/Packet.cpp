#include <cctype>
#include <cstdlib>

#include "ipfwsim/Inet.h"
#include "ipfwsim/KeywordTables.h"
#include "ipfwsim/MacText.h"
#include "ipfwsim/Packet.h"

namespace ipfwsim {
namespace {

Status packetError(const std::string& text) {
    return Status::failure(kExitUsage, "packet: " + text);
}

bool parseUnsigned(const std::string& text, unsigned long max, unsigned long& value) {
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) == 0) {
        return false;
    }
    char* end = nullptr;
    value = std::strtoul(text.c_str(), &end, 10);
    return *end == '\0' && value <= max;
}

Status parseEndpoint(const std::string& text, uint32_t& address, uint16_t& port) {
    size_t colon = text.find(':');
    std::string host = text.substr(0, colon);
    if (!parseInetAton(host, address)) {
        return packetError("bad address ``" + host + "''");
    }
    port = 0;
    if (colon != std::string::npos) {
        unsigned long value = 0;
        if (!parseUnsigned(text.substr(colon + 1), 65535, value)) {
            return packetError("bad port in ``" + text + "''");
        }
        port = static_cast<uint16_t>(value);
    }
    return Status::success();
}

Status parseProtocol(const std::string& word, const NameService& names, uint8_t& proto) {
    unsigned long number = 0;
    if (parseUnsigned(word, 255, number)) {
        proto = static_cast<uint8_t>(number);
        return Status::success();
    }
    if (!names.protocolByName(word, proto)) {
        return packetError("unknown protocol ``" + word + "''");
    }
    return Status::success();
}

Status parseFlags(const std::string& text, const KeywordList& table, uint8_t& bits) {
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        std::string name = text.substr(start, comma == std::string::npos ? comma : comma - start);
        int value = lookupKeyword(table, name);
        if (value <= 0) {
            return packetError("unknown flag ``" + name + "''");
        }
        bits |= static_cast<uint8_t>(value);
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return Status::success();
}

Status parseIcmpType(const std::string& text, Packet& packet) {
    size_t dot = text.find('.');
    unsigned long type = 0;
    unsigned long code = 0;
    if (!parseUnsigned(text.substr(0, dot), 255, type) ||
        (dot != std::string::npos && !parseUnsigned(text.substr(dot + 1), 255, code))) {
        return packetError("bad ICMP type ``" + text + "''");
    }
    packet.icmpType = static_cast<uint8_t>(type);
    packet.icmpCode = static_cast<uint8_t>(code);
    return Status::success();
}

uint32_t defaultLength(uint8_t proto) {
    constexpr uint32_t kIpHeader = 20;
    switch (proto) {
        case kProtoTcp:
            return kIpHeader + 20;
        case kProtoUdp:
        case kProtoIcmp:
            return kIpHeader + 8;
        default:
            return kIpHeader;
    }
}

Status parseMacPair(const std::string& dst, const std::string& src, Packet& packet) {
    MacBytes mask{};
    Status status = parseMacAddressMask(dst, packet.dstMac, mask);
    if (status.ok()) {
        status = parseMacAddressMask(src, packet.srcMac, mask);
    }
    if (!status.ok()) {
        return packetError(status.message);
    }
    packet.layer2 = true;
    return Status::success();
}

Status parseOption(const std::vector<std::string>& words, size_t& pos, Packet& packet) {
    const std::string& word = words[pos++];
    if (word == "in" || word == "out") {
        packet.outbound = word == "out";
        return Status::success();
    }
    if (pos >= words.size()) {
        return packetError("missing value after " + word);
    }
    const std::string& value = words[pos++];
    if (word == "via") {
        packet.iface = value;
        return Status::success();
    }
    if (word == "ifaddr") {
        packet.hasIfaceAddress = parseInetAton(value, packet.ifaceAddress);
        return packet.hasIfaceAddress ? Status::success()
                                      : packetError("bad address ``" + value + "''");
    }
    if (word == "tcpflags") {
        return parseFlags(value, tcpFlagKeywords(), packet.tcpFlags);
    }
    if (word == "tcpoptions") {
        return parseFlags(value, tcpOptionKeywords(), packet.tcpOptions);
    }
    if (word == "ipoptions") {
        return parseFlags(value, ipOptionKeywords(), packet.ipOptions);
    }
    if (word == "iptos") {
        return parseFlags(value, ipTosKeywords(), packet.ipTos);
    }
    if (word == "icmptype") {
        return parseIcmpType(value, packet);
    }
    if (word == "len") {
        unsigned long length = 0;
        if (!parseUnsigned(value, 65535, length)) {
            return packetError("bad length ``" + value + "''");
        }
        packet.length = static_cast<uint32_t>(length);
        return Status::success();
    }
    if (word == "mac") {
        if (pos >= words.size()) {
            return packetError("mac needs a destination and a source");
        }
        return parseMacPair(value, words[pos++], packet);
    }
    return packetError("unknown keyword ``" + word + "''");
}

}  // namespace

Status parsePacket(const std::vector<std::string>& words, const NameService& names,
                   Packet& packet) {
    if (words.size() < 3) {
        return packetError("needs a protocol, a source and a destination");
    }
    packet = Packet{};
    Status status = parseProtocol(words[0], names, packet.flow.proto);
    if (status.ok()) {
        status = parseEndpoint(words[1], packet.flow.srcAddress, packet.flow.srcPort);
    }
    if (status.ok()) {
        status = parseEndpoint(words[2], packet.flow.dstAddress, packet.flow.dstPort);
    }
    size_t pos = 3;
    while (status.ok() && pos < words.size()) {
        status = parseOption(words, pos, packet);
    }
    if (status.ok() && packet.length == 0) {
        packet.length = defaultLength(packet.flow.proto);
    }
    return status;
}

}  // namespace ipfwsim
