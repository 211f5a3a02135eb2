#include "RuleListPlist.h"

#include <utility>

#include "QvPlistMessageConvert.h"
#include "VelaFwMsgConvert.h"

namespace qor {
namespace vela {

namespace {

const char kRulesKey[] = "rules";

// The rule array of a stored entry, or null.
CFArrayRef StoredRules(CFDictionaryRef stored) {
    if (stored == nullptr) {
        return nullptr;
    }
    CFStringRef key =
        CFStringCreateWithCString(kCFAllocatorDefault, kRulesKey, kCFStringEncodingUTF8);
    CFTypeRef rules = key != nullptr ? CFDictionaryGetValue(stored, key) : nullptr;
    if (key != nullptr) {
        CFRelease(key);
    }
    return rules != nullptr && CFGetTypeID(rules) == CFArrayGetTypeID()
               ? static_cast<CFArrayRef>(rules)
               : nullptr;
}

CFTypeRef ValueAt(CFArrayRef array, int position) {
    return array != nullptr && position < CFArrayGetCount(array)
               ? CFArrayGetValueAtIndex(array, position)
               : nullptr;
}

// A new immutable dictionary of `rule`; the stored one when it is equal. Null when the
// rule does not convert.
CFTypeRef CreateRuleValue(const FwRule& rule, CFTypeRef stored) {
    CFTypeRef made = createMessageValue(rule);
    if (made == nullptr) {
        return nullptr;
    }
    CFTypeRef value =
        stored != nullptr && CFEqual(stored, made)
            ? CFRetain(stored)
            : CFPropertyListCreateDeepCopy(kCFAllocatorDefault, made, kCFPropertyListImmutable);
    CFRelease(made);
    return value;
}

void ReleaseIfAny(CFTypeRef value) {
    if (value != nullptr) {
        CFRelease(value);
    }
}

}  // namespace

RuleListPlist::~RuleListPlist() {
    Clear();
}

void RuleListPlist::Reset(const FwRuleList& rules, CFDictionaryRef stored) {
    Clear();
    CFArrayRef storedRules = StoredRules(stored);
    m_rules.reserve(static_cast<size_t>(rules.rules_size()));
    for (int i = 0; i < rules.rules_size(); ++i) {
        CFTypeRef value = ValueAt(storedRules, i);
        m_rules.push_back(Slot{value != nullptr ? CFRetain(value) : nullptr, false});
    }
}

void RuleListPlist::Put(const FwRuleList& rules, int position) {
    const Slot slot{CreateRuleValue(rules.rules(position), nullptr), true};
    if (static_cast<size_t>(position) < m_rules.size()) {
        ReleaseIfAny(m_rules[position].value);
        m_rules[position] = slot;
    } else {
        m_rules.push_back(slot);
    }
}

void RuleListPlist::MoveLastTo(int position) {
    std::swap(m_rules[position], m_rules.back());
    ReleaseIfAny(m_rules.back().value);
    m_rules.pop_back();
}

void RuleListPlist::Swap(int a, int b) {
    std::swap(m_rules[a], m_rules[b]);
}

void RuleListPlist::Clear() {
    for (const Slot& slot : m_rules) {
        ReleaseIfAny(slot.value);
    }
    m_rules.clear();
}

// The entry itself stays mutable on purpose: the XML writer keeps the text of the
// outermost immutable dictionaries, which must be the rules and not a list made anew
// for every save.
CFMutableDictionaryRef RuleListPlist::CreateEntry(const FwRuleList& rules) {
    std::vector<CFTypeRef> values;
    values.reserve(m_rules.size());
    for (size_t i = 0; i < m_rules.size(); ++i) {
        Slot& slot = m_rules[i];
        if (!slot.checked) {
            CFTypeRef stored = slot.value;
            slot.value = CreateRuleValue(rules.rules(static_cast<int>(i)), stored);
            slot.checked = true;
            ReleaseIfAny(stored);
        }
        if (slot.value == nullptr) {
            return nullptr;
        }
        values.push_back(slot.value);
    }
    CFMutableDictionaryRef entry = createMutableDictionary();
    if (entry == nullptr || m_rules.empty()) {
        return entry;
    }
    // CFArrayCreate only reads the values; its parameter is not const for history's sake.
    CFArrayRef array = CFArrayCreate(kCFAllocatorDefault, const_cast<const void**>(values.data()),
                                     static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks);
    const bool added = array != nullptr && addValue(entry, kRulesKey, array);
    ReleaseIfAny(array);
    if (!added) {
        CFRelease(entry);
        return nullptr;
    }
    return entry;
}

}  // namespace vela
}  // namespace qor
