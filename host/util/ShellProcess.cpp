#include "ShellProcess.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QvCloseOnExec.h"
#include "QvLog.h"
#include "UtilLog.h"

extern char** environ;

namespace qvutil {
namespace {

constexpr const char* kShell = "/bin/sh";

// A descriptor numbered 3 or above, so that the child's dup2 onto standard output is a
// real copy (which drops close-on-exec) and never a no-op on the same number.
int AboveStandardStreams(int fd) {
    if (fd > STDERR_FILENO) {
        return fd;
    }
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return moved;
}

int OpenOutputPipe(int* readEnd, int* writeEnd) {
    int fds[2];
    if (QvCloseOnExecPipe(fds) != 0) {
        return errno;
    }
    *readEnd = AboveStandardStreams(fds[0]);
    *writeEnd = AboveStandardStreams(fds[1]);
    if (*readEnd < 0 || *writeEnd < 0 ||
        fcntl(*readEnd, F_SETFL, fcntl(*readEnd, F_GETFL) | O_NONBLOCK) != 0) {
        int error = errno;
        if (*readEnd >= 0)
            close(*readEnd);
        if (*writeEnd >= 0)
            close(*writeEnd);
        *readEnd = *writeEnd = -1;
        return error;
    }
    return 0;
}

// Standard input from /dev/null, standard output to `outputWriteEnd` (or /dev/null when
// it is -1), standard error inherited, everything else closed.
int PrepareFileActions(posix_spawn_file_actions_t* actions, int outputWriteEnd) {
    int error = posix_spawn_file_actions_addopen(actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (error == 0) {
        error = outputWriteEnd >= 0
                    ? posix_spawn_file_actions_adddup2(actions, outputWriteEnd, STDOUT_FILENO)
                    : posix_spawn_file_actions_addopen(actions, STDOUT_FILENO, "/dev/null",
                                                       O_WRONLY, 0);
    }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Covers descriptors that other code of the host opened without close-on-exec.
    if (error == 0) {
        error = posix_spawn_file_actions_addclosefrom_np(actions, STDERR_FILENO + 1);
    }
#endif
    return error;
}

// A new process group led by the shell, no blocked signals and default dispositions, so
// that a caller running with signals blocked or ignored does not pass that on.
int PrepareAttributes(posix_spawnattr_t* attributes) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    short flags = POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    int error = posix_spawnattr_setflags(attributes, flags);
    if (error == 0)
        error = posix_spawnattr_setpgroup(attributes, 0);
    if (error == 0)
        error = posix_spawnattr_setsigmask(attributes, &none);
    if (error == 0)
        error = posix_spawnattr_setsigdefault(attributes, &all);
    return error;
}

int OpenExitFd(pid_t pid) {
#if defined(__linux__) && defined(SYS_pidfd_open)
    // pidfd descriptors are always close-on-exec.
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
}

int Spawn(const char* command, int outputWriteEnd, pid_t* pid) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    int error = posix_spawn_file_actions_init(&actions);
    if (error != 0) {
        return error;
    }
    error = posix_spawnattr_init(&attributes);
    if (error == 0) {
        error = PrepareFileActions(&actions, outputWriteEnd);
        if (error == 0)
            error = PrepareAttributes(&attributes);
        char* const argv[] = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                              const_cast<char*>(command), nullptr};
        if (error == 0)
            error = posix_spawn(pid, kShell, &actions, &attributes, argv, environ);
        posix_spawnattr_destroy(&attributes);
    }
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

}  // namespace

ShellProcess::~ShellProcess() {
    if (m_pid > 0 && !m_reaped) {
        KillGroup();
        Reap();
    }
    CloseOutput();
    if (m_exitFd >= 0) {
        close(m_exitFd);
    }
}

int ShellProcess::Start(const char* command, bool captureOutput) {
    int writeEnd = -1;
    if (captureOutput) {
        int error = OpenOutputPipe(&m_output, &writeEnd);
        if (error != 0) {
            return error;
        }
    }
    pid_t pid = -1;
    int error = Spawn(command, writeEnd, &pid);
    if (writeEnd >= 0) {
        close(writeEnd);
    }
    if (error != 0) {
        CloseOutput();
        return error;
    }
    m_pid = pid;
    m_exitFd = OpenExitFd(pid);
    return 0;
}

void ShellProcess::CloseOutput() {
    if (m_output >= 0) {
        close(m_output);
        m_output = -1;
    }
}

bool ShellProcess::CollectStatus(int options) {
    int status = 0;
    pid_t result;
    do {
        result = waitpid(m_pid, &status, options);
    } while (result < 0 && errno == EINTR);
    if (result == 0) {
        return false;
    }
    m_reaped = true;
    if (result < 0) {
        // ECHILD: the host ignores SIGCHLD or another thread reaped our child, so the
        // status is lost; not knowing it counts as failure.
        QV_UTIL_LOG(3, "%s waitpid for %d failed, errno is %d", "QvSystem", static_cast<int>(m_pid),
                    errno);
        m_exitedNormally = false;
        return true;
    }
    m_exitedNormally = WIFEXITED(status);
    return true;
}

bool ShellProcess::TryReap() {
    return m_reaped || CollectStatus(WNOHANG);
}

void ShellProcess::Reap() {
    if (!m_reaped) {
        CollectStatus(0);
    }
}

void ShellProcess::KillGroup() {
    if (m_pid > 0 && !m_reaped) {
        kill(-m_pid, SIGKILL);
    }
}

}  // namespace qvutil
