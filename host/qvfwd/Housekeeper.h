// The daemon's thread for what happens at a time rather than on a request: deadlines
// (expiring rules, rollbacks), the suppressed-record counts of seconds that are over, and
// the metrics file. It wakes at the next deadline, at least once a second, and at once on
// Poke(). Waiting at most a second on the wall clock is what lets a machine that slept
// past a deadline act on it as soon as it wakes.
#pragma once

#include <stdint.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "WallClock.h"

namespace qvfwd {

class Housekeeper {
public:
    struct Jobs {
        std::function<int64_t()> nextDeadlineMicros;
        // Runs at every wake; `poked`: something changed and wants its effect now.
        std::function<void(bool poked)> run;
    };

    Housekeeper(const WallClock& clock, Jobs jobs) : m_clock(clock), m_jobs(std::move(jobs)) {}
    ~Housekeeper() { Stop(); }
    Housekeeper(const Housekeeper&) = delete;
    Housekeeper& operator=(const Housekeeper&) = delete;

    void Start();
    void Poke();
    void Stop();

    static constexpr int64_t kLongestWaitMicros = 1000000;
    // A deadline whose work cannot be done (its file cannot be written) stays due; this
    // keeps the thread from spinning on it.
    static constexpr int64_t kShortestWaitMicros = 10000;
    // How long to wait from `now` for `next`, between the shortest and the longest wait.
    static int64_t WaitMicros(int64_t now, int64_t next);

private:
    void Loop();

    const WallClock& m_clock;
    Jobs m_jobs;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_poked = false;
    bool m_stopping = false;
    std::thread m_thread;
};

}  // namespace qvfwd
