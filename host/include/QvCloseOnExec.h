// Descriptors that no child process inherits (the daemon and the plug-in run shells), made
// with Linux's atomic flags where the system has them and set right after creation where
// it does not (macOS has neither pipe2 nor SOCK_CLOEXEC; no thread of ours forks between
// the two steps).
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

// A Unix stream socket, or -1 with errno set.
inline int QvUnixStreamSocket() {
#ifdef SOCK_CLOEXEC
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd >= 0) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    return fd;
#endif
}

// A pipe, 0 or -1 with errno set.
inline int QvCloseOnExecPipe(int fds[2]) {
#if defined(__linux__)
    return pipe2(fds, O_CLOEXEC);
#else
    if (pipe(fds) != 0) {
        return -1;
    }
    fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    fcntl(fds[1], F_SETFD, FD_CLOEXEC);
    return 0;
#endif
}
