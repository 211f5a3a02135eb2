// One registration of a kqueue: a filter on a file descriptor, the inotify watch that
// wakes it, and what it has reported so far; or an EVFILT_USER registration, which has
// no file and fires when a change triggers it.
#pragma once

#include <sys/event.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace qvkq {

struct Knote {
    // What the caller registered.
    uintptr_t ident = 0;
    short filter = 0;
    unsigned short flags = 0;
    unsigned int interest = 0;  // EVFILT_VNODE notes asked for
    void* udata = nullptr;

    // The file the descriptor referred to at registration; a descriptor that now
    // refers to something else was closed, and its registration lapses.
    dev_t device = 0;
    ino_t inode = 0;
    int watch = -1;  // inotify watch descriptor, -1 once the kernel dropped it

    // State between reports.
    off_t reportedSize = 0;
    bool modified = false;          // written since the last report
    nlink_t links = 0;              // link count last seen
    unsigned int pendingNotes = 0;  // EVFILT_VNODE notes not yet reported

    // EVFILT_USER state.
    bool triggered = false;
    unsigned int userFlags = 0;  // reported as fflags
    intptr_t userData = 0;       // reported as data

    bool edgeTriggered() const { return (flags & EV_CLEAR) != 0; }
    bool isUser() const { return filter == EVFILT_USER; }

    // Combines the user flags with the low bits of `fflags` as its NOTE_FF* control says.
    void updateUserFlags(unsigned int fflags);

    // Records what inotify said about the watched file.
    void noteInotifyEvent(uint32_t mask);

    enum class Outcome { kNothing, kFired, kLapsed };

    // Decides, from the file's present state, whether the registration fires now,
    // filling `out` when it does.
    Outcome evaluate(struct kevent& out);

private:
    void fill(struct kevent& out) const;
    Outcome evaluateUser(struct kevent& out);
    Outcome evaluateRead(const struct stat& status, struct kevent& out);
    Outcome evaluateVnode(struct kevent& out);
};

}  // namespace qvkq
