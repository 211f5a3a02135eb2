#include "WorkerThread.h"

#include <utility>

namespace qvfwd {

bool WorkerThread::Start(std::function<void()> work, int* error) {
    if (m_started) {
        return false;
    }
    m_work = std::move(work);
    const int made = pthread_create(&m_thread, nullptr, &WorkerThread::Run, this);
    if (made != 0) {
        m_work = nullptr;
        if (error != nullptr) {
            *error = made;
        }
        return false;
    }
    m_started = true;
    return true;
}

void WorkerThread::Join() {
    if (m_started) {
        pthread_join(m_thread, nullptr);
        m_started = false;
    }
}

void* WorkerThread::Run(void* self) {
    static_cast<WorkerThread*>(self)->m_work();
    return nullptr;
}

}  // namespace qvfwd
