/* The kqueue subset of the Linux platform layer: BSD's <sys/event.h> for regular files,
 * built on inotify. EVFILT_READ reports a file that grew or shrank, with the bytes left
 * to read from the descriptor's offset (negative after a truncation); EVFILT_VNODE
 * reports deletion and renaming of the file itself. The kqueue descriptor is a real
 * descriptor: close() releases it and every registration on it.
 *
 * EVFILT_USER lets one thread wake another that waits in kevent(). The ident is any
 * number, not a descriptor. EV_ADD (with EV_ENABLE, EV_CLEAR) registers it and keeps the
 * low 24 bits of fflags as its user flags. A later change on the same ident (flags 0 or
 * EV_ENABLE; EV_ADD again acts the same and keeps the EV_CLEAR chosen first) updates the
 * user flags by the control in NOTE_FFCTRLMASK: NOTE_FFNOP keeps them, NOTE_FFAND,
 * NOTE_FFOR and NOTE_FFCOPY combine them with the low 24 bits given. NOTE_TRIGGER, on
 * any of these changes, triggers the registration and wakes a wait in progress on the
 * queue, whichever thread makes the change. A change on an ident never added fails
 * with ENOENT. A triggered registration is reported with fflags = the user flags, and
 * data and udata of the last change (as on BSD, every change replaces them). With
 * EV_CLEAR the trigger is reset once reported; without it the registration stays
 * triggered, reported by every wait, until EV_DELETE removes it.
 *
 * EV_DELETE (alone) removes the registration of an ident and filter, or fails with
 * ENOENT. Other flags (EV_DISABLE, EV_ONESHOT, EV_DISPATCH, ...) and EV_CLEAR on a
 * change that does not add fail with EINVAL. */
#ifndef QV_SYS_EVENT_H
#define QV_SYS_EVENT_H

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#define EVFILT_READ (-1)
#define EVFILT_VNODE (-4)
#define EVFILT_USER (-10)

/* actions and flags */
#define EV_ADD 0x0001
#define EV_DELETE 0x0002
#define EV_ENABLE 0x0004
#define EV_CLEAR 0x0020
/* returned: the change in this entry failed; data holds the errno value */
#define EV_ERROR 0x4000

/* EVFILT_VNODE notes */
#define NOTE_DELETE 0x00000001
#define NOTE_RENAME 0x00000020

/* EVFILT_USER notes: the control of the user flags, the trigger and the user flags */
#define NOTE_FFNOP 0x00000000
#define NOTE_FFAND 0x40000000
#define NOTE_FFOR 0x80000000
#define NOTE_FFCOPY 0xc0000000
#define NOTE_FFCTRLMASK 0xc0000000
#define NOTE_FFLAGSMASK 0x00ffffff
#define NOTE_TRIGGER 0x01000000

struct kevent {
    uintptr_t ident; /* file descriptor; for EVFILT_USER any number */
    short filter;    /* EVFILT_READ, EVFILT_VNODE or EVFILT_USER */
    unsigned short flags;
    unsigned int fflags; /* filter flags (notes) */
    intptr_t data;       /* EVFILT_READ: file size minus the descriptor's offset */
    void* udata;
};

#define EV_SET(kevp, a, b, c, d, e, f)     \
    do {                                   \
        struct kevent* ev_set_p_ = (kevp); \
        ev_set_p_->ident = (a);            \
        ev_set_p_->filter = (b);           \
        ev_set_p_->flags = (c);            \
        ev_set_p_->fflags = (d);           \
        ev_set_p_->data = (e);             \
        ev_set_p_->udata = (f);            \
    } while (0)

#ifdef __cplusplus
extern "C" {
#endif

/* A new kqueue descriptor, or -1 with errno set. */
int kqueue(void);

/* Applies `nchanges` changes, then waits for up to `nevents` events: a null timeout
 * waits for ever, a zero timeout polls. Returns the number of events stored, 0 on
 * time-out, or -1 with errno set. A change that fails is reported as an EV_ERROR
 * event when there is room for it, and fails the call otherwise. */
int kevent(int kq, const struct kevent* changelist, int nchanges, struct kevent* eventlist,
           int nevents, const struct timespec* timeout);

#ifdef __cplusplus
}
#endif

#endif /* QV_SYS_EVENT_H */
