// The one object behind every firewall command: it owns the stored configuration, the
// rule text generator and the two rule sets (exception rules from 2100, normal rules from
// 3100, so the exception set sorts ahead of the normal set), keeps the store and ipfw in
// step, routes ipfw's log into a file of its own and runs the watcher that reports each
// logged packet to the host.
//
// Multi-step operations stop at the first failure or go on past a failing list element,
// and never roll back: adds go to ipfw first, deletes and flushes to the store first, so
// what a failure leaves behind is decided by that order.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "Config.h"
#include "RuleGenerator.h"
#include "RuleMgr.h"
#include "Thread.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

constexpr int kExceptionBaseRuleNum = 2100;
constexpr int kNormalBaseRuleNum = 3100;

class FwMgr {
public:
    FwMgr();
    ~FwMgr();
    FwMgr(const FwMgr&) = delete;
    FwMgr& operator=(const FwMgr&) = delete;

    // Loads the configuration (its code when that fails, and nothing else is done), routes
    // the log, enables or disables both sets as stored, starts the watcher and re-installs
    // the exception rules, then the normal rules. 0 once the configuration is loaded.
    int Init();
    // Stops the watcher and deletes both sets; the stored rules stay. The exception set's
    // delete code.
    int Final();

    // Log redirection, run once by Init.
    void InitNotify();
    // 0 when the logger configuration already routes ipfw to `logPath`; -2 when the block
    // was appended; -1 when a pattern could not be compiled.
    int RedirectFwLog(const std::string& configurationPath, const std::string& logPath);
    // True when `line` routes every message to the default firewall log path.
    bool MatchQvLogPath(const std::string& line);

    // The event watcher: verbose logging on and the thread started; the thread stopped
    // (within one wait) and verbose logging off.
    void StartNotify();
    void StopNotify();

    void InitNormalRuleMgr();
    void InitExceptionRuleMgr();

    int DisableFireall();
    bool IsFwEnable();
    int GetAllNormalRules(FwRuleList& list);
    int GetExcpRules(FwRuleList& list);
    int ModifyNormalRule(FwRule& rule);
    int DeleteNormalRule(unsigned int number);
    int DeleteExcpRule(unsigned int number);
    // Both sets. 0 or 1, not an error code.
    int FlushRules();
    int FlushExcpRules();
    int SwapNormalRuleOrder(unsigned int first, unsigned int second);

    // Orders a list's rules by their `order`; 20707 on a repeated order.
    int SortRules(FwRuleInfoList& list, std::map<int, FwRule*>& sorted);
    // Each answers one pair (order, rule number) per rule, the number left unset for a
    // rule that failed, and the code of the last rule that failed, or 0.
    int AddNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs);
    int SetNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs);
    int SetExcpRuleList(FwRuleInfoList& list, UIntPairArray& pairs);

    // The watcher thread's body; `manager` is the FwMgr.
    static void* NotifyFunc(void* manager);

    RuleGenerator* m_pGenerator;
    FwConfig* m_pConfig;
    Thread* m_pThread;
    std::string m_fwLogPath;
    // False while the watcher should run; read by the watcher after every wait.
    std::atomic<bool> m_stop;
    RuleMgr m_normalRuleMgr;
    RuleMgr m_excpRuleMgr;

private:
    using PersistRule = unsigned int (FwConfig::*)(const FwRule&);

    int AddSortedRules(std::map<int, FwRule*>& sorted, RuleMgr& rules, PersistRule persist,
                       UIntPairArray& pairs);
    int ReplaceRuleList(FwRuleInfoList& list, UIntPairArray& pairs, const char* name,
                        RuleMgr& rules, unsigned int (FwConfig::*flushStored)(),
                        PersistRule persist);

    // The watcher's kqueue, published while it waits so that StopNotify can wake it at
    // once instead of after its time-out; -1 when there is none.
    void SetWakeQueue(int queue);
    void WakeWatcher();
    std::mutex m_wakeLock;
    int m_wakeQueue;
};

}  // namespace vela
}  // namespace qor
