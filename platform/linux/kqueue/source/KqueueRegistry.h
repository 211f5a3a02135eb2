// Finds the state behind a kqueue descriptor. The caller releases a kqueue with a
// plain close(), which this layer does not see; entries whose descriptor was closed
// are therefore found and dropped lazily, when the number comes back from kqueue()
// or when a descriptor no longer is an inotify instance. Dropping the last reference to
// a queue closes its wake-up eventfd; a kevent() still running on it keeps it open.
#pragma once

#include "Kqueue.h"

#include <memory>
#include <mutex>
#include <unordered_map>

namespace qvkq {

class KqueueRegistry {
public:
    static KqueueRegistry& instance();

    // A new kqueue descriptor, or -1 with errno set.
    int create();
    // The queue behind `fd`, or null when `fd` is not a live kqueue descriptor.
    std::shared_ptr<Kqueue> find(int fd);

private:
    void sweepClosed();

    std::mutex mutex_;
    std::unordered_map<int, std::shared_ptr<Kqueue>> queues_;
};

}  // namespace qvkq
