// What `qvfwctl apply --dry-run` prints: the rules that would go (-) and come (+) when a
// list replaces the one held, each by its ipfw text, as a multiset: a rule held twice and
// wanted once goes once. Rules that stay are not shown.
#pragma once

#include <string>
#include <vector>

namespace qvctl {

struct RuleDiff {
    std::vector<std::string> removed;  // in the held list's order
    std::vector<std::string> added;    // in the new list's order
};

RuleDiff DiffRuleLists(const std::vector<std::string>& held,
                       const std::vector<std::string>& wanted);

// "- TEXT" and "+ TEXT" lines, or "no change" when both are empty.
std::string FormatRuleDiff(const RuleDiff& diff);

}  // namespace qvctl
