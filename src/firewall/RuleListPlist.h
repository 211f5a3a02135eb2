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

    // Takes the dictionaries of `rules` from `stored`, the list's entry as loaded (may be
    // null), so that a list read from the file is not held twice. Each is checked against
    // what its rule converts to only when an entry is first made: a load that is never
    // followed by a save converts nothing.
    void Reset(const FwRuleList& rules, CFDictionaryRef stored);
    // The rule at `position` of `rules` was replaced, or appended when `position` is the
    // old size.
    void Put(const FwRuleList& rules, int position);
    // The last rule took the place of the one at `position`, which is gone.
    void MoveLastTo(int position);
    void Swap(int a, int b);
    void Clear();

    // A new entry for `rules` (the list these calls followed) as the store's conversion
    // of the whole list writes it ("rules" holding one dictionary per rule, nothing for an
    // empty list), or null when a rule could not be converted.
    CFMutableDictionaryRef CreateEntry(const FwRuleList& rules);

private:
    struct Slot {
        // Null where a rule could not be converted (or nothing was stored for it).
        CFTypeRef value;
        // False while the value is the stored one, not yet compared with its rule.
        bool checked;
    };

    std::vector<Slot> m_rules;
};

}  // namespace vela
}  // namespace qor
