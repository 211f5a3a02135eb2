#include "StateRestorer.h"

#include <sysexits.h>

#include <memory>

#include "FileStateStore.h"
#include "StdConsole.h"
#include "SystemEnvironment.h"
#include "ipfwnft/EnforcingIpfw.h"

namespace ipfwnft {
namespace {

void say(const std::string& line) {
    ipfwsim::StdConsole().err("ipfw-enforcer: " + line + "\n");
}

}  // namespace

StateRestorer::StateRestorer(KernelTable& table, std::string statePath)
    : table_(table), statePath_(std::move(statePath)), thread_([this] { serve(); }) {}

StateRestorer::~StateRestorer() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void StateRestorer::follow(const std::string& path) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (path != statePath_) {
        statePath_ = path;
        say("the rule state is now " + path);
    }
}

void StateRestorer::restore(const std::string& why) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pendingWhy_ += (pendingWhy_.empty() ? "" : "; ") + why;
        pending_ = true;
        wholeOnly_ = true;
    }
    wake_.notify_one();
}

void StateRestorer::check(const std::string& why) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pendingWhy_ += (pendingWhy_.empty() ? "" : "; ") + why;
        pending_ = true;
    }
    wake_.notify_one();
}

void StateRestorer::serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return pending_ || stopping_; });
        if (stopping_) {
            return;
        }
        const std::string why = std::move(pendingWhy_);
        const std::string statePath = statePath_;
        const bool wholeOnly = wholeOnly_;
        pendingWhy_.clear();
        pending_ = false;
        wholeOnly_ = false;
        lock.unlock();
        putBack(statePath, why, wholeOnly);
        lock.lock();
    }
}

void StateRestorer::putBack(const std::string& statePath, const std::string& why, bool wholeOnly) {
    std::unique_ptr<ipfwsim::SystemEnvironment> environment;
    ipfwsim::Status status = ipfwsim::SystemEnvironment::create(environment);
    ipfwsim::FileStateStore store(statePath, true);
    ipfwsim::StdConsole console;
    bool intact = false;
    size_t rules = 0;
    if (status.ok()) {
        EnforcingIpfw ipfw(*environment, store, console, table_);
        status = wholeOnly ? status : ipfw.check(intact);
        if (status.ok() && !intact) {
            status = ipfw.restore(rules);
        }
    }
    const std::string from = "the rule state (" + statePath + ")";
    if (status.code == EX_TEMPFAIL) {
        // An ipfw held the state's lock for longer than a lock is waited for: not given up.
        say(why + "; " + status.message + "; trying again");
        if (wholeOnly) {
            restore(why);
        } else {
            check(why);
        }
    } else if (!status.ok()) {
        say(why + "; could not put the tables back from " + from + ": " + status.message);
    } else if (intact) {
        say(why + "; the tables still carry the generation of " + from);
    } else {
        say(why + "; restored " + std::to_string(rules) + " rules from " + from);
    }
}

}  // namespace ipfwnft
