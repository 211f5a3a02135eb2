#include "SystemNameService.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "ipfwsim/Inet.h"

namespace ipfwsim {
namespace {

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Used only when the protocols database lacks an entry (minimal containers).
struct KnownProtocol {
    const char* name;
    uint8_t number;
};
constexpr KnownProtocol kKnownProtocols[] = {{"ip", 0},   {"icmp", 1}, {"igmp", 2},
                                             {"tcp", 6},  {"udp", 17}, {"gre", 47},
                                             {"esp", 50}, {"ah", 51},  {"sctp", 132}};

}  // namespace

SystemNameService::SystemNameService(bool useHostsText, const std::string& hostsText)
    : useHosts_(useHostsText) {
    std::istringstream lines(hostsText);
    std::string line;
    while (std::getline(lines, line)) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string addressText;
        uint32_t address = 0;
        if (!(words >> addressText) || !parseInetAton(addressText, address)) {
            continue;
        }
        std::string name;
        while (words >> name) {
            hosts_.emplace(lowered(name), address);
        }
    }
}

bool SystemNameService::resolveHost(const std::string& name, uint32_t& address) const {
    if (useHosts_) {
        auto found = hosts_.find(lowered(name));
        if (found == hosts_.end()) {
            return false;
        }
        address = found->second;
        return true;
    }
    if (name.empty()) {
        return false;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* result = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &result) != 0 || result == nullptr) {
        return false;
    }
    address = ntohl(reinterpret_cast<const sockaddr_in*>(result->ai_addr)->sin_addr.s_addr);
    freeaddrinfo(result);
    return true;
}

bool SystemNameService::serviceByName(const std::string& name, const std::string& protocol,
                                      uint16_t& port) const {
    if (name.empty()) {
        return false;
    }
    auto cached = servicePorts_.find({name, protocol});
    if (cached == servicePorts_.end()) {
        cached =
            servicePorts_.emplace(std::make_pair(name, protocol), lookupServicePort(name, protocol))
                .first;
    }
    if (cached->second < 0) {
        return false;
    }
    port = static_cast<uint16_t>(cached->second);
    return true;
}

int SystemNameService::lookupServicePort(const std::string& name,
                                         const std::string& protocol) const {
    const servent* entry =
        getservbyname(name.c_str(), protocol.empty() ? nullptr : protocol.c_str());
    return entry == nullptr ? -1 : ntohs(static_cast<uint16_t>(entry->s_port));
}

bool SystemNameService::protocolByName(const std::string& name, uint8_t& number) const {
    if (name.empty()) {
        return false;
    }
    auto cached = protocolNumbers_.find(name);
    if (cached == protocolNumbers_.end()) {
        cached = protocolNumbers_.emplace(name, lookupProtocolNumber(name)).first;
    }
    if (cached->second < 0) {
        return false;
    }
    number = static_cast<uint8_t>(cached->second);
    return true;
}

int SystemNameService::lookupProtocolNumber(const std::string& name) const {
    if (const protoent* entry = getprotobyname(name.c_str())) {
        return static_cast<uint8_t>(entry->p_proto);
    }
    for (const KnownProtocol& known : kKnownProtocols) {
        if (name == known.name) {
            return known.number;
        }
    }
    return -1;
}

std::string SystemNameService::protocolName(uint8_t number) const {
    auto cached = protocolNames_.find(number);
    if (cached == protocolNames_.end()) {
        cached = protocolNames_.emplace(number, lookupProtocolName(number)).first;
    }
    return cached->second;
}

std::string SystemNameService::lookupProtocolName(uint8_t number) const {
    if (const protoent* entry = getprotobynumber(number)) {
        return entry->p_name;
    }
    for (const KnownProtocol& known : kKnownProtocols) {
        if (number == known.number) {
            return known.name;
        }
    }
    return "";
}

}  // namespace ipfwsim
