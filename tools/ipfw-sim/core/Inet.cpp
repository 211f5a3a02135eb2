#include "ipfwsim/Inet.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace ipfwsim {

bool parseInetAton(const std::string& text, uint32_t& address) {
    in_addr parsed{};
    if (inet_aton(text.c_str(), &parsed) == 0) {
        return false;
    }
    address = ntohl(parsed.s_addr);
    return true;
}

bool lookupHost(const NameService& names, const std::string& text, uint32_t& address) {
    return parseInetAton(text, address) || names.resolveHost(text, address);
}

std::string dottedQuad(uint32_t address) {
    return std::to_string(address >> 24) + "." + std::to_string((address >> 16) & 0xff) + "." +
           std::to_string((address >> 8) & 0xff) + "." + std::to_string(address & 0xff);
}

int contiguousMaskLength(uint32_t mask) {
    int ones = 0;
    while (ones < 32 && (mask & (0x80000000u >> ones)) != 0) {
        ++ones;
    }
    const uint32_t rest = ones == 32 ? 0 : (mask << ones);
    return rest == 0 ? ones : -1;
}

uint32_t maskOfLength(int bits) {
    if (bits <= 0) {
        return 0;
    }
    return bits >= 32 ? 0xffffffffu : ~0u << (32 - bits);
}

}  // namespace ipfwsim
