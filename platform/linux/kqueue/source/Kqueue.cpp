#include "Kqueue.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace qvkq {
namespace {

constexpr uint32_t kWatchMask = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;
constexpr unsigned short kSupportedFlags = EV_ADD | EV_DELETE | EV_ENABLE | EV_CLEAR;
constexpr long kNanosPerSecond = 1000000000L;

timespec monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

timespec addTimespec(timespec a, const timespec& b) {
    a.tv_sec += b.tv_sec;
    a.tv_nsec += b.tv_nsec;
    if (a.tv_nsec >= kNanosPerSecond) {
        a.tv_nsec -= kNanosPerSecond;
        ++a.tv_sec;
    }
    return a;
}

// Time left until `deadline`, or false when it has passed.
bool remainingUntil(const timespec& deadline, timespec& remaining) {
    const timespec now = monotonicNow();
    remaining.tv_sec = deadline.tv_sec - now.tv_sec;
    remaining.tv_nsec = deadline.tv_nsec - now.tv_nsec;
    if (remaining.tv_nsec < 0) {
        remaining.tv_nsec += kNanosPerSecond;
        --remaining.tv_sec;
    }
    return remaining.tv_sec > 0 || (remaining.tv_sec == 0 && remaining.tv_nsec > 0);
}

bool isZero(const timespec& t) {
    return t.tv_sec == 0 && t.tv_nsec == 0;
}

// The path through which inotify reaches the file behind a descriptor, whatever name
// (if any) it has now.
std::string descriptorPath(uintptr_t fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

void storeError(const struct kevent& change, int error, struct kevent& out) {
    out = change;
    out.flags = EV_ERROR;
    out.data = error;
}

Knote newUserKnote(const struct kevent& change) {
    Knote knote;
    knote.ident = change.ident;
    knote.filter = EVFILT_USER;
    knote.flags = change.flags & EV_CLEAR;
    knote.userFlags = change.fflags & NOTE_FFLAGSMASK;
    return knote;
}

}  // namespace

Kqueue::~Kqueue() {
    close(wakeFd_);
}

int Kqueue::run(const struct kevent* changes, int changeCount, struct kevent* events,
                int eventCount, const struct timespec* timeout) {
    if (changeCount < 0 || eventCount < 0 || (changeCount > 0 && changes == nullptr) ||
        (eventCount > 0 && events == nullptr) ||
        (timeout != nullptr &&
         (timeout->tv_sec < 0 || timeout->tv_nsec < 0 || timeout->tv_nsec >= kNanosPerSecond))) {
        errno = EINVAL;
        return -1;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    int errors = 0;
    for (int i = 0; i < changeCount; ++i) {
        const int error = apply(changes[i]);
        if (error == 0) {
            continue;
        }
        if (errors == eventCount) {
            errno = error;
            return -1;
        }
        storeError(changes[i], error, events[errors++]);
    }
    // As on BSD, failed changes are returned at once, without waiting.
    if (errors > 0 || eventCount == 0) {
        return errors;
    }
    const timespec deadline =
        timeout != nullptr ? addTimespec(monotonicNow(), *timeout) : timespec{};
    for (;;) {
        if (!drainInotify()) {
            return -1;
        }
        // Drained before collecting, under the lock a trigger takes: a trigger after this
        // point signals again and interrupts the wait below.
        drainWake();
        const int found = collect(events, eventCount);
        if (found > 0) {
            return found;
        }
        timespec remaining{};
        if (timeout != nullptr && (isZero(*timeout) || !remainingUntil(deadline, remaining))) {
            return 0;
        }
        if (!waitUnlocked(lock, timeout != nullptr ? &remaining : nullptr)) {
            return -1;
        }
    }
}

bool Kqueue::waitUnlocked(std::unique_lock<std::mutex>& lock, const struct timespec* remaining) {
    pollfd waits[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    lock.unlock();
    const int ready = ppoll(waits, 2, remaining, nullptr);
    lock.lock();
    return ready >= 0;
}

int Kqueue::apply(const struct kevent& change) {
    const bool deleting = (change.flags & EV_DELETE) != 0;
    if ((change.flags & ~kSupportedFlags) != 0 || (deleting && change.flags != EV_DELETE)) {
        return EINVAL;
    }
    if (change.filter == EVFILT_USER) {
        return applyUser(change);
    }
    // A file registration is only added or deleted.
    if ((change.filter != EVFILT_READ && change.filter != EVFILT_VNODE) ||
        (!deleting && (change.flags & EV_ADD) == 0)) {
        return EINVAL;
    }
    struct stat status {};
    if (change.ident > INT_MAX || fstat(static_cast<int>(change.ident), &status) != 0) {
        return EBADF;
    }
    if (deleting) {
        return remove(change, status);
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    return add(change, status);
}

int Kqueue::applyUser(const struct kevent& change) {
    Iterator knote = find(change.ident, EVFILT_USER);
    if ((change.flags & EV_DELETE) != 0) {
        if (knote == knotes_.end()) {
            return ENOENT;
        }
        knotes_.erase(knote);
        return 0;
    }
    const bool adding = (change.flags & EV_ADD) != 0;
    // EV_CLEAR is chosen once, by the change that adds the registration.
    if (!adding && (change.flags & EV_CLEAR) != 0) {
        return EINVAL;
    }
    if (knote == knotes_.end()) {
        if (!adding) {
            return ENOENT;
        }
        knote = knotes_.insert(knotes_.end(), newUserKnote(change));
    } else {
        knote->updateUserFlags(change.fflags);
    }
    knote->userData = change.data;
    knote->udata = change.udata;
    if ((change.fflags & NOTE_TRIGGER) != 0) {
        knote->triggered = true;
        wake();
    }
    return 0;
}

int Kqueue::remove(const struct kevent& change, const struct stat& status) {
    const Iterator knote = find(change.ident, change.filter);
    if (knote == knotes_.end()) {
        return ENOENT;
    }
    // A registration on another file lapsed when its descriptor was closed.
    const bool sameFile = knote->inode == status.st_ino && knote->device == status.st_dev;
    drop(knote);
    return sameFile ? 0 : ENOENT;
}

Kqueue::Iterator Kqueue::find(uintptr_t ident, short filter) {
    for (auto it = knotes_.begin(); it != knotes_.end(); ++it) {
        if (it->ident == ident && it->filter == filter) {
            return it;
        }
    }
    return knotes_.end();
}

int Kqueue::add(const struct kevent& change, const struct stat& status) {
    const Iterator existing = find(change.ident, change.filter);
    if (existing != knotes_.end()) {
        if (existing->inode == status.st_ino && existing->device == status.st_dev) {
            // Same file: only the settings change, the reporting state stays.
            existing->flags = change.flags & EV_CLEAR;
            existing->interest = change.fflags;
            existing->udata = change.udata;
            return 0;
        }
        // The descriptor was closed and reused for another file.
        drop(existing);
    }
    const int watch = inotify_add_watch(fd_, descriptorPath(change.ident).c_str(), kWatchMask);
    if (watch < 0) {
        return errno;
    }
    Knote knote;
    knote.ident = change.ident;
    knote.filter = change.filter;
    knote.flags = change.flags & EV_CLEAR;
    knote.interest = change.fflags;
    knote.udata = change.udata;
    knote.device = status.st_dev;
    knote.inode = status.st_ino;
    knote.watch = watch;
    knote.links = status.st_nlink;
    // As on BSD, unread data at registration time is reported by the first wait.
    const off_t offset = lseek(static_cast<int>(change.ident), 0, SEEK_CUR);
    knote.reportedSize = status.st_size;
    knote.modified = offset >= 0 && status.st_size != offset;
    knotes_.push_back(knote);
    return 0;
}

void Kqueue::drop(Iterator knote) {
    const int watch = knote->watch;
    knotes_.erase(knote);
    if (watch < 0) {
        return;
    }
    for (const Knote& other : knotes_) {
        if (other.watch == watch) {
            return;
        }
    }
    inotify_rm_watch(fd_, watch);
}

bool Kqueue::drainInotify() {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t length = read(fd_, buffer, sizeof buffer);
        if (length < 0) {
            return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        }
        if (length == 0) {
            return true;
        }
        size_t pos = 0;
        while (pos + sizeof(inotify_event) <= static_cast<size_t>(length)) {
            inotify_event header{};
            std::memcpy(&header, buffer + pos, sizeof header);
            for (Knote& knote : knotes_) {
                // After a queue overflow nothing is known: every file may have changed.
                if (!knote.isUser() &&
                    (knote.watch == header.wd || (header.mask & IN_Q_OVERFLOW) != 0)) {
                    knote.noteInotifyEvent(header.mask & IN_Q_OVERFLOW ? IN_MODIFY | IN_ATTRIB
                                                                       : header.mask);
                }
            }
            pos += sizeof(inotify_event) + header.len;
        }
    }
}

void Kqueue::wake() {
    // Fails only when the counter is about to overflow, that is when a wake-up is
    // already pending.
    eventfd_write(wakeFd_, 1);
}

void Kqueue::drainWake() {
    eventfd_t count = 0;
    eventfd_read(wakeFd_, &count);
}

int Kqueue::collect(struct kevent* events, int eventCount) {
    std::vector<Iterator> fired;
    for (auto it = knotes_.begin(); it != knotes_.end() && fired.size() < size_t(eventCount);) {
        const auto current = it++;
        const Knote::Outcome outcome = current->evaluate(events[fired.size()]);
        if (outcome == Knote::Outcome::kLapsed) {
            drop(current);
        } else if (outcome == Knote::Outcome::kFired) {
            fired.push_back(current);
        }
    }
    // Reported registrations go to the back, so that a short event list still sees
    // every registration in turn.
    for (const auto& knote : fired) {
        knotes_.splice(knotes_.end(), knotes_, knote);
    }
    return static_cast<int>(fired.size());
}

}  // namespace qvkq
