#pragma once

#include <cstdint>
#include <string>

namespace ipfwsim {

// The system databases the command consults: host names, services and protocols.
// The binary uses the system resolver; tests substitute fixed tables.
class NameService {
public:
    virtual ~NameService() = default;

    // First IPv4 address of a host name, host byte order. Numeric forms are handled
    // before this is asked.
    virtual bool resolveHost(const std::string& name, uint32_t& address) const = 0;
    // Port of a service; `protocol` empty means any protocol.
    virtual bool serviceByName(const std::string& name, const std::string& protocol,
                               uint16_t& port) const = 0;
    virtual bool protocolByName(const std::string& name, uint8_t& number) const = 0;
    // Official protocol name, or empty when the number has none.
    virtual std::string protocolName(uint8_t number) const = 0;
};

}  // namespace ipfwsim
