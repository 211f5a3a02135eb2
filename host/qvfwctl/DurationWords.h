// How long a rule lives or a change waits for confirmation, in the words qvfwctl takes
// ("90s", "15m", "2h", "1d", or several: "1h30m") and shows ("1h 30m", "59s").
#pragma once

#include <stdint.h>

#include <string>

namespace qvctl {

// The longest duration taken: a year.
constexpr int64_t kLongestDurationSeconds = 366LL * 24 * 3600;

// False for anything but one or more NUMBER UNIT groups adding up to 1 s .. a year.
bool ParseDuration(const std::string& text, int64_t* seconds);

// The two largest units of what is left: "2d 3h", "1h 30m", "4m 5s", "59s"; "0s" when due.
std::string FormatTimeLeft(int64_t seconds);

}  // namespace qvctl
