#include "Deadline.h"

#include <time.h>

namespace qvutil {

uint64_t Deadline::NowNanoseconds() {
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

Deadline Deadline::AfterMilliseconds(uint64_t milliseconds) {
    if (milliseconds == 0) {
        return Deadline(true, 0);
    }
    return Deadline(false, NowNanoseconds() + milliseconds * 1000000u);
}

bool Deadline::Expired() const {
    return !m_unlimited && NowNanoseconds() >= m_at;
}

int Deadline::PollTimeout() const {
    if (m_unlimited) {
        return -1;
    }
    uint64_t now = NowNanoseconds();
    if (now >= m_at) {
        return 0;
    }
    uint64_t left = (m_at - now + 999999u) / 1000000u;
    return left > 0x7fffffff ? 0x7fffffff : static_cast<int>(left);
}

}  // namespace qvutil
