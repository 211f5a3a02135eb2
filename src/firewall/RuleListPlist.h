// The property-list form of one rule list, kept beside the list: one immutable
// dictionary per rule, in the list's order. A rule list is written whole on every change
// of one rule, so the configuration converts only the rules that changed and the XML
// writer reuses the text it made for all the others.
//
// Not thread-safe: its owner (FwConfig) holds its lock around every call.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <vector>

#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

class RuleListPlist {
public:
    RuleListPlist() = default;
    ~RuleListPlist();
    RuleListPlist(const RuleListPlist&) = delete;
    RuleListPlist& operator=(const RuleListPlist&) = delete;

    // Makes the dictionaries of `rules`. `stored` is the list's entry as loaded (may be
    // null): its dictionaries are taken wherever they hold exactly what the rule in the
    // same place converts to, so that a list read from the file is not held twice.
    void Reset(const FwRuleList& rules, CFDictionaryRef stored);
    // The rule at `position` of `rules` was replaced, or appended when `position` is the
    // old size.
    void Put(const FwRuleList& rules, int position);
    // The last rule took the place of the one at `position`, which is gone.
    void MoveLastTo(int position);
    void Swap(int a, int b);
    void Clear();

    // A new entry as the store's conversion of the whole list writes it ("rules" holding
    // one dictionary per rule, nothing for an empty list), or null when a rule could not
    // be converted.
    CFMutableDictionaryRef CreateEntry() const;

private:
    // Null where a rule could not be converted.
    std::vector<CFTypeRef> m_rules;
};

}  // namespace vela
}  // namespace qor
