#include "ConnectionPool.h"

#include <unistd.h>

namespace qvfwd {

void ConnectionPool::Serve(int fd, std::function<void(int)> session) {
    JoinFinished();
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread thread([fd, session = std::move(session), done] {
        session(fd);
        close(fd);
        done->store(true);
    });
    std::lock_guard<std::mutex> lock(m_mutex);
    m_workers.push_back(Worker{std::move(thread), done});
}

void ConnectionPool::JoinFinished() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto worker = m_workers.begin(); worker != m_workers.end();) {
        if (worker->done->load()) {
            worker->thread.join();
            worker = m_workers.erase(worker);
        } else {
            ++worker;
        }
    }
}

void ConnectionPool::JoinAll() {
    std::list<Worker> workers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        workers.swap(m_workers);
    }
    for (Worker& worker : workers) {
        worker.thread.join();
    }
}

}  // namespace qvfwd
