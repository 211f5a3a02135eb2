// The packet that ipfw logged, read from the text of its log line as the kernel writes it
// ("3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0"; with or without the syslog
// prefix up to "ipfw:"). Lines that are not about one packet ("limit 5 reached on entry
// 3100", "lost 7 logged packets") do not read.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>

namespace qvfwd {

struct PacketLine {
    uint32_t rule = 0;
    std::string action;    // lower case, with its argument: "deny", "unreach 3", "skipto 3200"
    std::string protocol;  // "tcp", "udp", "icmp", or the number for others
    std::string source;    // dotted address
    std::string destination;
    std::optional<uint32_t> sourcePort;  // TCP and UDP only
    std::optional<uint32_t> destinationPort;
    std::optional<uint32_t> icmpType;  // ICMP only
    std::optional<uint32_t> icmpCode;
    std::string direction;  // "in", "out", or empty without interface information
    std::string interface;
    std::string text;  // the line from the rule number on, without its line end

    // The action's first word ("unreach" for "unreach 3"), for counting.
    std::string ActionWord() const { return action.substr(0, action.find(' ')); }
};

// The line's text without the syslog prefix, the trailing newline and NUL.
std::string LogText(const std::string& detail);

std::optional<PacketLine> ReadPacketLine(const std::string& detail);

}  // namespace qvfwd
