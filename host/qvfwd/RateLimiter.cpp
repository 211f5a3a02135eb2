#include "RateLimiter.h"

#include "WallClock.h"

namespace qvfwd {

bool RateLimiter::Admit(int64_t rule, int64_t micros) {
    if (m_limit <= 0) {
        return true;
    }
    const int64_t second = micros / kMicrosPerSecond;
    std::lock_guard<std::mutex> lock(m_mutex);
    Window& window = m_windows[rule];
    if (window.second != second) {
        if (window.suppressed > 0) {
            m_finished.push_back(SuppressedCount{rule, window.second, window.suppressed});
        }
        window = Window{second, 0, 0};
    }
    if (window.admitted < m_limit) {
        ++window.admitted;
        return true;
    }
    ++window.suppressed;
    return false;
}

std::vector<SuppressedCount> RateLimiter::TakeFinished(int64_t micros) {
    const int64_t second = micros / kMicrosPerSecond;
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<SuppressedCount> out;
    out.swap(m_finished);
    for (auto it = m_windows.begin(); it != m_windows.end();) {
        if (it->second.second < second) {
            if (it->second.suppressed > 0) {
                out.push_back(SuppressedCount{it->first, it->second.second, it->second.suppressed});
            }
            // A rule quiet for a whole second needs no window: a flood of many rules
            // must not leave one behind for each.
            it = m_windows.erase(it);
        } else {
            ++it;
        }
    }
    return out;
}

}  // namespace qvfwd
