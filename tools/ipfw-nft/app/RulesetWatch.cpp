#include "RulesetWatch.h"

#include <poll.h>
#include <unistd.h>

namespace ipfwnft {
namespace {

// How long the watching thread may take to notice that the enforcer ends.
constexpr int kStopCheckMs = 200;

}  // namespace

RulesetWatch::RulesetWatch(StateRestorer& restorer)
    : restorer_(restorer), tampering_([this](uint32_t port) { return monitor_.isOwnPort(port); }) {
    if (monitor_.open()) {
        thread_ = std::thread([this] { watch(); });
    }
}

RulesetWatch::~RulesetWatch() {
    stopping_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool RulesetWatch::listChain(const std::string& table, const std::string& chain,
                             std::vector<KernelRule>& rules) {
    // The announcements of the enforcer's own last transaction are queued by the time the
    // kernel answered it: taking them in first makes the handles current.
    catchUp();
    std::lock_guard<std::mutex> lock(mutex_);
    return handles_.listChain(table, chain, rules);
}

void RulesetWatch::watch() {
    pollfd waiting{monitor_.fd(), POLLIN, 0};
    while (!stopping_) {
        if (poll(&waiting, 1, kStopCheckMs) > 0) {
            catchUp();
        }
    }
}

void RulesetWatch::catchUp() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<RulesetEvent> events;
    bool overflowed = false;
    monitor_.drain(events, overflowed);
    for (const RulesetEvent& event : events) {
        handles_.take(event);
        Tampering found;
        if (tampering_.take(event, found)) {
            restorer_.restore(found.describe());
        }
    }
    if (overflowed) {
        // Which announcements are missing is not known: no handle is trusted any more.
        handles_.forget();
        tampering_.reset();
        restorer_.check("missed nftables announcements (the receive buffer overflowed)");
    }
}

}  // namespace ipfwnft
