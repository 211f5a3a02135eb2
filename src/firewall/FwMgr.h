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
// commands that would answer 20013 (1 for FlushRules), and its Final leaves ipfw alone.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "CommandRunner.h"
#include "Config.h"
#include "EventSink.h"
#include "EventWatcher.h"
#include "QvLock.h"
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
    // re-installs the exception rules, then the normal rules. 0, or 20013 when the
    // configuration could not be loaded (and nothing else is done).
    int Init();
    // Stops the watcher and deletes both sets; the stored rules stay. The exception set's
    // delete code.
    int Final();
    // Init succeeded and Final has not run.
    bool IsReady() const { return m_ready; }

    // Installs the rule in the set under a new number (written into the rule), then
    // stores it; no rollback when storing fails.
    int AddNormalRule(FwRule& rule);
    int AddExcpRule(FwRule& rule);
    int DeleteNormalRule(unsigned int number);
    int DeleteExcpRule(unsigned int number);
    // Both sets. 0 or 1, not an error code.
    int FlushRules();
    // The stored normal list is emptied even when emptying the ipfw set then fails; the
    // set's code.
    int FlushNormalRules();
    int FlushExcpRules();
    // The flag is stored first, then both sets switched; the normal set's code when it
    // failed, else the exception set's.
    int EnableFirewall();
    int DisableFireall();
    bool IsFwEnable();
    // Only the stored flag changes: the watcher reads it for each event.
    int SetNotifyEnable(bool enable);
    bool IsNotifyEnable();
    int GetAllNormalRules(FwRuleList& list);
    int GetExcpRules(FwRuleList& list);
    int ModifyNormalRule(FwRule& rule);
    int SwapNormalRuleOrder(unsigned int first, unsigned int second);
    // Each answers one pair (order, rule number) per rule, the number left unset for a
    // rule that failed, and the code of the last rule that failed, or 0.
    int AddNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs);
    int SetNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs);
    int SetExcpRuleList(FwRuleInfoList& list, UIntPairArray& pairs);

    // Orders a list's rules by their `order`; 20707 on a repeated order.
    static int SortRules(FwRuleInfoList& list, std::map<int, FwRule*>& sorted);

    // The event watcher stopped (within one wait) and verbose logging off. Final does it
    // too; Finalize does it first, before the log the watcher writes to goes away.
    void StopNotify();

    // LogRouting's answer as the logger's callers read it: 0 when the configuration
    // already routes ipfw to `logPath`; -2 when the block was appended; -1 when a pattern
    // could not be compiled.
    int RedirectFwLog(const std::string& configurationPath, const std::string& logPath);
    // True when `line` routes every message to the default firewall log path.
    static bool MatchQvLogPath(const std::string& line);

private:
    using PersistRule = int (FwConfig::*)(const FwRule&);
    using FlushStored = int (FwConfig::*)();

    void InitNotify();
    void StartNotify();
    void InitNormalRuleMgr() EXCLUDES(m_normalRuleMgr.mutex());
    void InitExceptionRuleMgr() EXCLUDES(m_excpRuleMgr.mutex());
    int SwitchSets(bool enable) REQUIRES(m_excpRuleMgr.mutex(), m_normalRuleMgr.mutex());

    int AddRuleTo(RuleMgr& rules, PersistRule persist, FwRule& rule) EXCLUDES(rules.mutex());
    int AddSortedRules(std::map<int, FwRule*>& sorted, RuleMgr& rules, PersistRule persist,
                       UIntPairArray& pairs) REQUIRES(rules.mutex());
    int ReplaceRuleList(FwRuleInfoList& list, UIntPairArray& pairs, const char* name,
                        RuleMgr& rules, FlushStored flushStored, PersistRule persist)
        EXCLUDES(rules.mutex());

    // True, with a log line naming `command`, when the manager is not ready for commands.
    bool NotReady(const char* command) const;

    const std::unique_ptr<CommandRunner> m_shell;
    const std::unique_ptr<EventSink> m_events;
    const RuleGenerator m_generator;
    FwConfig m_config;
    std::unique_ptr<EventWatcher> m_watcher;
    std::string m_fwLogPath;
    std::atomic<bool> m_ready;
    RuleMgr m_excpRuleMgr;
    RuleMgr m_normalRuleMgr;
};

}  // namespace vela
}  // namespace qor
