#include "ipfwnft/IntervalText.h"

#include <algorithm>

namespace ipfwnft {
namespace {

std::vector<Interval> merged(std::vector<Interval> intervals) {
    std::sort(intervals.begin(), intervals.end());
    std::vector<Interval> result;
    for (const Interval& next : intervals) {
        const bool touches = !result.empty() && (result.back().second == UINT32_MAX ||
                                                 next.first <= result.back().second + 1);
        if (touches) {
            result.back().second = std::max(result.back().second, next.second);
        } else {
            result.push_back(next);
        }
    }
    return result;
}

}  // namespace

std::string intervalsText(std::vector<Interval> intervals,
                          const std::function<std::string(uint32_t)>& valueText) {
    const std::vector<Interval> all = merged(std::move(intervals));
    std::string text;
    for (const Interval& interval : all) {
        text += text.empty() ? "" : ", ";
        text += valueText(interval.first);
        if (interval.second != interval.first) {
            text += "-" + valueText(interval.second);
        }
    }
    return all.size() == 1 ? text : "{ " + text + " }";
}

}  // namespace ipfwnft
