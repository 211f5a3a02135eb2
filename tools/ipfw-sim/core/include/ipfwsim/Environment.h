#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipfwsim/NameService.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// Everything outside the rule state that the simulated kernel and syslogd touch.
class Environment {
public:
    virtual ~Environment() = default;
    virtual const NameService& names() const = 0;
    virtual int64_t now() const = 0;
    // The machine's IPv4 addresses: what "me" matches.
    virtual std::vector<uint32_t> localAddresses() const = 0;
    virtual std::string hostName() const = 0;
    // Seed of the probability draws; the draw for a packet also depends on how many
    // packets came before it, so a fixed seed gives a fixed sequence.
    virtual uint64_t randomSeed() const = 0;
    virtual bool stdinIsTerminal() const = 0;
    // Text of the syslog configuration; empty when there is none.
    virtual std::string syslogConfiguration() const = 0;
    virtual Status appendToFile(const std::string& path, std::string_view text) = 0;
};

}  // namespace ipfwsim
