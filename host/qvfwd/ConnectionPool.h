// One thread per accepted connection, at most `limit` at a time. Finished threads are
// joined whenever a new one is added; JoinAll() waits for the rest, after the caller has
// raised the stop signal that their sessions wait on.
#pragma once

#include <stddef.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

#include "WorkerThread.h"

namespace qvfwd {

class ConnectionPool {
public:
    enum class Admission {
        kServed,    // a thread serves it and will close it
        kFull,      // `limit` connections are being served already
        kNoThread,  // the system would not make another thread
    };

    explicit ConnectionPool(size_t limit) : m_limit(limit) {}
    ~ConnectionPool() { JoinAll(); }
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;

    // Runs `session(fd)` on a new thread, which closes `fd` when the session returns.
    // Unless kServed, `fd` is still the caller's (and `*error` is pthread_create's errno
    // value for kNoThread).
    Admission Serve(int fd, std::function<void(int)> session, int* error = nullptr);
    void JoinAll();
    size_t limit() const { return m_limit; }

private:
    struct Worker {
        std::unique_ptr<WorkerThread> thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    void JoinFinished();

    const size_t m_limit;
    std::mutex m_mutex;
    std::list<Worker> m_workers;
};

}  // namespace qvfwd
