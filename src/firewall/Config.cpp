#include "Config.h"

#include <string.h>

#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "QvUtil.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

namespace qor {
namespace vela {

namespace {

const char kConfigFileName[] = "QvFw.conf.plist";
const char kOptionsKey[] = "FwOptions";
const char kNormalRulesKey[] = "FwRuleCfg";
const char kExceptionRulesKey[] = "FwExceptionRuleCfg";

const int kMinSetNum = 1;
const int kMaxSetNum = 30;

bool IsValidSetNum(int setNum) {
    return setNum >= kMinSetNum && setNum <= kMaxSetNum;
}

// Position of the first rule numbered `index`, or -1.
int FindRule(const FwRuleList& rules, unsigned int index) {
    for (int i = 0; i < rules.rules_size(); ++i) {
        if (rules.rules(i).rule_index() == index) {
            return i;
        }
    }
    return -1;
}

// The store found through QvGetFilePath; it is made even without a location, so that
// every operation finds one.
std::unique_ptr<QvConfig<Mutex>> OpenStore(bool& ready) {
    char buffer[4096];
    memset(buffer, 0, sizeof(buffer));
    ready = true;
    if (!QvGetFilePath(buffer, sizeof(buffer) - 1, kConfigFileName)) {
        ready = false;
        QV_LOG(QV_LOG_ERROR, "%s Can't find QvFw.conf.plist", "InitConfig");
    }
    auto store = std::make_unique<QvConfig<Mutex>>(buffer);
    if (!store->isLoaded()) {
        ready = false;
        QV_LOG(QV_LOG_ERROR, "%s Failed to Init Config file, buf is %s", "InitConfig", buffer);
    }
    return store;
}

}  // namespace

// Nobody else can see the object yet, so the reads need no lock.
FwConfig::FwConfig()
    : m_ready(false),
      m_pConfig(OpenStore(m_ready)),
      m_excpRules(kExceptionRulesKey),
      m_normalRules(kNormalRulesKey) {
    if (m_ready) {
        ReadRules();
        ReadOpt();
        ReadExceptionRuls();
    } else {
        ApplyOptionDefaults();
    }
}

FwConfig::~FwConfig() = default;

void FwConfig::ReadRules() {
    ReadRuleList(m_normalRules);
}

void FwConfig::ReadOpt() {
    (void)m_pConfig->get(m_options, kOptionsKey);
    ApplyOptionDefaults();
}

void FwConfig::ReadExceptionRuls() {
    ReadRuleList(m_excpRules);
}

// The loaded dictionaries are shared with the store's document; each is checked against
// what its rule converts to when the list is first written, and the entry stays as
// loaded until then.
void FwConfig::ReadRuleList(RuleList& list) {
    (void)m_pConfig->get(list.rules, list.key);
    SortRules(list.rules);
    CFDictionaryRef stored = nullptr;
    (void)m_pConfig->copyEntry(list.key, stored);
    list.plist.Reset(list.rules, stored);
    if (stored != nullptr) {
        CFRelease(stored);
    }
}

// The defaults live in memory only; the file gets them with the next options change.
// The exception set is checked after the normal set has been settled.
void FwConfig::ApplyOptionDefaults() {
    if (!m_options.has_enable_fw()) {
        m_options.set_enable_fw(true);
    }
    if (!m_options.has_default_set_num() || !IsValidSetNum(m_options.default_set_num())) {
        m_options.set_default_set_num(QV_FW_DEFAULT_NORMAL_SET);
    }
    if (!IsValidSetNum(m_options.exception_set_num())) {
        m_options.set_exception_set_num(QV_FW_DEFAULT_EXCEPTION_SET);
    }
    if (!m_options.has_fw_log_path()) {
        m_options.set_fw_log_path(QV_FW_DEFAULT_LOG_PATH);
    }
    if (!m_options.has_syslog_conf()) {
        m_options.set_syslog_conf(QV_FW_DEFAULT_SYSLOG_CONF);
    }
    if (!m_options.has_enable_notify()) {
        m_options.set_enable_notify(true);
    }
}

void FwConfig::SortRules(FwRuleList& rules) {
    const int count = rules.rules_size();
    // Insertion sort: stable, and it only exchanges element pointers.
    for (int i = 1; i < count; ++i) {
        for (int j = i; j > 0 && rules.rules(j).rule_index() < rules.rules(j - 1).rule_index();
             --j) {
            rules.mutable_rules()->SwapElements(j, j - 1);
        }
    }
}

namespace {

// Store failures are not codes of the operations (the working copy is changed all the
// same), so this line is the only trace of a change that did not reach the disk.
void SaveLogged(QvConfig<Mutex>& store) {
    const Result<> saved = store.save();
    if (!saved.ok()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to save %s, error is %d", "FwConfig::Save", kConfigFileName,
               saved.code());
    }
}

}  // namespace

bool FwConfig::SetRulesEntry(RuleList& list) {
    CFMutableDictionaryRef entry = list.plist.CreateEntry(list.rules);
    if (entry == nullptr) {
        return false;
    }
    const bool set = m_pConfig->setEntry(entry, list.key).ok();
    CFRelease(entry);
    return set;
}

// Like the options, the list is saved even when its entry could not be made: the file
// then gets the rest of the document as it is in memory.
void FwConfig::WriteRules(RuleList& list) {
    SetRulesEntry(list);
    SaveLogged(*m_pConfig);
}

void FwConfig::WriteOptions() {
    (void)m_pConfig->set(m_options, kOptionsKey);
    SaveLogged(*m_pConfig);
}

// Replaces the rule with the same number in place, or appends it, whatever its number.
Result<> FwConfig::AddRulePriv(const FwRule& rule, RuleList& list) {
    int position = FindRule(list.rules, rule.rule_index());
    if (position >= 0) {
        list.rules.mutable_rules(position)->CopyFrom(rule);
    } else {
        position = list.rules.rules_size();
        list.rules.add_rules()->CopyFrom(rule);
    }
    list.plist.Put(list.rules, position);
    WriteRules(list);
    return Result<>::Success();
}

Result<> FwConfig::AddNormalRule(const FwRule& rule) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    return AddRulePriv(rule, m_normalRules);
}

