#include "Housekeeper.h"

#include <algorithm>
#include <chrono>

namespace qvfwd {

int64_t Housekeeper::WaitMicros(int64_t now, int64_t next) {
    return std::max(kShortestWaitMicros, std::min(next - now, kLongestWaitMicros));
}

void Housekeeper::Start() {
    m_thread = std::thread([this] { Loop(); });
}

void Housekeeper::Poke() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_poked = true;
    }
    m_wake.notify_one();
}

void Housekeeper::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Housekeeper::Loop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        const int64_t wait = WaitMicros(m_clock.NowMicros(), m_jobs.nextDeadlineMicros());
        m_wake.wait_for(lock, std::chrono::microseconds(wait),
                        [this] { return m_stopping || m_poked; });
        if (m_stopping) {
            return;
        }
        const bool poked = m_poked;
        m_poked = false;
        lock.unlock();
        m_jobs.run(poked);
        lock.lock();
    }
}

}  // namespace qvfwd
