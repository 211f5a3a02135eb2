#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RulesetMonitor.h"
#include "StateRestorer.h"
#include "ipfwnft/HandleCache.h"
#include "ipfwnft/KernelTable.h"
#include "ipfwnft/TamperWatch.h"

namespace ipfwnft {

// What the enforcer learns from the kernel's announcements, read on a thread of its own
// so that a burst is taken in while the enforcer waits for the kernel: the handles of its
// rules, and every change of its tables by another process, which `restorer` undoes. Lost
// announcements make it forget the handles and have the tables checked.
class RulesetWatch {
public:
    explicit RulesetWatch(StateRestorer& restorer);
    ~RulesetWatch();
    RulesetWatch(const RulesetWatch&) = delete;
    RulesetWatch& operator=(const RulesetWatch&) = delete;

    // Not watching when the kernel refused the socket (errno says why).
    bool watching() const { return monitor_.open(); }
    // The rules of a chain as announced up to now; false when the chain is not known.
    bool listChain(const std::string& table, const std::string& chain,
                   std::vector<KernelRule>& rules);

private:
    void watch();
    void catchUp();

    StateRestorer& restorer_;
    std::mutex mutex_;
    RulesetMonitor monitor_;  // guarded by mutex_, as are the two below
    HandleCache handles_;
    TamperWatch tampering_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace ipfwnft
