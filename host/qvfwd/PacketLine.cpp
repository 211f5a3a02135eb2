#include "PacketLine.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

namespace qvfwd {

namespace {

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    std::string word;
    while (stream >> word) {
        words.push_back(word);
    }
    return words;
}

bool ReadNumber(const std::string& text, uint32_t* value) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    *value = static_cast<uint32_t>(std::stoul(text));
    return true;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool IsAddress(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
}

// "10.0.0.1:1234" into its address and port.
bool ReadEndpoint(const std::string& text, std::string* address, std::optional<uint32_t>* port) {
    size_t colon = text.rfind(':');
    uint32_t number = 0;
    if (colon == std::string::npos || !ReadNumber(text.substr(colon + 1), &number) ||
        !IsAddress(text.substr(0, colon))) {
        return false;
    }
    *address = text.substr(0, colon);
    *port = number;
    return true;
}

// "ICMP:8.0" or "P:47": the protocol word of a packet without ports.
bool ReadPortless(const std::string& word, PacketLine* packet) {
    uint32_t type = 0;
    uint32_t code = 0;
    if (word.compare(0, 5, "ICMP:") == 0) {
        size_t dot = word.find('.', 5);
        if (dot == std::string::npos || !ReadNumber(word.substr(5, dot - 5), &type) ||
            !ReadNumber(word.substr(dot + 1), &code)) {
            return false;
        }
        packet->protocol = "icmp";
        packet->icmpType = type;
        packet->icmpCode = code;
        return true;
    }
    if (word.compare(0, 2, "P:") == 0 && ReadNumber(word.substr(2), &type)) {
        packet->protocol = std::to_string(type);
        return true;
    }
    return false;
}

}  // namespace

std::string LogText(const std::string& detail) {
    std::string text = detail;
    size_t tag = text.find("ipfw:");
    if (tag != std::string::npos) {
        text = text.substr(tag + 5);
    }
    text.erase(text.find_last_not_of(std::string(" \n\r\0", 4)) + 1);
    text.erase(0, std::min(text.size(), text.find_first_not_of(' ')));
    return text;
}

std::optional<PacketLine> ReadPacketLine(const std::string& detail) {
    PacketLine packet;
    packet.text = LogText(detail);
    const std::vector<std::string> words = Words(packet.text);
    size_t at = 0;
    if (words.size() < 5 || !ReadNumber(words[at++], &packet.rule)) {
        return std::nullopt;
    }
    packet.action = Lower(words[at++]);
    uint32_t argument = 0;
    if ((packet.action == "unreach" || packet.action == "skipto") &&
        ReadNumber(words[at], &argument)) {
        packet.action += " " + words[at++];
    }
    if (words.size() < at + 3) {
        return std::nullopt;
    }
    const std::string& protocol = words[at++];
    if (protocol == "TCP" || protocol == "UDP") {
        packet.protocol = Lower(protocol);
        if (!ReadEndpoint(words[at], &packet.source, &packet.sourcePort) ||
            !ReadEndpoint(words[at + 1], &packet.destination, &packet.destinationPort)) {
            return std::nullopt;
        }
    } else if (ReadPortless(protocol, &packet) && IsAddress(words[at]) &&
               IsAddress(words[at + 1])) {
        packet.source = words[at];
        packet.destination = words[at + 1];
    } else {
        return std::nullopt;
    }
    at += 2;
    if (words.size() == at + 3 && (words[at] == "in" || words[at] == "out") &&
        words[at + 1] == "via") {
        packet.direction = words[at];
        packet.interface = words[at + 2];
    } else if (!(words.size() == at + 3 && words[at] == "[no" && words[at + 2] == "info]") &&
               words.size() != at) {
        return std::nullopt;
    }
    return packet;
}

}  // namespace qvfwd
