// Changes that end by themselves: rules added for a time (qvfwctl add --for), deleted
// through the plug-in's own delete at their deadline, and lists applied with a
// confirmation window (qvfwctl apply --confirm), put back as they were unless confirmed
// in time. The deadlines are on the wall clock and kept in the DeadlineStore, so a
// restart, or a machine asleep past a deadline, acts on them at once.
//
// Every change through the daemon passes gate() so that the rule directory read after it
// is the state that change left; AfterChange() then drops the deadlines of rules that
// were deleted, or replaced under their number, some other way.
#pragma once

#include <stdint.h>

#include <functional>
#include <mutex>
#include <string>

#include "DeadlineStore.h"
#include "EventJournal.h"
#include "Metrics.h"
#include "PluginCaller.h"
#include "RuleChecker.h"
#include "RuleDirectory.h"

namespace qvfwd {

class TimedChanges {
public:
    using LogLine = std::function<void(const std::string&)>;

    TimedChanges(PluginCaller caller, RuleDirectory& rules, DeadlineStore& store,
                 EventJournal& journal, Metrics& metrics, const RuleChecker& words, LogLine log)
        : m_call(std::move(caller)),
          m_rules(rules),
          m_store(store),
          m_journal(journal),
          m_metrics(metrics),
          m_words(words),
          m_log(std::move(log)) {}

    std::mutex& gate() { return m_gate; }

    // The plug-in's add (QV_CMD_ADD_RULE, QV_CMD_ADD_EXCP_RULE, QV_CMD_ADD_RULE_LIST) whose
    // rules are deleted again `seconds` from now. The plug-in's code, or kBadRequest, or
    // kStateNotSaved (the rules taken out again) when the deadlines cannot be kept.
    // Call with gate() held.
    int32_t AddExpiring(uint32_t command, int64_t seconds, const std::string& request,
                        std::string* response, std::string* log);

    // Replaces `list` ("normal", "exception") with `rules` (a FwRuleInfoList); with
    // `confirmSeconds`, the list as it was comes back unless Confirm() is called in time.
    // Call with gate() held.
    int32_t Apply(const std::string& list, int64_t confirmSeconds, const std::string& rules,
                  std::string* response, std::string* log);

    // Keeps what waits for confirmation. 0, or kNothingToConfirm.
    int32_t Confirm(std::string* log);

    // Call with gate() held, after any change.
    void AfterChange();

    // Deletes the rules whose deadline has passed and puts back the lists not confirmed
    // in time. Takes gate() itself.
    void Tick();

    // The earliest deadline (microseconds), or INT64_MAX when there is none.
    int64_t NextDeadlineMicros() const;

    // The kDeadlines reply (QvControl.h).
    std::string DeadlinesText() const;

private:
    int32_t PutBack(const RollbackDeadline& rollback, std::string* response);
    void Expire(const RuleDeadline& deadline);
    void DropStale();
    void UpdateGauges();

    PluginCaller m_call;
    RuleDirectory& m_rules;
    DeadlineStore& m_store;
    EventJournal& m_journal;
    Metrics& m_metrics;
    const RuleChecker& m_words;
    LogLine m_log;
    std::mutex m_gate;
};

}  // namespace qvfwd
