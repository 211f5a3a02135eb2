// The firewall's persisted state: its options, the normal rule list and the exception
// rule list, kept as working copies in memory and written through the configuration
// store to "QvFw.conf.plist" on every change.
//
// Rules are identified by rule_index; a list holds at most one rule per index. Every
// public operation holds the read-write lock for its whole duration (shared for the
// plain readers, exclusive for everything else). Store failures are not reported: a
// failed write leaves the working copy changed and the operation still answers 0.
#pragma once

#include <memory>
#include <string>

#include "QvConfig.h"
#include "QvLock.h"
#include "RuleListPlist.h"
#include "VelaFwInternalMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

class FwConfig {
public:
    // Locates "QvFw.conf.plist" through QvGetFilePath, loads it and reads the options and
    // both rule lists; IsReady() tells whether the file could be loaded. Options the file
    // leaves out (or that it could not give) take their defaults.
    FwConfig();
    ~FwConfig();
    FwConfig(const FwConfig&) = delete;
    FwConfig& operator=(const FwConfig&) = delete;

    bool IsReady() const { return m_ready; }

    // Stable ascending sort by rule_index.
    static void SortRules(FwRuleList& rules);

    int AddNormalRule(const FwRule& rule) EXCLUDES(m_lock);
    int AddExcpRule(const FwRule& rule) EXCLUDES(m_lock);
    int DeleteNormalRule(unsigned int index) EXCLUDES(m_lock);
    int DeleteExcpRule(unsigned int index) EXCLUDES(m_lock);
    int FlushRules() EXCLUDES(m_lock);
    int FlushExcpRules() EXCLUDES(m_lock);
    int GetAllNormalRules(FwRuleList& out) EXCLUDES(m_lock);
    int GetExceptionRules(FwRuleList& out) EXCLUDES(m_lock);
    int GetNormalRule(unsigned int index, FwRule& out) EXCLUDES(m_lock);
    // Exchanges the rule numbers and the places of the normal rules `a` and `b`; 20701
    // with nothing changed when either is not stored.
    int SwapNormalRuleOrder(unsigned int a, unsigned int b) EXCLUDES(m_lock);

    int SetFwEnable(bool enable) EXCLUDES(m_lock);
    bool IsFwEnable() EXCLUDES(m_lock);
    int SetNotifyEnable(bool enable) EXCLUDES(m_lock);
    bool IsNotifyEnable() EXCLUDES(m_lock);
    int GetNormalSetNum() EXCLUDES(m_lock);
    int GetExceptionSetNum() EXCLUDES(m_lock);
    std::string GetFwLogPath() EXCLUDES(m_lock);
    std::string GetSysConfPath() EXCLUDES(m_lock);

private:
    // One stored rule list: the messages, their property-list form and the store's key.
    struct RuleList {
        explicit RuleList(const char* name) : key(name) {}
        FwRuleList rules;
        RuleListPlist plist;
        const char* const key;
    };

    void ReadRules() REQUIRES(m_lock);
    void ReadOpt() REQUIRES(m_lock);
    void ReadExceptionRuls() REQUIRES(m_lock);
    void ReadRuleList(RuleList& list) REQUIRES(m_lock);
    int AddRulePriv(const FwRule& rule, RuleList& list) REQUIRES(m_lock);
    int DeleteRulePriv(unsigned int index, RuleList& list) REQUIRES(m_lock);
    int FlushRulePriv(RuleList& list) REQUIRES(m_lock);
    int SwapRuleOrderPriv(unsigned int a, unsigned int b) REQUIRES(m_lock);
    void ApplyOptionDefaults() REQUIRES(m_lock);
    // Hands the list's entry to the store, in memory only.
    bool SetRulesEntry(RuleList& list) REQUIRES(m_lock);
    void WriteRules(RuleList& list) REQUIRES(m_lock);
    void WriteOptions() REQUIRES(m_lock);

    bool m_ready;
    RwMutex m_lock;
    // The store locks itself; it is used under m_lock as well, so that a save writes what
    // the lock's holder has just changed, never half of another caller's change.
    std::unique_ptr<QvConfig<Mutex>> m_pConfig PT_GUARDED_BY(m_lock);
    RuleList m_excpRules GUARDED_BY(m_lock);
    RuleList m_normalRules GUARDED_BY(m_lock);
    FwOptions m_options GUARDED_BY(m_lock);
};

}  // namespace vela
}  // namespace qor
