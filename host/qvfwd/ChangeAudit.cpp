#include "ChangeAudit.h"

#include "CommandNames.h"
#include "QvControlErrors.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qvfwd {

namespace {

// A list's record names its first rules; the rest are counted.
constexpr int kListedRules = 10;

}  // namespace

std::string ChangeAudit::RuleWords(const std::string& rule) const {
    std::string text;
    int32_t code = m_words.RuleText(rule, &text);
    return code == 0 ? text : "(" + qvctl::DescribeCode(code) + ")";
}

std::string ChangeAudit::ListWords(const std::string& list) const {
    qor::vela::FwRuleInfoList rules;
    if (!rules.ParseFromString(list)) {
        return "(not a rule list)";
    }
    std::string words =
        std::to_string(rules.rules_size()) + (rules.rules_size() == 1 ? " rule" : " rules");
    for (int i = 0; i < rules.rules_size() && i < kListedRules; ++i) {
        words += (i == 0 ? ": " : "; ") + RuleWords(rules.rules(i).rule().SerializeAsString());
    }
    return words + (rules.rules_size() > kListedRules ? "; ..." : "");
}

ChangeSubject ChangeAudit::Describe(uint32_t command, const std::string& request) const {
    ChangeSubject subject;
    const CommandInfo* info = FindCommand(command);
    if (info == nullptr) {
        return subject;
    }
    switch (info->request) {
        case RequestKind::kRule: {
            qor::vela::FwRule rule;
            if (rule.ParseFromString(request) && rule.has_rule_index() &&
                command == QV_CMD_MODIFY_RULE) {
                subject.ruleNumber = rule.rule_index();
            }
            subject.words = RuleWords(request);
            break;
        }
        case RequestKind::kNumber: {
            qor::vela::UIntType number;
            if (number.ParseFromString(request) && number.has_value()) {
                subject.ruleNumber = number.value();
                std::optional<StoredRule> stored = m_rules.Find(info->list, number.value());
                subject.words = stored ? RuleWords(stored->message) : "(not held)";
            }
            break;
        }
        case RequestKind::kPair: {
            qor::vela::UIntPair pair;
            if (pair.ParseFromString(request)) {
                subject.words =
                    std::to_string(pair.first()) + " and " + std::to_string(pair.second());
            }
            break;
        }
        case RequestKind::kRuleList:
            subject.words = ListWords(request);
            break;
        case RequestKind::kDebugLevel: {
            qor::vela::DebugOption option;
            if (option.ParseFromString(request)) {
                subject.words = "level " + std::to_string(option.debug_level());
            }
            break;
        }
        case RequestKind::kNone:
            break;
    }
    return subject;
}

void ChangeAudit::Record(const PeerIdentity& peer, const std::string& command,
                         const ChangeSubject& subject, int32_t code) {
    ChangeFacts change;
    change.uid = peer.uid;
    change.pid = peer.pid;
    change.program = peer.program;
    change.command = command;
    change.ruleNumber = subject.ruleNumber;
    change.ruleText = subject.words;
    change.code = code;
    m_journal.Write(ChangeRecord(m_journal.clock().NowMicros(), change));
    m_log(ChangeLogLine(change));
}

std::optional<int64_t> AddedRuleNumber(uint32_t command, const std::string& response) {
    qor::vela::UIntType number;
    if ((command == QV_CMD_ADD_RULE || command == QV_CMD_ADD_EXCP_RULE) &&
        number.ParseFromString(response) && number.has_value()) {
        return number.value();
    }
    return std::nullopt;
}

std::string ChangeLogLine(const ChangeFacts& change) {
    std::string line = "change by uid " + std::to_string(change.uid) + " pid " +
                       std::to_string(change.pid) + " (" +
                       (change.program.empty() ? "?" : change.program) + "): " + change.command;
    if (!change.ruleText.empty()) {
        line += " " + change.ruleText;
    }
    if (change.ruleNumber) {
        line += " -> rule " + std::to_string(*change.ruleNumber);
    }
    return line + ": " + (change.code == 0 ? "success" : qvctl::DescribeCode(change.code));
}

}  // namespace qvfwd
