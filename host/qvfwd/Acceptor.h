// Accepts connections on a listening socket on its own thread until the stop signal is
// raised, refuses peers of other users, and gives every accepted connection its own
// session thread from the pool.
#pragma once

#include <functional>
#include <thread>

#include "ConnectionPool.h"
#include "StopSignal.h"

namespace qvfwd {

class Acceptor {
public:
    using Session = std::function<void(int fd)>;

    Acceptor(int listenFd, const StopSignal& stop, ConnectionPool& pool, Session session)
        : m_listenFd(listenFd), m_stop(stop), m_pool(pool), m_session(std::move(session)) {}
    ~Acceptor() { Join(); }
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    void Start();
    // Returns once the stop signal has been seen.
    void Join();

private:
    void Loop();
    bool WaitForConnection();
    void Admit(int fd);

    int m_listenFd;
    const StopSignal& m_stop;
    ConnectionPool& m_pool;
    Session m_session;
    std::thread m_thread;
};

}  // namespace qvfwd
