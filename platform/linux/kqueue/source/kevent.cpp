// The C entry points of <sys/event.h>.
#include "KqueueRegistry.h"

#include <sys/event.h>

#include <cerrno>

extern "C" int kqueue(void) {
    return qvkq::KqueueRegistry::instance().create();
}

extern "C" int kevent(int kq, const struct kevent* changelist, int nchanges,
                      struct kevent* eventlist, int nevents, const struct timespec* timeout) {
    const auto queue = qvkq::KqueueRegistry::instance().find(kq);
    if (queue == nullptr) {
        errno = EBADF;
        return -1;
    }
    return queue->run(changelist, nchanges, eventlist, nevents, timeout);
}
