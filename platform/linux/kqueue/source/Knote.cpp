#include "Knote.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qvkq {

void Knote::noteInotifyEvent(uint32_t mask) {
    if ((mask & IN_MODIFY) != 0) {
        modified = true;
    }
    if ((mask & IN_ATTRIB) != 0) {
        // Unlinking a name of an open file only changes its link count.
        struct stat status {};
        if (fstat(static_cast<int>(ident), &status) == 0 && status.st_ino == inode &&
            status.st_dev == device) {
            if (status.st_nlink < links) {
                pendingNotes |= NOTE_DELETE;
            }
            links = status.st_nlink;
        }
    }
    if ((mask & IN_DELETE_SELF) != 0) {
        pendingNotes |= NOTE_DELETE;
    }
    if ((mask & IN_MOVE_SELF) != 0) {
        pendingNotes |= NOTE_RENAME;
    }
    if ((mask & IN_IGNORED) != 0) {
        watch = -1;
    }
}

void Knote::updateUserFlags(unsigned int fflags) {
    const unsigned int given = fflags & NOTE_FFLAGSMASK;
    switch (fflags & NOTE_FFCTRLMASK) {
        case NOTE_FFAND:
            userFlags &= given;
            break;
        case NOTE_FFOR:
            userFlags |= given;
            break;
        case NOTE_FFCOPY:
            userFlags = given;
            break;
        default:  // NOTE_FFNOP
            break;
    }
}

Knote::Outcome Knote::evaluate(struct kevent& out) {
    // A user registration has no file to look at.
    if (isUser()) {
        return evaluateUser(out);
    }
    struct stat status {};
    if (fstat(static_cast<int>(ident), &status) != 0 || status.st_ino != inode ||
        status.st_dev != device) {
        return Outcome::kLapsed;
    }
    fill(out);
    return filter == EVFILT_READ ? evaluateRead(status, out) : evaluateVnode(out);
}

void Knote::fill(struct kevent& out) const {
    out.ident = ident;
    out.filter = filter;
    out.flags = flags & EV_CLEAR;
    out.fflags = 0;
    out.data = 0;
    out.udata = udata;
}

Knote::Outcome Knote::evaluateUser(struct kevent& out) {
    if (!triggered) {
        return Outcome::kNothing;
    }
    fill(out);
    out.fflags = userFlags;
    out.data = userData;
    if (edgeTriggered()) {
        triggered = false;
    }
    return Outcome::kFired;
}

Knote::Outcome Knote::evaluateRead(const struct stat& status, struct kevent& out) {
    const off_t offset = lseek(static_cast<int>(ident), 0, SEEK_CUR);
    const off_t unread = status.st_size - (offset < 0 ? 0 : offset);
    if (!edgeTriggered()) {
        out.data = static_cast<intptr_t>(unread);
        return unread != 0 ? Outcome::kFired : Outcome::kNothing;
    }
    const bool changed = modified || status.st_size != reportedSize;
    modified = false;
    reportedSize = status.st_size;
    if (!changed || unread == 0) {
        return Outcome::kNothing;
    }
    out.data = static_cast<intptr_t>(unread);
    return Outcome::kFired;
}

Knote::Outcome Knote::evaluateVnode(struct kevent& out) {
    const unsigned int notes = pendingNotes & interest;
    if (notes == 0) {
        return Outcome::kNothing;
    }
    out.fflags = notes;
    if (edgeTriggered()) {
        pendingNotes &= ~notes;
    }
    return Outcome::kFired;
}

}  // namespace qvkq
