// The state of one kqueue: its inotify descriptor (which is the kqueue descriptor the
// caller holds), the eventfd through which EVFILT_USER triggers wake a wait, and its
// registrations.
#pragma once

#include "Knote.h"

#include <sys/event.h>

#include <list>
#include <mutex>

namespace qvkq {

class Kqueue {
public:
    // Owns `wakeFd`, not `inotifyFd`: the caller closes that one as the kqueue.
    Kqueue(int inotifyFd, int wakeFd) : fd_(inotifyFd), wakeFd_(wakeFd) {}
    ~Kqueue();
    Kqueue(const Kqueue&) = delete;
    Kqueue& operator=(const Kqueue&) = delete;

    int fd() const { return fd_; }

    // kevent() on this queue; the result and errno as kevent() returns them.
    int run(const struct kevent* changes, int changeCount, struct kevent* events, int eventCount,
            const struct timespec* timeout);

private:
    using Iterator = std::list<Knote>::iterator;

    // 0 or the errno value for one change.
    int apply(const struct kevent& change);
    int applyUser(const struct kevent& change);
    int add(const struct kevent& change, const struct stat& status);
    int remove(const struct kevent& change, const struct stat& status);
    Iterator find(uintptr_t ident, short filter);
    // Drops a registration, and its inotify watch when no other uses it.
    void drop(Iterator knote);
    // Reads every queued inotify event without blocking; false on a read error.
    bool drainInotify();
    // Makes a wait in progress (or the next one) return to collect.
    void wake();
    void drainWake();
    // Waits for inotify or a wake-up, with the lock released; false on a poll error.
    bool waitUnlocked(std::unique_lock<std::mutex>& lock, const struct timespec* remaining);
    int collect(struct kevent* events, int eventCount);

    const int fd_;
    const int wakeFd_;
    std::mutex mutex_;  // guards the registrations; never held while waiting
    std::list<Knote> knotes_;
};

}  // namespace qvkq
