#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SystemNameService.h"
#include "ipfwsim/Environment.h"

namespace ipfwsim {

// The real machine, with each outside effect overridable through an IPFW_SIM_*
// variable (see the help text).
class SystemEnvironment : public Environment {
public:
    // Reads the variables; a malformed one is an error, not a silent default.
    static Status create(std::unique_ptr<SystemEnvironment>& environment);

    const NameService& names() const override { return *names_; }
    int64_t now() const override;
    std::vector<uint32_t> localAddresses() const override;
    std::string hostName() const override;
    uint64_t randomSeed() const override { return seed_; }
    bool stdinIsTerminal() const override;
    std::string syslogConfiguration() const override;
    Status appendToFile(const std::string& path, std::string_view text) override;

private:
    SystemEnvironment() = default;

    std::unique_ptr<SystemNameService> names_;
    bool fixedNow_ = false;
    int64_t now_ = 0;
    bool fixedMe_ = false;
    std::vector<uint32_t> me_;
    uint64_t seed_ = 0;
    std::string syslogPath_;
    std::string hostName_;
};

}  // namespace ipfwsim
