#include "EventHub.h"

#include <chrono>

#include "QvControl.h"

namespace qvfwd {

void EventHub::Publish(int32_t origin, std::string record) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(KeptEvent{m_nextSequence++, origin, std::move(record)});
        if (m_events.size() > m_capacity) {
            m_events.pop_front();
        }
        (origin == qvctl::kFromCallback ? m_counts.fromCallback : m_counts.fromService)++;
        m_counts.kept = static_cast<int64_t>(m_events.size());
    }
    m_arrived.notify_all();
}

std::vector<KeptEvent> EventHub::CopyFrom(uint64_t first) {
    std::vector<KeptEvent> out;
    for (const KeptEvent& event : m_events) {
        if (event.sequence >= first) {
            out.push_back(event);
        }
    }
    return out;
}

std::vector<KeptEvent> EventHub::Recent(size_t count, uint64_t* next) {
    std::lock_guard<std::mutex> lock(m_mutex);
    *next = m_nextSequence;
    uint64_t first = m_nextSequence > count ? m_nextSequence - count : 0;
    return CopyFrom(first);
}

std::vector<KeptEvent> EventHub::WaitFrom(uint64_t* next, int timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                       [&] { return m_stopped || m_nextSequence > *next; });
    if (m_stopped) {
        return {};
    }
    std::vector<KeptEvent> out = CopyFrom(*next);
    *next = m_nextSequence;
    return out;
}

void EventHub::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
    }
    m_arrived.notify_all();
}

void EventHub::AddSubscriber(int delta) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_counts.subscribers += delta;
}

EventCounts EventHub::Counts() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

}  // namespace qvfwd
