#include "DryRunDiff.h"

#include <map>

namespace qvctl {

RuleDiff DiffRuleLists(const std::vector<std::string>& held,
                       const std::vector<std::string>& wanted) {
    RuleDiff diff;
    std::map<std::string, int> wantedCount;
    for (const std::string& rule : wanted) {
        ++wantedCount[rule];
    }
    std::map<std::string, int> heldCount;
    for (const std::string& rule : held) {
        if (wantedCount[rule] > 0) {
            --wantedCount[rule];
            ++heldCount[rule];
        } else {
            diff.removed.push_back(rule);
        }
    }
    for (const std::string& rule : wanted) {
        if (heldCount[rule] > 0) {
            --heldCount[rule];
        } else {
            diff.added.push_back(rule);
        }
    }
    return diff;
}

std::string FormatRuleDiff(const RuleDiff& diff) {
    if (diff.removed.empty() && diff.added.empty()) {
        return "no change\n";
    }
    std::string out;
    for (const std::string& rule : diff.removed) {
        out += "- " + rule + "\n";
    }
    for (const std::string& rule : diff.added) {
        out += "+ " + rule + "\n";
    }
    return out;
}

}  // namespace qvctl
