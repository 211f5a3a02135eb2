// Who changed what: every change through the control socket gets a change record in the
// events (file and watchers) and a line in qvfwd's log, with the client's uid, pid and
// program, the command, the rule in words and the result code. What a request is about
// is read before the call (a delete's rule is gone after it).
#pragma once

#include <stdint.h>

#include <functional>
#include <optional>
#include <string>

#include "EventJournal.h"
#include "EventRecord.h"
#include "PeerCredentials.h"
#include "RuleChecker.h"
#include "RuleDirectory.h"

namespace qvfwd {

// What a change is about, in words.
struct ChangeSubject {
    std::optional<int64_t> ruleNumber;
    std::string words;
};

class ChangeAudit {
public:
    using LogLine = std::function<void(const std::string&)>;

    ChangeAudit(EventJournal& journal, const RuleDirectory& rules, const RuleChecker& words,
                LogLine log)
        : m_journal(journal), m_rules(rules), m_words(words), m_log(std::move(log)) {}

    // The rule text of a serialized qor.vela.FwRule, or what it could not be made into.
    std::string RuleWords(const std::string& rule) const;
    // "2 rules: allow proto udp; deny proto tcp" (the first few) for a FwRuleInfoList.
    std::string ListWords(const std::string& list) const;

    // What the plug-in's `command` with `request` is about.
    ChangeSubject Describe(uint32_t command, const std::string& request) const;

    // Writes the record and the log line. `command`: qvfwctl's word for it.
    void Record(const PeerIdentity& peer, const std::string& command, const ChangeSubject& subject,
                int32_t code);

private:
    EventJournal& m_journal;
    const RuleDirectory& m_rules;
    const RuleChecker& m_words;
    LogLine m_log;
};

// A plug-in's reply read for the rule it made: an add's number, else none.
std::optional<int64_t> AddedRuleNumber(uint32_t command, const std::string& response);

// The log line of a change: "change by uid 0 pid 42 (qvfwctl): add deny proto tcp -> rule
// 3100: success".
std::string ChangeLogLine(const ChangeFacts& change);

}  // namespace qvfwd
