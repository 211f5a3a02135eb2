// The one object behind every firewall command: it owns the stored configuration, the
// rule text generator and the two rule sets (exception rules from 2100, normal rules from
// 3100, so the exception set sorts ahead of the normal set), keeps the store and ipfw in
// step, routes ipfw's log into a file of its own (LogRouting.h) and runs the watcher that
// reports each logged packet to the host (EventWatcher.h).
//
// Multi-step operations stop at the first failure or go on past a failing list element,
// and never roll back: adds go to ipfw first, deletes and flushes to the store first, so
// what a failure leaves behind is decided by that order.
//
// Threads: the commands may come from any number of threads. Each holds the lock of the
// rule set it works on for its whole length (both locks, the exception set's first, when
// it works on both), so the stored lists and the ipfw sets agree after any interleaving,
// exactly as if the calls had come one at a time. Init and Final must not overlap each
// other or any command. The commands are for a manager whose Init succeeded (IsReady);
// one whose Init failed, or that is final, touches neither ipfw nor the store: its
// commands fail with QV_ERR_INIT (FlushRules with FW_ERR_FLUSH), and its Final leaves
// ipfw alone.
//
// The codes of the results are those of QvFirewall.h, which the handlers answer as they
// are.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "CommandRunner.h"
#include "Config.h"
#include "EventSink.h"
#include "EventWatcher.h"
#include "LogRouting.h"
#include "QvLock.h"
#include "QvResult.h"
#include "RuleGenerator.h"
#include "RuleMgr.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

constexpr int32_t kExceptionBaseRuleNum = 2100;
constexpr int32_t kNormalBaseRuleNum = 3100;

class FwMgr {
public:
    // Loads the configuration (but touches nothing yet); every command line goes through
    // `shell`, every logged packet to `events`.
    FwMgr(std::unique_ptr<CommandRunner> shell, std::unique_ptr<EventSink> events);
    // The production manager, on the host's command runner.
    explicit FwMgr(std::unique_ptr<EventSink> events);
    ~FwMgr();
    FwMgr(const FwMgr&) = delete;
    FwMgr& operator=(const FwMgr&) = delete;

    // Routes the log, enables or disables both sets as stored, starts the watcher and
    // re-installs the exception rules, then the normal rules. Fails with QV_ERR_INIT when
    // the configuration could not be loaded (and nothing else is done).
    Result<> Init();
    // Stops the watcher and deletes both sets; the stored rules stay. The exception set's
    // delete result.
    Result<> Final();
    // Init succeeded and Final has not run.
    bool IsReady() const { return m_ready; }

