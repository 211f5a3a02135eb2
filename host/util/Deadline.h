// A point on the monotonic clock by which something has to be done, in the form poll()
// wants it.
#pragma once

#include <stdint.h>

namespace qvutil {

class Deadline {
public:
    // Zero milliseconds means no limit.
    static Deadline AfterMilliseconds(uint64_t milliseconds);
    static Deadline AfterSeconds(unsigned int seconds) {
        return AfterMilliseconds(static_cast<uint64_t>(seconds) * 1000u);
    }

    bool Unlimited() const { return m_unlimited; }
    bool Expired() const;
    // Milliseconds left for poll(): -1 when unlimited, else 0 or more (rounded up, so a
    // poll never wakes just before the deadline and spins).
    int PollTimeout() const;

    static uint64_t NowNanoseconds();

private:
    Deadline(bool unlimited, uint64_t at) : m_unlimited(unlimited), m_at(at) {}
    bool m_unlimited;
    uint64_t m_at;  // nanoseconds on the monotonic clock
};

}  // namespace qvutil
