// The state of one kqueue: its inotify descriptor (which is the kqueue descriptor the
// caller holds) and its registrations.
#pragma once

#include "Knote.h"

#include <sys/event.h>

#include <list>
#include <mutex>

namespace qvkq {

class Kqueue {
public:
    explicit Kqueue(int inotifyFd) : fd_(inotifyFd) {}

    int fd() const { return fd_; }

    // kevent() on this queue; the result and errno as kevent() returns them.
    int run(const struct kevent* changes, int changeCount, struct kevent* events, int eventCount,
            const struct timespec* timeout);

private:
    // 0 or the errno value for one change.
    int apply(const struct kevent& change);
    int add(const struct kevent& change, const struct stat& status);
    // Drops a registration, and its inotify watch when no other uses it.
    void drop(std::list<Knote>::iterator knote);
    // Reads every queued inotify event without blocking; false on a read error.
    bool drainInotify();
    int collect(struct kevent* events, int eventCount);

    const int fd_;
    std::mutex mutex_;  // guards the registrations; never held while waiting
    std::list<Knote> knotes_;
};

}  // namespace qvkq
