#include "StopSignal.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

namespace qvfwd {

StopSignal::StopSignal() {
    int fds[2];
    if (pipe(fds) != 0) {
        return;
    }
    for (int fd : fds) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    m_readFd = fds[0];
    m_writeFd = fds[1];
}

StopSignal::~StopSignal() {
    if (m_readFd >= 0) {
        close(m_readFd);
        close(m_writeFd);
    }
}

void StopSignal::Raise() {
    if (m_raised.exchange(true) || m_writeFd < 0) {
        return;
    }
    const char byte = 1;
    while (write(m_writeFd, &byte, 1) < 0 && errno == EINTR) {
    }
}

}  // namespace qvfwd
