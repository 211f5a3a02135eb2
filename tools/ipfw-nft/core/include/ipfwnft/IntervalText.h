#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace ipfwnft {

using Interval = std::pair<uint32_t, uint32_t>;  // inclusive bounds

// Values and ranges as nftables tests them: one value or range alone ("22", "8000-8080"),
// which the kernel compares in place, and several as an anonymous set ("{ 80, 8000-8080 }"),
// which costs a lookup. Overlapping and adjacent intervals are merged first, since
// nftables refuses overlapping elements.
std::string intervalsText(std::vector<Interval> intervals,
                          const std::function<std::string(uint32_t)>& valueText);

}  // namespace ipfwnft
