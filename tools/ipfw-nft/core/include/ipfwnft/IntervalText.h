#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace ipfwnft {

using Interval = std::pair<uint32_t, uint32_t>;  // inclusive bounds

// An anonymous nftables set of values and ranges: "{ 80, 8000-8080 }". Overlapping and
// adjacent intervals are merged first, since nftables refuses overlapping elements.
std::string intervalSetText(std::vector<Interval> intervals,
                            const std::function<std::string(uint32_t)>& valueText);

}  // namespace ipfwnft
