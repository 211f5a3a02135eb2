#include "AddressWords.h"

#include <cctype>

#include "CtlArguments.h"
#include "QvRuleNames.h"

namespace qvctl {

namespace {

using qor::vela::FwIp;
using qor::vela::IpAddr;

constexpr unsigned int kMaxMaskLength = 32;
constexpr unsigned int kMaxMacMaskLength = 48;
constexpr size_t kMacTextLength = 17;  // six pairs and five colons

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

bool OnlyDigitsAndDots(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
}

bool ReadDottedAddress(const std::string& text, uint32_t* address) {
    uint32_t value = 0;
    size_t start = 0;
    for (int part = 0; part < 4; ++part) {
        size_t end = part == 3 ? text.size() : text.find('.', start);
        unsigned int byte = 0;
        if (end == std::string::npos || !ParseUnsigned(text.substr(start, end - start), &byte) ||
            byte > 255 || end - start > 3) {
            return false;
        }
        value = (value << 8) | byte;
        start = end + 1;
    }
    *address = value;
    return true;
}

// One entry of an address list: ADDRESS[/MASK] or a host name.
bool ReadAddressEntry(const std::string& entry, IpAddr* addr, std::string* expected) {
    size_t slash = entry.find('/');
    std::string head = entry.substr(0, slash);
    uint32_t address = 0;
    if (OnlyDigitsAndDots(head)) {
        if (!ReadAddress(head, &address)) {
            *expected = "an IPv4 address instead of " + Quoted(head);
            return false;
        }
        addr->set_use_host_name(false);
        addr->set_ip(address);
        if (slash == std::string::npos) {
            return true;
        }
        unsigned int mask = 0;
        if (!ParseUnsigned(entry.substr(slash + 1), &mask) || mask > kMaxMaskLength) {
            *expected = "a mask length from 0 to 32 after " + Quoted(head + "/");
            return false;
        }
        addr->set_mask_len(mask);
        return true;
    }
    if (slash != std::string::npos) {
        *expected = "a host name without a mask (" + Quoted(entry) + ")";
        return false;
    }
    if (head.empty() || !qor::vela::IsSafeHostName(head)) {
        *expected =
            "an address, ADDRESS/MASK or a host name (letters, digits, '.', '-', '_') "
            "instead of " +
            Quoted(head);
        return false;
    }
    addr->set_use_host_name(true);
    addr->set_host(head);
    return true;
}

// "167838211/24,host" as "10.1.2.3/24,host".
std::string DottedList(const std::string& word) {
    std::string out;
    size_t start = 0;
    while (true) {
        size_t comma = word.find(',', start);
        std::string entry = word.substr(start, comma - start);
        std::string head = entry.substr(0, entry.find('/'));
        unsigned int address = 0;
        if (head.find('.') == std::string::npos && ParseUnsigned(head, &address)) {
            entry = DottedAddress(address) + entry.substr(head.size());
        }
        out += entry;
        if (comma == std::string::npos) {
            return out;
        }
        out += ",";
        start = comma + 1;
    }
}

bool IsMacPair(const std::string& text, size_t at) {
    return isxdigit(static_cast<unsigned char>(text[at])) &&
           isxdigit(static_cast<unsigned char>(text[at + 1]));
}

// Six colon-separated pairs of hexadecimal digits, as the generator checks them.
bool IsMacText(const std::string& text) {
    if (text.size() != kMacTextLength) {
        return false;
    }
    for (size_t at = 0; at < kMacTextLength; at += 3) {
        if (!IsMacPair(text, at) || (at + 2 < kMacTextLength && text[at + 2] != ':')) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ReadAddress(const std::string& text, uint32_t* address) {
    if (text.find('.') != std::string::npos) {
        return ReadDottedAddress(text, address);
    }
    unsigned int number = 0;
    if (!ParseUnsigned(text, &number)) {
        return false;
    }
    *address = number;
    return true;
}

std::string DottedAddress(uint32_t address) {
    return std::to_string(address >> 24) + "." + std::to_string((address >> 16) & 0xff) + "." +
           std::to_string((address >> 8) & 0xff) + "." + std::to_string(address & 0xff);
}

std::string WithDottedAddresses(const std::string& text) {
    std::string out;
    std::string previous;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(' ', start);
        std::string word = text.substr(start, end == std::string::npos ? end : end - start);
        if (previous == "src-ip" || previous == "dst-ip" || previous == "via") {
            word = DottedList(word);
        }
        out += word + (end == std::string::npos ? "" : " ");
        previous = word;
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return out;
}

bool ReadAddressList(const std::string& word, FwIp* ip, std::string* expected) {
    if (word == "me" || word == "any") {
        ip->set_ip_type(word == "me" ? qor::vela::IP_ME : qor::vela::IP_ANY);
        return true;
    }
    ip->set_ip_type(qor::vela::IP_LIST);
    size_t start = 0;
    while (true) {
        size_t comma = word.find(',', start);
        std::string entry = word.substr(start, comma - start);
        if (!ReadAddressEntry(entry, ip->add_ips(), expected)) {
            return false;
        }
        if (comma == std::string::npos) {
            return true;
        }
        start = comma + 1;
    }
}

bool ReadInterface(const std::string& word, qor::vela::FwIfSpec* iface, std::string* expected) {
    uint32_t address = 0;
    if (OnlyDigitsAndDots(word)) {
        if (!ReadAddress(word, &address)) {
            *expected = "an interface name or an IPv4 address";
            return false;
        }
        iface->set_type(qor::vela::FW_IF_TYPE_2);
        iface->set_ip(address);
        return true;
    }
    // The generator shields ipfw's wildcard from the shell as "\*"; both spellings mean it.
    std::string device;
    for (size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '\\' && i + 1 < word.size() && word[i + 1] == '*') {
            continue;
        }
        device += word[i];
    }
    if (device.empty() || !qor::vela::IsSafeInterfaceName(device)) {
        *expected = "an interface name of at most 15 letters, digits, '.', '_', '-', '*'";
        return false;
    }
    iface->set_type(qor::vela::FW_IF_TYPE_NAME);
    iface->set_device(device);
    return true;
}

bool ReadMacAddress(const std::string& word, qor::vela::MacAddr* mac, std::string* expected) {
    if (word == "any") {
        mac->set_type(qor::vela::MAC_ANY);
        return true;
    }
    size_t slash = word.find('/');
    std::string text = word.substr(0, slash);
    unsigned int mask = 0;
    if (!IsMacText(text) ||
        (slash != std::string::npos &&
         (!ParseUnsigned(word.substr(slash + 1), &mask) || mask > kMaxMacMaskLength))) {
        *expected = "any or a MAC address xx:xx:xx:xx:xx:xx[/MASK]";
        return false;
    }
    mac->set_type(qor::vela::MAC_SPECIFIED);
    mac->set_mac(text);
    if (slash != std::string::npos) {
        mac->set_mask_len(mask);
    }
    return true;
}

}  // namespace qvctl
