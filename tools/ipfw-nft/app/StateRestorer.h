#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "ipfwnft/KernelTable.h"

namespace ipfwnft {

// Puts the tables back from the rule state when someone else changed them, on a thread of
// its own: it waits for the state's lock as ipfw does, and an ipfw that holds the lock
// may be waiting for the enforcer's answer meanwhile. Says on standard error what it
// found and what it did.
class StateRestorer {
public:
    StateRestorer(KernelTable& table, std::string statePath);
    // Waits for a restore under way.
    ~StateRestorer();
    StateRestorer(const StateRestorer&) = delete;
    StateRestorer& operator=(const StateRestorer&) = delete;

    // From now on the tables are put back from the rule state at `path`.
    void follow(const std::string& path);
    // The tables were changed by someone else (`why` says by whom): rebuild them.
    void restore(const std::string& why);
    // Announcements were lost: rebuild the tables unless they prove they are this state's.
    void check(const std::string& why);

private:
    void serve();
    void putBack(const std::string& statePath, const std::string& why, bool wholeOnly);

    KernelTable& table_;
    std::mutex mutex_;
    std::string statePath_;  // guarded by mutex_
    std::condition_variable wake_;
    std::string pendingWhy_;  // guarded by mutex_
    bool pending_ = false;
    bool wholeOnly_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace ipfwnft
