// The firewall events the daemon has seen: the last `capacity` kept in memory, counts per
// origin, and a wait for streaming clients that wakes on every new event or on Stop().
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace qvfwd {

struct KeptEvent {
    uint64_t sequence = 0;
    int32_t origin = 0;  // qvctl::EventOrigin
    std::string record;  // a serialized qor.vela.EventLogItemFw
};

struct EventCounts {
    int64_t fromService = 0;
    int64_t fromCallback = 0;
    int64_t kept = 0;
    int64_t subscribers = 0;
    // The logged packets that ipfw-logd could not write and reported as lost.
    int64_t loggedPacketsLost = 0;
};

// The count in an event whose line reports logged packets lost ("ipfw: lost N logged
// packets"), else 0. `record`: a serialized qor.vela.EventLogItemFw.
int64_t LoggedPacketsLost(const std::string& record);

class EventHub {
public:
    explicit EventHub(size_t capacity) : m_capacity(capacity) {}

    void Publish(int32_t origin, std::string record);

    // The last `count` kept events; `*next` receives the sequence the live ones start at.
    std::vector<KeptEvent> Recent(size_t count, uint64_t* next);

    // Waits up to `timeoutMs` for events numbered `*next` or later and returns them
    // (those that already fell out of the window are lost to a slow reader). Returns at
    // once, empty, after Stop().
    std::vector<KeptEvent> WaitFrom(uint64_t* next, int timeoutMs);

    void Stop();
    void AddSubscriber(int delta);
    EventCounts Counts() const;

private:
    std::vector<KeptEvent> CopyFrom(uint64_t first);

    const size_t m_capacity;
    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::deque<KeptEvent> m_events;
    uint64_t m_nextSequence = 0;
    EventCounts m_counts;
    bool m_stopped = false;
};

}  // namespace qvfwd
