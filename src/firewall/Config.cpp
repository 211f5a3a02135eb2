#include "Config.h"

#include <string.h>

#include "QvDebugLog.h"
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

const int kDefaultNormalSetNum = 19;
const int kDefaultExceptionSetNum = 18;
const int kMinSetNum = 1;
const int kMaxSetNum = 30;
const char kDefaultFwLogPath[] = "/var/log/Quorvane/QvrnCore/ipfw.log";
const char kDefaultSyslogConf[] = "/etc/syslog.conf";

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

}  // namespace

FwConfig::FwConfig() : m_ready(true), m_pConfig(nullptr) {
    char buffer[4096];
    memset(buffer, 0, sizeof(buffer));
    if (!QvGetFilePath(buffer, sizeof(buffer) - 1, kConfigFileName)) {
        m_ready = false;
        QV_LOG(QV_LOG_ERROR, "%s Can't find QvFw.conf.plist", "InitConfig");
    }
    // The store is made even without a location, so that every operation finds one.
    m_pConfig = new QvConfig<Mutex>(buffer);
    if (!m_pConfig->isLoaded()) {
        m_ready = false;
        QV_LOG(QV_LOG_ERROR, "%s Failed to Init Config file, buf is %s", "InitConfig", buffer);
    }
}

FwConfig::~FwConfig() {
    delete m_pConfig;
    m_pConfig = nullptr;
}

unsigned int FwConfig::Init() {
    if (!m_ready) {
        return FW_CONFIG_NOT_READY;
    }
    ReadRules();
    ReadOpt();
    ReadExceptionRuls();
    return 0;
}

unsigned int FwConfig::ReadRules() {
    Guard<RwMutex> guard(m_lock, false);
    m_pConfig->get(m_normalRules, kNormalRulesKey);
    SortRules(m_normalRules);
    return 0;
}

unsigned int FwConfig::ReadOpt() {
    Guard<RwMutex> guard(m_lock, false);
    m_pConfig->get(m_options, kOptionsKey);
    ApplyOptionDefaults();
    return 0;
}

unsigned int FwConfig::ReadExceptionRuls() {
    Guard<RwMutex> guard(m_lock, false);
    m_pConfig->get(m_excpRules, kExceptionRulesKey);
    SortRules(m_excpRules);
    return 0;
}

// The defaults live in memory only; the file gets them with the next options change.
// The exception set is checked after the normal set has been settled.
void FwConfig::ApplyOptionDefaults() {
    if (!m_options.has_enable_fw()) {
        m_options.set_enable_fw(true);
    }
    if (!m_options.has_default_set_num() || !IsValidSetNum(m_options.default_set_num())) {
        m_options.set_default_set_num(kDefaultNormalSetNum);
    }
    if (!IsValidSetNum(m_options.exception_set_num())) {
        m_options.set_exception_set_num(kDefaultExceptionSetNum);
    }
    if (!m_options.has_fw_log_path()) {
        m_options.set_fw_log_path(kDefaultFwLogPath);
    }
    if (!m_options.has_syslog_conf()) {
        m_options.set_syslog_conf(kDefaultSyslogConf);
    }
    if (!m_options.has_enable_notify()) {
        m_options.set_enable_notify(true);
    }
}

void FwConfig::SortRules(FwRuleList& rules) {
    const int count = rules.rules_size();
    if (count < 2) {
        return;
    }
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
    if (!store.save()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to save %s, error is %d", "FwConfig::Save", kConfigFileName,
               store.getLastError());
    }
}

}  // namespace

void FwConfig::WriteRules(const FwRuleList& rules, const char* key) {
    m_pConfig->set(rules, key);
    SaveLogged(*m_pConfig);
}

void FwConfig::WriteOptions() {
    m_pConfig->set(m_options, kOptionsKey);
    SaveLogged(*m_pConfig);
}

// Replaces the rule with the same number in place, or appends it, whatever its number.
unsigned int FwConfig::AddRulePriv(const FwRule& rule, FwRuleList& rules) {
    const int position = FindRule(rules, rule.rule_index());
    if (position >= 0) {
        rules.mutable_rules(position)->CopyFrom(rule);
    } else {
        rules.add_rules()->CopyFrom(rule);
    }
    return 0;
}

unsigned int FwConfig::AddNormalRule(const FwRule& rule) {
    Guard<RwMutex> guard(m_lock, false);
    AddRulePriv(rule, m_normalRules);
    WriteRules(m_normalRules, kNormalRulesKey);
    return 0;
}

unsigned int FwConfig::AddExcpRule(const FwRule& rule) {
    Guard<RwMutex> guard(m_lock, false);
    AddRulePriv(rule, m_excpRules);
    WriteRules(m_excpRules, kExceptionRulesKey);
    return 0;
}

// The last rule takes the deleted rule's place: the order is not preserved.
unsigned int FwConfig::DeleteRulePriv(unsigned int index, FwRuleList& rules, const char* key) {
    if (rules.rules_size() == 0) {
        return FW_ERR_RULE_NOT_FOUND;
    }
    const int position = FindRule(rules, index);
    if (position < 0) {
        return FW_ERR_RULE_NOT_FOUND;
    }
    rules.mutable_rules()->SwapElements(position, rules.rules_size() - 1);
    rules.mutable_rules()->RemoveLast();
    WriteRules(rules, key);
    return 0;
}

