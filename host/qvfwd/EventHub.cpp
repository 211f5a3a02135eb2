#include "EventHub.h"

#include <chrono>
#include <cstdio>

#include "QvControl.h"
#include "VelaEventLogMsg.pb.h"

namespace qvfwd {

int64_t LoggedPacketsLost(const std::string& record) {
    qor::vela::EventLogItemFw event;
    unsigned long long lost = 0;
    int matched = 0;
    if (!event.ParseFromString(record) ||
        sscanf(event.detail().c_str(), "lost %llu logged packet%n", &lost, &matched) != 1 ||
        matched == 0) {
        return 0;
    }
    return static_cast<int64_t>(lost);
}

void EventHub::Publish(int32_t origin, std::string record) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(KeptEvent{m_nextSequence++, origin, std::move(record)});
        if (m_events.size() > m_capacity) {
            m_events.pop_front();
        }
        (origin == qvctl::kFromCallback ? m_counts.fromCallback : m_counts.fromService)++;
        // Every line reaches the host service; the callback's copies would count twice.
        if (origin != qvctl::kFromCallback) {
            m_counts.loggedPacketsLost += LoggedPacketsLost(m_events.back().record);
        }
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
