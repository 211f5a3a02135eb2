#include "WallClock.h"

#include <time.h>

namespace qvfwd {

int64_t SystemWallClock::NowMicros() const {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * kMicrosPerSecond + now.tv_nsec / 1000;
}

}  // namespace qvfwd
