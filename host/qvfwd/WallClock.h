// The wall clock (CLOCK_REALTIME) behind a seam, so that expiry, records and rate limits
// can be tested on a clock the test moves. Deadlines are on the wall clock on purpose:
// a machine that was suspended past a deadline acts on it as soon as it wakes.
#pragma once

#include <stdint.h>

namespace qvfwd {

class WallClock {
public:
    virtual ~WallClock() = default;
    // Microseconds since the epoch.
    virtual int64_t NowMicros() const = 0;
};

class SystemWallClock final : public WallClock {
public:
    int64_t NowMicros() const override;
};

constexpr int64_t kMicrosPerSecond = 1000000;

}  // namespace qvfwd