    // Installs the rule in the set under a new number (written into the rule), then
    // stores it; no rollback when storing fails.
    Result<> AddNormalRule(FwRule& rule) EXCLUDES(m_normalLock);
    Result<> AddExcpRule(FwRule& rule) EXCLUDES(m_excpLock);
    Result<> DeleteNormalRule(unsigned int number) EXCLUDES(m_normalLock);
    Result<> DeleteExcpRule(unsigned int number) EXCLUDES(m_excpLock);
    // Both sets. Every failure is FW_ERR_FLUSH, whatever step failed: the one failure
    // hosts know this command by.
    Result<> FlushRules() EXCLUDES(m_excpLock, m_normalLock);
    // The stored normal list is emptied even when emptying the ipfw set then fails; the
    // set's result.
    Result<> FlushNormalRules() EXCLUDES(m_normalLock);
    Result<> FlushExcpRules() EXCLUDES(m_excpLock);
    // The flag is stored first, then both sets switched; the normal set's failure when it
    // failed, else the exception set's result.
    Result<> EnableFirewall() EXCLUDES(m_excpLock, m_normalLock);
    Result<> DisableFireall() EXCLUDES(m_excpLock, m_normalLock);
    bool IsFwEnable();
    // Only the stored flag changes: the watcher reads it for each event.
    Result<> SetNotifyEnable(bool enable);
    bool IsNotifyEnable();
    // The stored lists cannot fail to be read.
    void GetAllNormalRules(FwRuleList& list) EXCLUDES(m_normalLock);
    void GetExcpRules(FwRuleList& list) EXCLUDES(m_excpLock);
    Result<> ModifyNormalRule(FwRule& rule) EXCLUDES(m_normalLock);
    Result<> SwapNormalRuleOrder(unsigned int first, unsigned int second) EXCLUDES(m_normalLock);
    // Each answers one pair (order, rule number) per rule, the number left unset for a
    // rule that failed, and the failure of the last rule that failed.
    Result<> AddNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs) EXCLUDES(m_normalLock);
    Result<> SetNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs) EXCLUDES(m_normalLock);
    Result<> SetExcpRuleList(FwRuleInfoList& list, UIntPairArray& pairs) EXCLUDES(m_excpLock);

    // Orders a list's rules by their `order`; FW_ERR_DUP_ORDER on a repeated order.
    static Result<> SortRules(FwRuleInfoList& list, std::map<int, FwRule*>& sorted);

    // The event watcher stopped (within one wait) and verbose logging off. Final does it
    // too; Finalize does it first, before the log the watcher writes to goes away.
    void StopNotify();

    // Whether the logger's configuration had to change to route ipfw to `logPath`;
    // LogRouting's failure when a pattern could not be compiled.
    Result<LogRouting::Change> RedirectFwLog(const std::string& configurationPath,
                                             const std::string& logPath);
    // True when `line` routes every message to the default firewall log path.
    static bool MatchQvLogPath(const std::string& line);

private:
    using PersistRule = Result<> (FwConfig::*)(const FwRule&);
    using FlushStored = Result<> (FwConfig::*)();

    void InitNotify();
    void StartNotify();
    void InitNormalRuleMgr() EXCLUDES(m_normalLock);
    void InitExceptionRuleMgr() EXCLUDES(m_excpLock);
    Result<> SwitchSets(bool enable) REQUIRES(m_excpLock, m_normalLock);

    // These work on the set `rules`, whose lock the caller holds: handing a set over by
    // reference is checked to happen under its lock, which the helpers cannot name.
    Result<> AddRuleTo(RuleMgr& rules, PersistRule persist, FwRule& rule);
    Result<> AddSortedRules(std::map<int, FwRule*>& sorted, RuleMgr& rules, PersistRule persist,
                            UIntPairArray& pairs);
    Result<> ReplaceRules(std::map<int, FwRule*>& sorted, UIntPairArray& pairs, RuleMgr& rules,
                          FlushStored flushStored, PersistRule persist);

    // The checks of a rule-list command, logged under `command`: ready, and no order
    // repeated; `sorted` gets the list's rules by their order.
    Result<> SortedList(const char* command, FwRuleInfoList& list,
                        std::map<int, FwRule*>& sorted) const;

    // True, with a log line naming `command`, when the manager is not ready for commands.
    bool NotReady(const char* command) const;

    const std::unique_ptr<CommandRunner> m_shell;
    const std::unique_ptr<EventSink> m_events;
    const RuleGenerator m_generator;
    FwConfig m_config;
    std::unique_ptr<EventWatcher> m_watcher;
    std::string m_fwLogPath;
    std::atomic<bool> m_ready;
    // One lock per set, held for a whole command on it; the exception set's is taken
    // first by whatever takes both. They live here rather than in the sets so that the
    // compiler checks that order: it tells locks apart by their declarations, and the
    // two sets' own locks would be one declaration.
    Mutex m_excpLock ACQUIRED_BEFORE(m_normalLock);
    Mutex m_normalLock;
    RuleMgr m_excpRuleMgr GUARDED_BY(m_excpLock);
    RuleMgr m_normalRuleMgr GUARDED_BY(m_normalLock);
};

}  // namespace vela
}  // namespace qor