unsigned int FwConfig::DeleteNormalRule(unsigned int index) {
    Guard<RwMutex> guard(m_lock, false);
    return DeleteRulePriv(index, m_normalRules, kNormalRulesKey);
}

unsigned int FwConfig::DeleteExcpRule(unsigned int index) {
    Guard<RwMutex> guard(m_lock, false);
    return DeleteRulePriv(index, m_excpRules, kExceptionRulesKey);
}

unsigned int FwConfig::FlushRules() {
    Guard<RwMutex> guard(m_lock, false);
    m_normalRules.clear_rules();
    WriteRules(m_normalRules, kNormalRulesKey);
    return 0;
}

unsigned int FwConfig::FlushExcpRules() {
    Guard<RwMutex> guard(m_lock, false);
    m_excpRules.clear_rules();
    WriteRules(m_excpRules, kExceptionRulesKey);
    return 0;
}

unsigned int FwConfig::GetAllNormalRules(FwRuleList& out) {
    Guard<RwMutex> guard(m_lock, true);
    out.CopyFrom(m_normalRules);
    return 0;
}

// Exclusive although it only reads: that is how callers have always been serialised.
unsigned int FwConfig::GetExceptionRules(FwRuleList& out) {
    Guard<RwMutex> guard(m_lock, false);
    out.CopyFrom(m_excpRules);
    return 0;
}

unsigned int FwConfig::GetNormalRule(unsigned int index, FwRule& out) {
    Guard<RwMutex> guard(m_lock, true);
    const int position = FindRule(m_normalRules, index);
    if (position < 0) {
        return FW_ERR_RULE_NOT_FOUND;
    }
    out.CopyFrom(m_normalRules.rules(position));
    return 0;
}

// Works on the normal list whatever list it is given. Renumbering happens during the
// walk, so a failed search leaves a renumbered rule behind in memory (nothing is written).
unsigned int FwConfig::SwapRuleOrderPriv(unsigned int a, unsigned int b, FwRuleList& /*rules*/) {
    FwRuleList& rules = m_normalRules;
    if (rules.rules_size() == 0) {
        return FW_ERR_RULE_NOT_FOUND;
    }
    int changed[2];
    int changedCount = 0;
    for (int i = 0; i < rules.rules_size() && changedCount < 2; ++i) {
        FwRule* rule = rules.mutable_rules(i);
        if (rule->rule_index() == a) {
            rule->set_rule_index(b);
            changed[changedCount++] = i;
        } else if (rule->rule_index() == b) {
            rule->set_rule_index(a);
            changed[changedCount++] = i;
        }
    }
    if (changedCount < 2) {
        return FW_ERR_RULE_NOT_FOUND;
    }
    // Keep the list ordered as the new numbers are.
    rules.mutable_rules()->SwapElements(changed[0], changed[1]);
    if (m_pConfig->set(rules, kNormalRulesKey)) {
        SaveLogged(*m_pConfig);
    }
    return 0;
}

// A successful exchange is written a second time here; callers rely on nothing else.
unsigned int FwConfig::SwapNormalRuleOrder(unsigned int a, unsigned int b) {
    Guard<RwMutex> guard(m_lock, false);
    const unsigned int result = SwapRuleOrderPriv(a, b, m_normalRules);
    if (result == 0) {
        WriteRules(m_normalRules, kNormalRulesKey);
    }
    return result;
}

// Written even when unchanged.
unsigned int FwConfig::SetFwEnable(bool enable) {
    Guard<RwMutex> guard(m_lock, false);
    m_options.set_enable_fw(enable);
    WriteOptions();
    return 0;
}

bool FwConfig::IsFwEnable() {
    Guard<RwMutex> guard(m_lock, true);
    return m_options.enable_fw();
}

// Written only when the value changes.
unsigned int FwConfig::SetNotifyEnable(bool enable) {
    Guard<RwMutex> guard(m_lock, false);
    if (enable != m_options.enable_notify()) {
        m_options.set_enable_notify(enable);
        WriteOptions();
    }
    return 0;
}

bool FwConfig::IsNotifyEnable() {
    Guard<RwMutex> guard(m_lock, true);
    return m_options.enable_notify();
}

unsigned int FwConfig::GetNormalSetNum() {
    Guard<RwMutex> guard(m_lock, true);
    return static_cast<unsigned int>(m_options.default_set_num());
}

unsigned int FwConfig::GetExceptionSetNum() {
    Guard<RwMutex> guard(m_lock, true);
    return static_cast<unsigned int>(m_options.exception_set_num());
}

const std::string& FwConfig::GetFwLogPath() {
    Guard<RwMutex> guard(m_lock, true);
    return m_options.fw_log_path();
}

const std::string& FwConfig::GetSysConfPath() {
    Guard<RwMutex> guard(m_lock, true);
    return m_options.syslog_conf();
}

}  // namespace vela
}  // namespace qor
