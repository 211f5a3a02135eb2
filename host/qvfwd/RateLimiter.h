// --event-rate N: at most N packet records per rule in each second of the wall clock;
// the rest are counted and reported, one count per rule and second, once that second
// is over. The caller holds the time (a WallClock), so a test moves it by hand.
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <vector>

namespace qvfwd {

struct SuppressedCount {
    int64_t rule = 0;
    int64_t second = 0;  // since the epoch
    int64_t count = 0;
};

class RateLimiter {
public:
    // 0: no limit.
    explicit RateLimiter(int64_t perRulePerSecond) : m_limit(perRulePerSecond) {}

    // True when this rule's packet record at `micros` may go out.
    bool Admit(int64_t rule, int64_t micros);
    // The counts of the seconds that ended before `micros`, each once, by rule.
    std::vector<SuppressedCount> TakeFinished(int64_t micros);

private:
    struct Window {
        int64_t second = -1;
        int64_t admitted = 0;
        int64_t suppressed = 0;
    };

    const int64_t m_limit;
    std::mutex m_mutex;
    std::map<int64_t, Window> m_windows;
    std::vector<SuppressedCount> m_finished;
};

}  // namespace qvfwd
