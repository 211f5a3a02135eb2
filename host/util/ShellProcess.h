// One "/bin/sh -c command" child in a process group of its own, with standard input on
// /dev/null, standard output on a pipe (or /dev/null), standard error inherited and no
// other descriptor of ours. The owner reads the pipe, waits for the exit and, on a
// time-out, kills the whole group.
#pragma once

#include <sys/types.h>

namespace qvutil {

class ShellProcess {
public:
    ShellProcess() = default;
    // Never leaves a child behind: an unreaped shell's group is killed and the shell reaped.
    ~ShellProcess();
    ShellProcess(const ShellProcess&) = delete;
    ShellProcess& operator=(const ShellProcess&) = delete;

    // Returns 0 or the errno value that kept the shell from starting.
    int Start(const char* command, bool captureOutput);

    // The non-blocking read end of the output pipe; -1 when not capturing or after EOF.
    int OutputFd() const { return m_output; }
    void CloseOutput();
    // Readable once the shell has exited; -1 when the system offers no such descriptor
    // (the owner then polls TryReap on a short interval).
    int ExitFd() const { return m_exitFd; }

    // Collects the shell's status if it has exited. True once reaped.
    bool TryReap();
    // Waits for the shell to exit and collects its status.
    void Reap();
    bool Reaped() const { return m_reaped; }
    // Valid once reaped: true when the shell exited by itself (any exit status).
    bool ExitedNormally() const { return m_exitedNormally; }

    // SIGKILL to every process of the group; only before the shell is reaped, so that
    // the group id cannot have been reused.
    void KillGroup();

private:
    bool CollectStatus(int options);

    pid_t m_pid = -1;
    int m_output = -1;
    int m_exitFd = -1;
    bool m_reaped = false;
    bool m_exitedNormally = false;
};

}  // namespace qvutil
