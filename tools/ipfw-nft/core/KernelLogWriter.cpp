#include "ipfwnft/KernelLogWriter.h"

#include <algorithm>
#include <map>
#include <utility>

#include "ipfwnft/LogTag.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/KernelLog.h"
#include "ipfwsim/SyslogRouter.h"

namespace ipfwnft {
namespace {

using ipfwsim::Status;

// The lines of one batch, gathered per log file in the order syslogd would have written
// them, so that each file gets one append.
class SyslogFiles {
public:
    SyslogFiles(std::string configuration, std::string host, int64_t now)
        : configuration_(std::move(configuration)), host_(std::move(host)), now_(now) {}

    void add(const std::string& text, int priority) {
        const std::string line = ipfwsim::syslogFileLine(now_, host_, text);
        for (const std::string& path : routes(priority)) {
            linesFor(path) += line;
        }
    }

    // Every file is tried; the first failure is the answer.
    Status appendAll(ipfwsim::Environment& env) const {
        Status first = Status::success();
        for (const auto& [path, lines] : files_) {
            Status status = env.appendToFile(path, lines);
            if (first.ok()) {
                first = status;
            }
        }
        return first;
    }

private:
    const std::vector<std::string>& routes(int priority) {
        auto found = routes_.find(priority);
        if (found == routes_.end()) {
            found = routes_
                        .emplace(priority, ipfwsim::routeSyslogMessage(
                                               configuration_, "ipfw",
                                               ipfwsim::kLogFacilitySecurity, priority, host_))
                        .first;
        }
        return found->second;
    }

    std::string& linesFor(const std::string& path) {
        auto found = std::find_if(files_.begin(), files_.end(),
                                  [&path](const auto& file) { return file.first == path; });
        return found != files_.end() ? found->second : files_.emplace_back(path, "").second;
    }

    std::string configuration_;
    std::string host_;
    int64_t now_;
    std::map<int, std::vector<std::string>> routes_;
    std::vector<std::pair<std::string, std::string>> files_;
};

// The rule the tag names, or nullptr when it has gone since the table was made. The
// rules are kept in number order.
ipfwsim::StoredRule* findRule(ipfwsim::FirewallState& state, const LogTag& tag) {
    std::vector<ipfwsim::RuleEntry>& rules = state.rules();
    auto first = std::lower_bound(rules.begin(), rules.end(), tag.number,
                                  [](const ipfwsim::RuleEntry& entry, uint32_t number) {
                                      return entry.stored.rule.number < number;
                                  });
    if (static_cast<size_t>(rules.end() - first) <= tag.ordinal) {
        return nullptr;
    }
    ipfwsim::RuleEntry& entry = first[tag.ordinal];
    return entry.stored.rule.number == tag.number ? &entry.stored : nullptr;
}

// Adds the packet's lines as the kernel's ipfw would; true when a logamount moved.
bool addPacketLines(const LoggedPacket& logged, ipfwsim::FirewallState& state, SyslogFiles& files) {
    LogTag tag;
    ipfwsim::Packet packet;
    if (!LogTag::parse(logged.prefix, tag) || !decodeIpv4(logged.payload, packet)) {
        return false;  // not one of ours
    }
    packet.outbound = tag.outbound;
    packet.iface = tag.outbound ? logged.outInterface : logged.inInterface;
    ipfwsim::StoredRule* stored = findRule(state, tag);
    const uint32_t amount = stored != nullptr ? stored->rule.logAmount : 0;
    if (amount != 0 && stored->logLeft == 0) {
        return false;
    }
    const std::string word =
        stored != nullptr ? ipfwsim::actionLogWord(stored->rule.action) : tag.action;
    files.add(ipfwsim::packetLogText(tag.number, word, packet), ipfwsim::kLogPriorityInfo);
    if (amount == 0) {
        return false;
    }
    if (--stored->logLeft == 0) {
        files.add(ipfwsim::limitLogText(amount, tag.number), ipfwsim::kLogPriorityNotice);
    }
    return true;
}

std::string notWritten(size_t packets, uint64_t lost) {
    return std::to_string(packets) + " logged packets not written" +
           (lost != 0 ? ", " + std::to_string(lost) + " lost before them" : "");
}

}  // namespace

std::string lostLogText(uint64_t count) {
    // The count follows a word: the watcher reads a number first in the text as a rule's.
    return "ipfw: lost " + std::to_string(count) + " logged packets";
}

KernelLogWriter::Losses KernelLogWriter::countLosses(const std::vector<LoggedPacket>& batch) {
    Losses losses;
    for (size_t at = 0; at < batch.size(); ++at) {
        if (!batch[at].sequence) {
            continue;
        }
        const uint32_t sequence = *batch[at].sequence;
        // Unsigned difference, so that the numbering may wrap; a number from the past
        // (which netlink's ordering never gives) counts nothing.
        const uint32_t gap = sequence - nextSequence_;
        if (static_cast<int32_t>(gap) < 0) {
            continue;
        }
        if (gap != 0 && losses.count == 0) {
            losses.firstGapAt = at;
        }
        losses.count += gap;
        nextSequence_ = sequence + 1;
    }
    return losses;
}

Status KernelLogWriter::write(const std::vector<LoggedPacket>& batch, ipfwsim::StateStore& store) {
    const Losses losses = countLosses(batch);
    std::string_view content;
    ipfwsim::FirewallState state;
    Status status = store.read(content);
    if (status.ok()) {
        status = ipfwsim::FirewallState::load(content, state);
    }
    if (!status.ok()) {
        return Status::failure(status.code,
                               status.message + "; " + notWritten(batch.size(), losses.count));
    }
    if (!state.header().verbose) {
        return Status::success();
    }
    SyslogFiles files(env_.syslogConfiguration(), env_.hostName(), env_.now());
    bool counted = false;
    for (size_t at = 0; at < batch.size(); ++at) {
        if (losses.count != 0 && at == losses.firstGapAt) {
            files.add(lostLogText(losses.count), ipfwsim::kLogPriorityNotice);
        }
        counted = addPacketLines(batch[at], state, files) || counted;
    }
    status = files.appendAll(env_);
    // As for a single packet, a logamount counts only what reached the log.
    if (status.ok() && counted) {
        status = store.replace(state.serialize());
    }
    return status;
}

}  // namespace ipfwnft
