// What qvfwd must do at a deadline, kept across restarts in one file of its state
// directory: rules to delete (added with --for) and lists to put back (apply --confirm
// not yet confirmed). Every change is written whole to the file (AtomicFile) before it
// counts; the text is one line per entry, so that it can be read and fixed by hand:
//   rule normal 3100 1700000000000000 9f86d081884c7d65
//   rollback exception 1700000000000000 0a0b...   (the previous list, serialized, in hex)
#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qvfwd {

struct RuleDeadline {
    std::string list;  // "normal" or "exception"
    uint32_t number = 0;
    int64_t deadlineMicros = 0;
    // Of the rule when it was added (RuleFingerprint): a deadline never takes a rule that
    // was put under the same number later.
    uint64_t fingerprint = 0;
};

struct RollbackDeadline {
    std::string list;
    int64_t deadlineMicros = 0;
    std::string previous;  // a serialized qor.vela.FwRuleInfoList
};

struct Deadlines {
    std::map<std::pair<std::string, uint32_t>, RuleDeadline> rules;
    std::map<std::string, RollbackDeadline> rollbacks;
};

std::string FormatDeadlines(const Deadlines& deadlines);
// Lines that do not read are skipped and counted in `*skipped`.
Deadlines ParseDeadlines(const std::string& text, int* skipped);

class DeadlineStore {
public:
    explicit DeadlineStore(std::string path) : m_path(std::move(path)) {}

    // Reads the file; a missing one holds nothing. False when it exists and cannot be read.
    bool Load(std::string* error);

    // Each change is saved before it returns true; when it cannot be, nothing changes.
    bool AddRules(const std::vector<RuleDeadline>& rules, std::string* error);
    bool RemoveRules(const std::vector<std::pair<std::string, uint32_t>>& keys, std::string* error);
    bool SetRollback(const RollbackDeadline& rollback, std::string* error);
    bool RemoveRollback(const std::string& list, std::string* error);

    Deadlines Copy() const;
    const std::string& path() const { return m_path; }

private:
    bool Save(const Deadlines& next, std::string* error);

    const std::string m_path;
    mutable std::mutex m_mutex;
    Deadlines m_deadlines;
};

}  // namespace qvfwd
