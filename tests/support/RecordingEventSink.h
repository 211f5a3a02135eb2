// An event sink that keeps what the watcher hands it, for tests to wait on.
#pragma once

#include <chrono>
#include <mutex>
#include <vector>

#include "EventSink.h"
#include "TestUtil.h"

namespace qvtest {

class RecordingEventSink : public qor::vela::EventSink {
public:
    struct Reported {
        qor::vela::EventLogItemFw event;
        bool notify = false;
    };

    void Report(const qor::vela::EventLogItemFw& event, bool notify) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_reported.push_back({event, notify});
    }

    // What was reported once `count` events came, or at the deadline.
    std::vector<Reported> waitFor(size_t count,
                                  std::chrono::milliseconds patience = std::chrono::seconds(5)) {
        eventually([&] { return reported().size() >= count; }, patience);
        return reported();
    }

    std::vector<Reported> reported() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_reported;
    }

private:
    std::mutex m_mutex;
    std::vector<Reported> m_reported;
};

}  // namespace qvtest
