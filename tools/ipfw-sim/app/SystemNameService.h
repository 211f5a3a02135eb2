#pragma once

#include <map>
#include <string>
#include <utility>

#include "ipfwsim/NameService.h"

namespace ipfwsim {

// The system's resolver and databases. With a hosts file given, host names are looked
// up in it alone, which keeps tests independent of the network.
class SystemNameService : public NameService {
public:
    // `hostsText` is the content of a hosts(5) file, or empty to use getaddrinfo(3).
    SystemNameService(bool useHostsText, const std::string& hostsText);

    bool resolveHost(const std::string& name, uint32_t& address) const override;
    bool serviceByName(const std::string& name, const std::string& protocol,
                       uint16_t& port) const override;
    bool protocolByName(const std::string& name, uint8_t& number) const override;
    std::string protocolName(uint8_t number) const override;

private:
    std::string lookupProtocolName(uint8_t number) const;
    int lookupProtocolNumber(const std::string& name) const;
    int lookupServicePort(const std::string& name, const std::string& protocol) const;

    bool useHosts_;
    std::map<std::string, uint32_t> hosts_;
    // Listings ask for the same few names thousands of times, and reading one rule asks
    // for some more than once; each system lookup rereads the protocols or services file.
    // Names that are not there are kept too, as -1.
    mutable std::map<uint8_t, std::string> protocolNames_;
    mutable std::map<std::string, int> protocolNumbers_;
    mutable std::map<std::pair<std::string, std::string>, int> servicePorts_;
};

}  // namespace ipfwsim
