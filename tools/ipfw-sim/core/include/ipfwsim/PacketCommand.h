#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ipfwsim/CommandContext.h"
#include "ipfwsim/PacketMatcher.h"

namespace ipfwsim {

// "ipfw packet ...": something the real command cannot do. Runs one packet through the
// rules, prints "RULE ACTION" (with " (state)" when a dynamic entry decided), keeps
// the counters, and writes what the kernel would log to the files that syslogd's
// configuration routes "ipfw" messages to.
class PacketCommand {
public:
    explicit PacketCommand(const CommandContext& context) : context_(context) {}
    int run(const std::vector<std::string>& words);

private:
    Status writeLog(const std::vector<KernelLogLine>& lines) const;

    const CommandContext& context_;
};

// Deterministic draws in [0, 0x7fffffff) for one packet.
std::function<uint32_t()> probabilityDraws(uint64_t seed, uint64_t packetSerial);

}  // namespace ipfwsim
