/* The kqueue subset of the Linux platform layer: BSD's <sys/event.h> for regular files,
 * built on inotify. EVFILT_READ reports a file that grew or shrank, with the bytes left
 * to read from the descriptor's offset (negative after a truncation); EVFILT_VNODE
 * reports deletion and renaming of the file itself. The kqueue descriptor is a real
 * descriptor: close() releases it and every registration on it. */
#ifndef QV_SYS_EVENT_H
#define QV_SYS_EVENT_H

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#define EVFILT_READ (-1)
#define EVFILT_VNODE (-4)

/* actions and flags */
#define EV_ADD 0x0001
#define EV_ENABLE 0x0004
#define EV_CLEAR 0x0020
/* returned: the change in this entry failed; data holds the errno value */
#define EV_ERROR 0x4000

/* EVFILT_VNODE notes */
#define NOTE_DELETE 0x00000001
#define NOTE_RENAME 0x00000020

struct kevent {
    uintptr_t ident; /* file descriptor */
    short filter;    /* EVFILT_READ or EVFILT_VNODE */
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
