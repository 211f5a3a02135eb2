#include "ConnectionPool.h"

#include <unistd.h>

namespace qvfwd {

ConnectionPool::Admission ConnectionPool::Serve(int fd, std::function<void(int)> session,
                                                int* error) {
    JoinFinished();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_workers.size() >= m_limit) {
        return Admission::kFull;
    }
    auto done = std::make_shared<std::atomic<bool>>(false);
    auto thread = std::make_unique<WorkerThread>();
    if (!thread->Start(
            [fd, session = std::move(session), done] {
                session(fd);
                close(fd);
                done->store(true);
            },
            error)) {
        return Admission::kNoThread;
    }
    m_workers.push_back(Worker{std::move(thread), done});
    return Admission::kServed;
}

void ConnectionPool::JoinFinished() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto worker = m_workers.begin(); worker != m_workers.end();) {
        if (worker->done->load()) {
            worker->thread->Join();
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
        worker.thread->Join();
    }
}

}  // namespace qvfwd
