// The firewall's persisted state: its options, the normal rule list and the exception
// rule list, kept as working copies in memory and written through the configuration
// store to "QvFw.conf.plist" on every change.
//
// Rules are identified by rule_index; a list holds at most one rule per index. Every
// public operation holds the read-write lock for its whole duration (shared for the
// plain readers, exclusive for everything else). Store failures are not reported: a
// failed write leaves the working copy changed and the operation still answers 0.
#pragma once

#include <string>

#include "QvConfig.h"
#include "QvErrors.h"
#include "QvLock.h"
#include "RuleListPlist.h"
#include "VelaFwInternalMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

// Init() on a configuration whose file could not be found or loaded.
constexpr unsigned int FW_CONFIG_NOT_READY = static_cast<unsigned int>(-1);

class FwConfig {
public:
    // Locates "QvFw.conf.plist" through QvGetFilePath and loads it; IsReady() tells
    // whether that worked.
    FwConfig();
    ~FwConfig();
    FwConfig(const FwConfig&) = delete;
    FwConfig& operator=(const FwConfig&) = delete;

    bool IsReady() const { return m_ready; }

    // Reads the normal rules, the options and the exception rules into the working
    // copies; FW_CONFIG_NOT_READY without reading anything when the file was not loaded.
    unsigned int Init();
    unsigned int ReadRules();
    unsigned int ReadOpt();
    unsigned int ReadExceptionRuls();

    // Stable ascending sort by rule_index.
    static void SortRules(FwRuleList& rules);

    unsigned int AddNormalRule(const FwRule& rule);
    unsigned int AddExcpRule(const FwRule& rule);
    unsigned int DeleteNormalRule(unsigned int index);
    unsigned int DeleteExcpRule(unsigned int index);
    unsigned int FlushRules();
    unsigned int FlushExcpRules();
    unsigned int GetAllNormalRules(FwRuleList& out);
    unsigned int GetExceptionRules(FwRuleList& out);
    unsigned int GetNormalRule(unsigned int index, FwRule& out);
    // Exchanges the rule numbers and the places of the normal rules `a` and `b`.
    unsigned int SwapNormalRuleOrder(unsigned int a, unsigned int b);

    unsigned int SetFwEnable(bool enable);
    bool IsFwEnable();
    unsigned int SetNotifyEnable(bool enable);
    bool IsNotifyEnable();
    unsigned int GetNormalSetNum();
    unsigned int GetExceptionSetNum();
    // The references stay valid only while nobody changes the options.
    const std::string& GetFwLogPath();
    const std::string& GetSysConfPath();

private:
    // One stored rule list: the messages, their property-list form and the store's key.
    struct RuleList {
        FwRuleList rules;
        RuleListPlist plist;
        const char* key;
    };

    void ReadRuleList(RuleList& list);
    unsigned int AddRulePriv(const FwRule& rule, RuleList& list);
    unsigned int DeleteRulePriv(unsigned int index, RuleList& list);
    unsigned int FlushRulePriv(RuleList& list);
    unsigned int SwapRuleOrderPriv(unsigned int a, unsigned int b);
    void ApplyOptionDefaults();
    // Hands the list's entry to the store, in memory only.
    bool SetRulesEntry(RuleList& list);
    void WriteRules(RuleList& list);
    void WriteOptions();

    bool m_ready;
    RwMutex m_lock;
    QvConfig<Mutex>* m_pConfig;
    RuleList m_excpRules;
    RuleList m_normalRules;
    FwOptions m_options;
};

}  // namespace vela
}  // namespace qor
