#include "ipfwsim/MacText.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace ipfwsim {
namespace {

constexpr const char* kMacCharacters = "0123456789abcdefABCDEF:";

unsigned hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    return static_cast<unsigned>(std::tolower(static_cast<unsigned char>(c)) - 'a' + 10);
}

// ether_aton(3) as BSD writes it: six "%x" groups; anything after the sixth is ignored
// and a group keeps only its low byte.
bool parseEtherAddress(const std::string& text, MacBytes& bytes) {
    if (text.find_first_not_of(kMacCharacters) != std::string::npos) {
        return false;
    }
    size_t pos = 0;
    for (size_t group = 0; group < bytes.size(); ++group) {
        if (group > 0) {
            if (pos >= text.size() || text[pos] != ':') {
                return false;
            }
            ++pos;
        }
        size_t start = pos;
        unsigned value = 0;
        while (pos < text.size() && std::isxdigit(static_cast<unsigned char>(text[pos])) != 0) {
            value = value * 16 + hexDigit(text[pos]);
            ++pos;
        }
        if (pos == start) {
            return false;
        }
        bytes[group] = static_cast<uint8_t>(value & 0xff);
    }
    return true;
}

Status parseMaskLength(const std::string& text, MacBytes& mask) {
    char* end = nullptr;
    long bits = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || bits > 48 || bits < 0) {
        return Status::failure(kExitDataErr, "Incorrect mask length");
    }
    mask.fill(0);
    for (size_t i = 0; bits > 0 && i < mask.size(); ++i, bits -= 8) {
        mask[i] = bits >= 8 ? 0xff : static_cast<uint8_t>(0xff << (8 - bits));
    }
    return Status::success();
}

int contiguousBits(const MacBytes& mask) {
    int ones = 0;
    while (ones < 48 && (mask[ones / 8] & (0x80 >> (ones % 8))) != 0) {
        ++ones;
    }
    for (int bit = ones + 1; bit < 48; ++bit) {
        if ((mask[bit / 8] & (0x80 >> (bit % 8))) != 0) {
            return -1;
        }
    }
    return ones;
}

std::string hexBytes(const MacBytes& bytes) {
    char text[18];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return text;
}

}  // namespace

Status parseMacAddressMask(const std::string& text, MacBytes& address, MacBytes& mask) {
    if (text == "any") {
        address.fill(0);
        mask.fill(0);
        return Status::success();
    }
    size_t sep = text.find_first_of("&/");
    std::string head = text.substr(0, sep);
    if (head.empty() || !parseEtherAddress(head, address)) {
        return Status::failure(kExitDataErr, "Incorrect MAC address");
    }
    mask.fill(0xff);
    if (sep != std::string::npos) {
        std::string tail = text.substr(sep + 1);
        if (text[sep] == '/') {
            Status status = parseMaskLength(tail, mask);
            if (!status.ok()) {
                return status;
            }
        } else if (!parseEtherAddress(tail, mask)) {
            return Status::failure(kExitDataErr, "Incorrect mask");
        }
    }
    for (size_t i = 0; i < address.size(); ++i) {
        address[i] &= mask[i];
    }
    return Status::success();
}

std::string formatMacAddressMask(const MacBytes& address, const MacBytes& mask) {
    int bits = contiguousBits(mask);
    if (bits == 0) {
        return "any";
    }
    std::string text = hexBytes(address);
    if (bits == -1) {
        text += "&" + hexBytes(mask);
    } else if (bits < 48) {
        text += "/" + std::to_string(bits);
    }
    return text;
}

}  // namespace ipfwsim
