// Accepts connections on a listening socket on its own thread until the stop signal is
// raised, refuses peers of other users, and gives every accepted connection its own
// session thread from the pool. A connection the pool cannot take (at its limit, or no
// thread to be had) gets a kDaemonBusy reply with the reason in words and is closed; the
// first of a run of such refusals is logged. When the process runs out of descriptors,
// accepting pauses briefly between tries instead of spinning, with one log line.
#pragma once

#include <functional>
#include <string>

#include "ConnectionPool.h"
#include "StopSignal.h"
#include "WorkerThread.h"

namespace qvfwd {

class Acceptor {
public:
    using Session = std::function<void(int fd)>;
    using LogLine = std::function<void(const std::string&)>;

    // `name`: the socket as the log names it ("control socket /run/...").
    Acceptor(int listenFd, const StopSignal& stop, ConnectionPool& pool, Session session,
             LogLine log, std::string name)
        : m_listenFd(listenFd),
          m_stop(stop),
          m_pool(pool),
          m_session(std::move(session)),
          m_log(std::move(log)),
          m_name(std::move(name)) {}
    ~Acceptor() { Join(); }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    // False (with a sentence in `*error`) when its thread cannot be made.
    bool Start(std::string* error);
    // Returns once the stop signal has been seen.
    void Join();

private:
    void Loop();
    bool WaitForConnection();
    void Admit(int fd);
    void Refuse(int fd, const std::string& why);
    void PauseForDescriptors(int code);

    int m_listenFd;
    const StopSignal& m_stop;
    ConnectionPool& m_pool;
    Session m_session;
    LogLine m_log;
    std::string m_name;
    // Only the accepting thread touches these: they keep a run of failures to one line.
    bool m_outOfDescriptors = false;
    bool m_refusing = false;
    WorkerThread m_thread;
};

}  // namespace qvfwd