Result<> FwConfig::AddExcpRule(const FwRule& rule) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    return AddRulePriv(rule, m_excpRules);
}

// The last rule takes the deleted rule's place: the order is not preserved.
Result<> FwConfig::DeleteRulePriv(unsigned int index, RuleList& list) {
    FwRuleList& rules = list.rules;
    const int position = FindRule(rules, index);
    if (position < 0) {
        return Result<>::Failure(FW_ERR_RULE_NOT_FOUND);
    }
    rules.mutable_rules()->SwapElements(position, rules.rules_size() - 1);
    rules.mutable_rules()->RemoveLast();
    list.plist.MoveLastTo(position);
    WriteRules(list);
    return Result<>::Success();
}

Result<> FwConfig::DeleteNormalRule(unsigned int index) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    return DeleteRulePriv(index, m_normalRules);
}

Result<> FwConfig::DeleteExcpRule(unsigned int index) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    return DeleteRulePriv(index, m_excpRules);
}

Result<> FwConfig::FlushRulePriv(RuleList& list) {
    list.rules.clear_rules();
    list.plist.Clear();
    WriteRules(list);
    return Result<>::Success();
}

Result<> FwConfig::FlushRules() {
    Guard<RwMutex> guard(m_lock, kExclusive);
    return FlushRulePriv(m_normalRules);
}

Result<> FwConfig::FlushExcpRules() {
    Guard<RwMutex> guard(m_lock, kExclusive);
    return FlushRulePriv(m_excpRules);
}

