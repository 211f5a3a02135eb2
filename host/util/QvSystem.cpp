// QvSystem: runs a command line through the shell, capturing its output, within a time-out.
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include "Deadline.h"
#include "OutputCapture.h"
#include "QvLog.h"
#include "QvUtil.h"
#include "ShellProcess.h"
#include "UtilLog.h"

namespace qvutil {
namespace {

// Without an exit descriptor the shell's end is noticed by polling waitpid; the interval
// doubles up to this bound so short commands stay fast and long ones stay cheap.
constexpr int kMaxReapIntervalMs = 20;
constexpr size_t kReadChunk = 4096;

// Reads what the pipe holds now; closes it at end of file.
void DrainAvailableOutput(ShellProcess& shell, OutputCapture& capture) {
    char chunk[kReadChunk];
    while (shell.OutputFd() >= 0) {
        ssize_t count = read(shell.OutputFd(), chunk, sizeof chunk);
        if (count > 0) {
            capture.Append(chunk, static_cast<size_t>(count));
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            shell.CloseOutput();
        }
        return;
    }
}

int PollTimeout(const Deadline& deadline, const ShellProcess& shell, int* reapInterval) {
    int timeout = deadline.PollTimeout();
    if (shell.ExitFd() >= 0) {
        return timeout;
    }
    int interval = *reapInterval;
    *reapInterval = interval * 2 > kMaxReapIntervalMs ? kMaxReapIntervalMs : interval * 2;
    return timeout < 0 || timeout > interval ? interval : timeout;
}

// Waits for the shell's exit while draining its output. False when the deadline passed
// first; the shell is then still running.
bool WaitForExit(ShellProcess& shell, OutputCapture& capture, const Deadline& deadline) {
    int reapInterval = 1;
    while (!shell.TryReap()) {
        if (deadline.Expired()) {
            return false;
        }
        struct pollfd fds[2];
        nfds_t count = 0;
        if (shell.OutputFd() >= 0) {
            fds[count++] = {shell.OutputFd(), POLLIN, 0};
        }
        if (shell.ExitFd() >= 0) {
            fds[count++] = {shell.ExitFd(), POLLIN, 0};
        }
        if (poll(fds, count, PollTimeout(deadline, shell, &reapInterval)) < 0 && errno != EINTR) {
            QV_UTIL_LOG(3, "%s poll failed, errno is %d", "QvSystem", errno);
            return false;
        }
        DrainAvailableOutput(shell, capture);
    }
    // Output the shell's commands wrote before it exited is in the pipe now; whatever a
    // background process writes later is not waited for.
    DrainAvailableOutput(shell, capture);
    return true;
}

bool Run(const char* command, char* buffer, unsigned int size, unsigned int timeout) {
    OutputCapture capture(buffer, size);
    ShellProcess shell;
    int error = shell.Start(command, buffer != nullptr && size > 0);
    if (error != 0) {
        QV_UTIL_LOG(3, "%s could not start the shell for %s, error is %d", "QvSystem", command,
                    error);
        return false;
    }
    if (!WaitForExit(shell, capture, Deadline::AfterSeconds(timeout))) {
        QV_UTIL_LOG(3, "%s killed %s after %u seconds", "QvSystem", command, timeout);
        shell.KillGroup();
        shell.Reap();
        return false;
    }
    if (!shell.ExitedNormally()) {
        QV_UTIL_LOG(4, "%s shell for %s ended by a signal", "QvSystem", command);
        return false;
    }
    if (capture.Truncated()) {
        QV_UTIL_LOG(6, "%s output of %s cut to %u bytes", "QvSystem", command, size - 1);
    }
    return true;
}

}  // namespace
}  // namespace qvutil

extern "C" __attribute__((visibility("default"))) bool QvSystem(const char* command, char* buffer,
                                                                unsigned int size,
                                                                unsigned int timeout) {
    if (buffer != nullptr && size > 0) {
        buffer[0] = '\0';
    }
    if (command == nullptr) {
        QV_UTIL_LOG(3, "%s invalid argument: null command", "QvSystem");
        return false;
    }
    return qvutil::Run(command, buffer, size, timeout);
}
