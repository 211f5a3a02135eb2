#include "TimedChanges.h"

#include <limits>
#include <vector>

#include "EventRecord.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"
#include "WallClock.h"

namespace qvfwd {

namespace {

const char* ListOfAdd(uint32_t command) {
    return command == QV_CMD_ADD_EXCP_RULE ? "exception" : "normal";
}

// The numbers an add's reply names: one rule's, or each of a list's.
std::vector<uint32_t> AddedNumbers(uint32_t command, const std::string& response) {
    std::vector<uint32_t> numbers;
    if (command == QV_CMD_ADD_RULE_LIST) {
        qor::vela::UIntPairArray pairs;
        if (pairs.ParseFromString(response)) {
            for (const qor::vela::UIntPair& pair : pairs.values()) {
                numbers.push_back(pair.second());
            }
        }
        return numbers;
    }
    qor::vela::UIntType number;
    if (number.ParseFromString(response) && number.has_value()) {
        numbers.push_back(number.value());
    }
    return numbers;
}

uint32_t DeleteCommand(const std::string& list) {
    return list == "exception" ? QV_CMD_DELETE_EXCP_RULE : QV_CMD_DELETE_RULE;
}

uint32_t ReplaceCommand(const std::string& list) {
    return list == "exception" ? QV_CMD_SET_EXCP_RULE_LIST : QV_CMD_SET_RULE_LIST;
}

uint32_t ListCommand(const std::string& list) {
    return list == "exception" ? QV_CMD_GET_EXCP_RULES : QV_CMD_GET_ALL_RULES;
}

std::string UInt(uint32_t value) {
    qor::vela::UIntType number;
    number.set_value(value);
    return number.SerializeAsString();
}

}  // namespace

int32_t TimedChanges::AddExpiring(uint32_t command, int64_t seconds, const std::string& request,
                                  std::string* response, std::string* log) {
    if ((command != QV_CMD_ADD_RULE && command != QV_CMD_ADD_EXCP_RULE &&
         command != QV_CMD_ADD_RULE_LIST) ||
        seconds <= 0) {
        return qvctl::kBadRequest;
    }
    const int32_t code = m_call(command, request, response);
    m_rules.Refresh();
    const std::string list = ListOfAdd(command);
    const int64_t deadline = m_journal.clock().NowMicros() + seconds * kMicrosPerSecond;
    std::vector<RuleDeadline> deadlines;
    for (uint32_t number : AddedNumbers(command, *response)) {
        std::optional<StoredRule> stored = m_rules.Find(list, number);
        if (stored) {
            deadlines.push_back(RuleDeadline{list, number, deadline, stored->fingerprint});
        }
    }
    std::string error;
    if (!deadlines.empty() && !m_store.AddRules(deadlines, &error)) {
        // A rule that was to expire must not stay for good.
        for (const RuleDeadline& rule : deadlines) {
            std::string ignored;
            m_call(DeleteCommand(list), UInt(rule.number), &ignored);
        }
        *log = "the deadlines of the rules just added cannot be kept (" + error +
               "); took them out again";
        m_rules.Refresh();
        UpdateGauges();
        return qvctl::kStateNotSaved;
    }
    UpdateGauges();
    return code;
}

int32_t TimedChanges::Apply(const std::string& list, int64_t confirmSeconds,
                            const std::string& rules, std::string* response, std::string* log) {
    qor::vela::FwRuleInfoList wanted;
    if ((list != "normal" && list != "exception") || confirmSeconds < 0 ||
        !wanted.ParseFromString(rules)) {
        return qvctl::kBadRequest;
    }
    if (confirmSeconds > 0) {
        std::string current;
        qor::vela::FwRuleList held;
        int32_t code = m_call(ListCommand(list), "", &current);
        if (code != 0 || !held.ParseFromString(current)) {
            return code != 0 ? code : QV_ERR_INCOMPLETE;
        }
        qor::vela::FwRuleInfoList previous;
        for (const qor::vela::FwRule& rule : held.rules()) {
            qor::vela::FwRuleInfo* info = previous.add_rules();
            info->set_order(previous.rules_size());
            *info->mutable_rule() = rule;
            info->mutable_rule()->clear_rule_index();
        }
        RollbackDeadline rollback{list,
                                  m_journal.clock().NowMicros() + confirmSeconds * kMicrosPerSecond,
                                  previous.SerializeAsString()};
        std::string error;
        if (!m_store.SetRollback(rollback, &error)) {
            *log = "apply refused: the list to put back cannot be kept (" + error + ")";
            return qvctl::kStateNotSaved;
        }
        const int32_t applied = m_call(ReplaceCommand(list), rules, response);
        if (applied != 0) {
            // What went in half is not what anyone would confirm.
            std::string ignored;
            PutBack(rollback, &ignored);
            m_store.RemoveRollback(list, &error);
            *log = "apply failed with code " + std::to_string(applied) + "; put the list back";
        }
        AfterChange();
        return applied;
    }
    const int32_t code = m_call(ReplaceCommand(list), rules, response);
    AfterChange();
    return code;
}

int32_t TimedChanges::Confirm(std::string* log) {
    Deadlines deadlines = m_store.Copy();
    if (deadlines.rollbacks.empty()) {
        return qvctl::kNothingToConfirm;
    }
    for (const auto& [list, rollback] : deadlines.rollbacks) {
        std::string error;
        if (!m_store.RemoveRollback(list, &error)) {
            *log = "confirm: " + error;
            return qvctl::kStateNotSaved;
        }
    }
    AfterChange();
    return 0;
}

int32_t TimedChanges::PutBack(const RollbackDeadline& rollback, std::string* response) {
    return m_call(ReplaceCommand(rollback.list), rollback.previous, response);
}

void TimedChanges::Expire(const RuleDeadline& deadline) {
    ExpiryFacts expiry;
    expiry.ruleNumber = deadline.number;
    expiry.place = RulePlace{deadline.list, m_rules.SetOf(deadline.list)};
    expiry.deadlineMicros = deadline.deadlineMicros;
    std::optional<StoredRule> stored = m_rules.Find(deadline.list, deadline.number);
    if (!stored || stored->fingerprint != deadline.fingerprint) {
        return;  // deleted or replaced some other way: nothing of ours to take out
    }
    m_words.RuleText(stored->message, &expiry.ruleText);
    std::string response;
    expiry.code = m_call(DeleteCommand(deadline.list), UInt(deadline.number), &response);
    m_journal.Write(ExpiryRecord(m_journal.clock().NowMicros(), expiry));
    m_log("expired: " + deadline.list + " rule " + std::to_string(deadline.number) + " " +
          expiry.ruleText +
          (expiry.code == 0 ? ", deleted"
                            : ", delete failed with code " + std::to_string(expiry.code)));
}

void TimedChanges::DropStale() {
    std::vector<std::pair<std::string, uint32_t>> stale;
    const Deadlines deadlines = m_store.Copy();
    for (const auto& [key, deadline] : deadlines.rules) {
        // A list that may yet be put back keeps its rules' deadlines for them.
        if (deadlines.rollbacks.count(deadline.list) != 0) {
            continue;
        }
        std::optional<StoredRule> stored = m_rules.Find(deadline.list, deadline.number);
        if (!stored || stored->fingerprint != deadline.fingerprint) {
            stale.push_back(key);
        }
    }
    std::string error;
    m_store.RemoveRules(stale, &error);
}

void TimedChanges::AfterChange() {
    m_rules.Refresh();
    DropStale();
    UpdateGauges();
}

void TimedChanges::Tick() {
    std::lock_guard<std::mutex> lock(m_gate);
    const int64_t now = m_journal.clock().NowMicros();
    bool changed = false;
    std::string error;
    // Lists first: a rule whose deadline passed while its list was replaced comes back
    // with the list and goes at once.
    for (const auto& [list, rollback] : m_store.Copy().rollbacks) {
        if (rollback.deadlineMicros > now) {
            continue;
        }
        std::string response;
        const int32_t code = PutBack(rollback, &response);
        qor::vela::FwRuleInfoList previous;
        previous.ParseFromString(rollback.previous);
        m_journal.Write(
            RollbackRecord(m_journal.clock().NowMicros(), list, previous.rules_size(), code));
        m_log("not confirmed in time: put the " + list + " list of " +
              std::to_string(previous.rules_size()) + " rule(s) back, code " +
              std::to_string(code));
        m_store.RemoveRollback(list, &error);
        changed = true;
    }
    if (changed) {
        m_rules.Refresh();
    }
    const Deadlines deadlines = m_store.Copy();
    std::vector<std::pair<std::string, uint32_t>> expired;
    for (const auto& [key, deadline] : deadlines.rules) {
        if (deadline.deadlineMicros <= now && deadlines.rollbacks.count(deadline.list) == 0) {
            Expire(deadline);
            expired.push_back(key);
        }
    }
    // Once, whatever the delete answered: its record says how it went.
    m_store.RemoveRules(expired, &error);
    if (changed || !expired.empty()) {
        AfterChange();
    }
}

int64_t TimedChanges::NextDeadlineMicros() const {
    int64_t next = std::numeric_limits<int64_t>::max();
    const Deadlines deadlines = m_store.Copy();
    for (const auto& [key, deadline] : deadlines.rules) {
        next = std::min(next, deadline.deadlineMicros);
    }
    for (const auto& [list, rollback] : deadlines.rollbacks) {
        next = std::min(next, rollback.deadlineMicros);
    }
    return next;
}

std::string TimedChanges::DeadlinesText() const {
    std::string text;
    const Deadlines deadlines = m_store.Copy();
    for (const auto& [key, deadline] : deadlines.rules) {
        text += deadline.list + " " + std::to_string(deadline.number) + " " +
                std::to_string(deadline.deadlineMicros / kMicrosPerSecond) + "\n";
    }
    for (const auto& [list, rollback] : deadlines.rollbacks) {
        text += "rollback " + list + " " +
                std::to_string(rollback.deadlineMicros / kMicrosPerSecond) + "\n";
    }
    return text;
}

void TimedChanges::UpdateGauges() {
    const Deadlines deadlines = m_store.Copy();
    m_metrics.SetPending(static_cast<int64_t>(deadlines.rules.size()),
                         static_cast<int64_t>(deadlines.rollbacks.size()));
    m_metrics.SetRules("normal", m_rules.SetOf("normal"),
                       static_cast<int64_t>(m_rules.Count("normal")));
    m_metrics.SetRules("exception", m_rules.SetOf("exception"),
                       static_cast<int64_t>(m_rules.Count("exception")));
}

}  // namespace qvfwd
