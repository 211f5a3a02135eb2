// A joinable thread that runs one function, made with pthread_create so that a thread the
// system cannot make is a false from Start() to handle, not an exception that ends the
// daemon. The destructor joins, so no thread outlives its owner.
#pragma once

#include <pthread.h>

#include <functional>
#include <memory>

namespace qvfwd {

class WorkerThread {
public:
    WorkerThread() = default;
    ~WorkerThread() { Join(); }
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // Starts `work` on a new thread. False (and `work` never runs) when no thread could
    // be made; `*error` then holds pthread_create's errno value.
    bool Start(std::function<void()> work, int* error = nullptr);
    // Waits for `work` to return; harmless when never started or already joined.
    void Join();
    bool running() const { return m_started; }

private:
    static void* Run(void* self);

    std::function<void()> m_work;
    pthread_t m_thread{};
    bool m_started = false;
};

}  // namespace qvfwd
