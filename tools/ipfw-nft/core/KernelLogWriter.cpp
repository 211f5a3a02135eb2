#include "ipfwnft/KernelLogWriter.h"

#include "ipfwnft/LogTag.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/KernelLog.h"
#include "ipfwsim/SyslogRouter.h"

namespace ipfwnft {
namespace {

using ipfwsim::Status;

// The rule the tag names, or nullptr when it has gone since the table was made.
ipfwsim::StoredRule* findRule(ipfwsim::FirewallState& state, const LogTag& tag) {
    uint32_t seen = 0;
    for (ipfwsim::RuleEntry& entry : state.rules()) {
        if (entry.stored.rule.number == tag.number && seen++ == tag.ordinal) {
            return &entry.stored;
        }
    }
    return nullptr;
}

}  // namespace

Status KernelLogWriter::write(const LoggedPacket& logged) {
    LogTag tag;
    ipfwsim::Packet packet;
    if (!LogTag::parse(logged.prefix, tag) || !decodeIpv4(logged.payload, packet)) {
        return Status::success();  // not one of ours
    }
    packet.outbound = tag.outbound;
    packet.iface = tag.outbound ? logged.outInterface : logged.inInterface;
    std::string_view content;
    ipfwsim::FirewallState state;
    Status status = store_.read(content);
    if (status.ok()) {
        status = ipfwsim::FirewallState::load(content, state);
    }
    if (!status.ok() || !state.header().verbose) {
        return status;
    }
    ipfwsim::StoredRule* stored = findRule(state, tag);
    const uint32_t amount = stored != nullptr ? stored->rule.logAmount : 0;
    if (amount != 0 && stored->logLeft == 0) {
        return Status::success();
    }
    const std::string word =
        stored != nullptr ? ipfwsim::actionLogWord(stored->rule.action) : tag.action;
    status = append(ipfwsim::packetLogText(tag.number, word, packet), ipfwsim::kLogPriorityInfo);
    if (status.ok() && amount != 0) {
        if (--stored->logLeft == 0) {
            status = append(ipfwsim::limitLogText(amount, tag.number), ipfwsim::kLogPriorityNotice);
        }
        Status saved = store_.replace(state.serialize());
        status = status.ok() ? saved : status;
    }
    return status;
}

Status KernelLogWriter::append(const std::string& text, int priority) {
    const std::string host = env_.hostName();
    const std::string line = ipfwsim::syslogFileLine(env_.now(), host, text);
    for (const std::string& path : ipfwsim::routeSyslogMessage(
             env_.syslogConfiguration(), "ipfw", ipfwsim::kLogFacilitySecurity, priority, host)) {
        Status status = env_.appendToFile(path, line);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

}  // namespace ipfwnft
