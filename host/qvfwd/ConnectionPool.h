// One thread per accepted connection. Finished threads are joined whenever a new one is
// added; JoinAll() waits for the rest, after the caller has raised the stop signal that
// their sessions wait on.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace qvfwd {

class ConnectionPool {
public:
    ConnectionPool() = default;
    ~ConnectionPool() { JoinAll(); }
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;

    // Runs `session(fd)` on a new thread, which closes `fd` when the session returns.
    void Serve(int fd, std::function<void(int)> session);
    void JoinAll();

private:
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    void JoinFinished();

    std::mutex m_mutex;
    std::list<Worker> m_workers;
};

}  // namespace qvfwd
