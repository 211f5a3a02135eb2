// The firewall's persisted state: its options, the normal rule list and the exception
// rule list, kept as working copies in memory and written through the configuration
// store to "QvFw.conf.plist" on every change.
//
// Rules are identified by rule_index; a list holds at most one rule per index. Every
// public operation holds the read-write lock for its whole duration (shared for the
// plain readers, exclusive for everything else). Store failures are not reported: a
// failed write leaves the working copy changed and the operation still succeeds. The
// changes answer a result all the same, so that callers already pass on whatever a
// change may one day report.
#pragma once

#include <memory>
#include <string>

#include "QvConfig.h"
#include "QvLock.h"
#include "QvResult.h"
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

    Result<> AddNormalRule(const FwRule& rule) EXCLUDES(m_lock);
    Result<> AddExcpRule(const FwRule& rule) EXCLUDES(m_lock);
    // FW_ERR_RULE_NOT_FOUND when no stored rule has that number.
    Result<> DeleteNormalRule(unsigned int index) EXCLUDES(m_lock);
    Result<> DeleteExcpRule(unsigned int index) EXCLUDES(m_lock);
    Result<> FlushRules() EXCLUDES(m_lock);
    Result<> FlushExcpRules() EXCLUDES(m_lock);
    void GetAllNormalRules(FwRuleList& out) EXCLUDES(m_lock);
    void GetExceptionRules(FwRuleList& out) EXCLUDES(m_lock);
    Result<> GetNormalRule(unsigned int index, FwRule& out) EXCLUDES(m_lock);
    // Exchanges the rule numbers and the places of the normal rules `a` and `b`;
    // FW_ERR_RULE_NOT_FOUND with nothing changed when either is not stored.
    Result<> SwapNormalRuleOrder(unsigned int a, unsigned int b) EXCLUDES(m_lock);

    Result<> SetFwEnable(bool enable) EXCLUDES(m_lock);
    bool IsFwEnable() EXCLUDES(m_lock);
    Result<> SetNotifyEnable(bool enable) EXCLUDES(m_lock);
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
    Result<> AddRulePriv(const FwRule& rule, RuleList& list) REQUIRES(m_lock);
    Result<> DeleteRulePriv(unsigned int index, RuleList& list) REQUIRES(m_lock);
    Result<> FlushRulePriv(RuleList& list) REQUIRES(m_lock);
    Result<> SwapRuleOrderPriv(unsigned int a, unsigned int b) REQUIRES(m_lock);
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
