#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ipfwsim/CommandContext.h"
#include "ipfwsim/RuleLister.h"
#include "ipfwsim/StateFile.h"

namespace ipfwsim {

// "ipfw list" and "ipfw show": every rule, or the rules of each "N" or "N-M" asked
// for, looked up without reading the others. A number whose rules all sit in
// disabled sets prints nothing but still counts as existing.
class ListCommand {
public:
    ListCommand(const CommandContext& context, bool showCounters)
        : context_(context), showCounters_(showCounters) {}
    int run(const std::vector<std::string>& words);

private:
    struct Range {
        uint32_t low;
        uint32_t high;
    };

    Status prepare(StateFile& file, StateHeader& header);
    Status printRange(const StateFile& file, const StateHeader& header, Range range, bool& found);
    Status printLine(std::string_view line) const;
    void printDefaultRule(const StateHeader& header) const;
    void printDynamic(const StateHeader& header, const std::vector<Range>& ranges) const;
    std::string dynamicLine(const DynamicState& state, int64_t secondsLeft) const;
    bool parseRange(const std::string& word, Range& range) const;

    const CommandContext& context_;
    bool showCounters_;
    ListingStyle style_;
};

}  // namespace ipfwsim