void FwConfig::GetAllNormalRules(FwRuleList& out) {
    Guard<RwMutex> guard(m_lock, kShared);
    out.CopyFrom(m_normalRules.rules);
}

// Exclusive although it only reads: that is how callers have always been serialised.
void FwConfig::GetExceptionRules(FwRuleList& out) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    out.CopyFrom(m_excpRules.rules);
}

Result<> FwConfig::GetNormalRule(unsigned int index, FwRule& out) {
    Guard<RwMutex> guard(m_lock, kShared);
    const int position = FindRule(m_normalRules.rules, index);
    if (position < 0) {
        return Result<>::Failure(FW_ERR_RULE_NOT_FOUND);
    }
    out.CopyFrom(m_normalRules.rules.rules(position));
    return Result<>::Success();
}

// Works on the normal list. Both rules are found before either is renumbered: an
// exchange that finds only one of them changes nothing, so that the stored list keeps
// the numbers ipfw holds.
Result<> FwConfig::SwapRuleOrderPriv(unsigned int a, unsigned int b) {
    FwRuleList& rules = m_normalRules.rules;
    int positions[2] = {-1, -1};
    for (int i = 0; i < rules.rules_size(); ++i) {
        const unsigned int number = rules.rules(i).rule_index();
        if (number == a && positions[0] < 0) {
            positions[0] = i;
        } else if (number == b && positions[1] < 0) {
            positions[1] = i;
        }
    }
    if (a == b || positions[0] < 0 || positions[1] < 0) {
        return Result<>::Failure(FW_ERR_RULE_NOT_FOUND);
    }
    rules.mutable_rules(positions[0])->set_rule_index(b);
    rules.mutable_rules(positions[1])->set_rule_index(a);
    for (int position : positions) {
        m_normalRules.plist.Put(rules, position);
    }
    // Keep the list ordered as the new numbers are.
    rules.mutable_rules()->SwapElements(positions[0], positions[1]);
    m_normalRules.plist.Swap(positions[0], positions[1]);
    if (SetRulesEntry(m_normalRules)) {
        SaveLogged(*m_pConfig);
    }
    return Result<>::Success();
}

// A successful exchange is written a second time here; callers rely on nothing else.
Result<> FwConfig::SwapNormalRuleOrder(unsigned int a, unsigned int b) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    Result<> result = SwapRuleOrderPriv(a, b);
    if (result.ok()) {
        WriteRules(m_normalRules);
    }
    return result;
}

// Written even when unchanged.
Result<> FwConfig::SetFwEnable(bool enable) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    m_options.set_enable_fw(enable);
    WriteOptions();
    return Result<>::Success();
}

bool FwConfig::IsFwEnable() {
    Guard<RwMutex> guard(m_lock, kShared);
    return m_options.enable_fw();
}

// Written only when the value changes.
Result<> FwConfig::SetNotifyEnable(bool enable) {
    Guard<RwMutex> guard(m_lock, kExclusive);
    if (enable != m_options.enable_notify()) {
        m_options.set_enable_notify(enable);
        WriteOptions();
    }
    return Result<>::Success();
}

bool FwConfig::IsNotifyEnable() {
    Guard<RwMutex> guard(m_lock, kShared);
    return m_options.enable_notify();
}

int FwConfig::GetNormalSetNum() {
    Guard<RwMutex> guard(m_lock, kShared);
    return m_options.default_set_num();
}

int FwConfig::GetExceptionSetNum() {
    Guard<RwMutex> guard(m_lock, kShared);
    return m_options.exception_set_num();
}

std::string FwConfig::GetFwLogPath() {
    Guard<RwMutex> guard(m_lock, kShared);
    return m_options.fw_log_path();
}

std::string FwConfig::GetSysConfPath() {
    Guard<RwMutex> guard(m_lock, kShared);
    return m_options.syslog_conf();
}

}  // namespace vela
}  // namespace qor
