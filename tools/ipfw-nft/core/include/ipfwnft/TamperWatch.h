#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "ipfwnft/RulesetEvent.h"

namespace ipfwnft {

// A transaction of another process that touched this back end's tables.
struct Tampering {
    int64_t pid = 0;
    std::string process;
    // Each table touched, and whether it was deleted or changed.
    std::map<std::string, bool> deleted;

    // "process 4230 (nft) deleted table inet ipfw, deleted table inet ipfw_s0"
    std::string describe() const;
};

// Tells, from the kernel's announcements, the transactions of other processes that touched
// this back end's tables from the enforcer's own, which `isOwn` knows by the port of the
// socket they came through (the process id the kernel gives is that of the committing
// thread, as seen from the first pid namespace).
class TamperWatch {
public:
    explicit TamperWatch(std::function<bool(uint32_t port)> isOwn) : isOwn_(std::move(isOwn)) {}

    // True, with `found` filled in, when `event` ends a transaction of another process
    // that touched this back end's tables.
    bool take(const RulesetEvent& event, Tampering& found);
    // Announcements were lost: the transaction under way is not known whole.
    void reset() { touched_.clear(); }

private:
    std::function<bool(uint32_t port)> isOwn_;
    std::map<std::string, bool> touched_;
};

}  // namespace ipfwnft
