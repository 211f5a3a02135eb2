#include "ipfwsim/PacketCommand.h"

#include "ipfwsim/KernelLog.h"
#include "ipfwsim/SyslogRouter.h"

namespace ipfwsim {

std::function<uint32_t()> probabilityDraws(uint64_t seed, uint64_t packetSerial) {
    constexpr uint64_t kGolden = 0x9E3779B97F4A7C15ULL;
    uint64_t x = seed ^ (packetSerial * kGolden);
    // splitmix64; the top 31 bits compare with the stored probability as random(3) does.
    return [x]() mutable {
        x += kGolden;
        uint64_t z = x;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        z ^= z >> 31;
        return static_cast<uint32_t>(z >> 33);
    };
}

int PacketCommand::run(const std::vector<std::string>& words) {
    Packet packet;
    Status status = parsePacket(words, context_.env.names(), packet);
    if (!status.ok()) {
        return context_.fail(status);
    }
    FirewallState state;
    status = context_.loadState(state);
    if (!status.ok()) {
        return context_.fail(status);
    }
    MatchContext match;
    match.localAddresses = context_.env.localAddresses();
    match.now = context_.env.now();
    match.random = probabilityDraws(context_.env.randomSeed(), state.header().packetSerial++);
    Verdict verdict = PacketMatcher(state, match).evaluate(packet);
    status = context_.saveState(state);
    if (!status.ok()) {
        return context_.fail(status);
    }
    context_.console.out(std::to_string(verdict.ruleNumber) + " " + verdict.action +
                         (verdict.fromState ? " (state)" : "") + "\n");
    status = writeLog(verdict.log);
    return status.ok() ? kExitOk : context_.fail(status);
}

Status PacketCommand::writeLog(const std::vector<KernelLogLine>& lines) const {
    if (lines.empty()) {
        return Status::success();
    }
    const std::string configuration = context_.env.syslogConfiguration();
    const std::string host = context_.env.hostName();
    const int64_t now = context_.env.now();
    for (const KernelLogLine& line : lines) {
        const std::string text = syslogFileLine(now, host, line.text);
        for (const std::string& path :
             routeSyslogMessage(configuration, "ipfw", kLogFacilitySecurity, line.priority, host)) {
            Status status = context_.env.appendToFile(path, text);
            if (!status.ok()) {
                return status;
            }
        }
    }
    return Status::success();
}

}  // namespace ipfwsim
