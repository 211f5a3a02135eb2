#include "DeadlineStore.h"

#include <inttypes.h>
#include <stdio.h>
#include <sys/stat.h>

#include <sstream>

#include "AtomicFile.h"

namespace qvfwd {

namespace {

bool IsList(const std::string& list) {
    return list == "normal" || list == "exception";
}

std::string Hex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

bool FromHex(const std::string& hex, std::string* bytes) {
    if (hex.size() % 2 != 0 || hex.find_first_not_of("0123456789abcdef") != std::string::npos) {
        return false;
    }
    bytes->clear();
    for (size_t i = 0; i < hex.size(); i += 2) {
        bytes->push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return true;
}

bool ReadInteger(const std::string& text, int64_t* value) {
    if (text.empty() || text.size() > 18 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    *value = std::stoll(text);
    return true;
}

bool ReadRule(std::istringstream& words, RuleDeadline* rule) {
    std::string number;
    std::string deadline;
    std::string fingerprint;
    int64_t value = 0;
    if (!(words >> rule->list >> number >> deadline >> fingerprint) || !IsList(rule->list) ||
        !ReadInteger(number, &value) || value > UINT32_MAX) {
        return false;
    }
    rule->number = static_cast<uint32_t>(value);
    if (!ReadInteger(deadline, &rule->deadlineMicros) || fingerprint.size() != 16 ||
        fingerprint.find_first_not_of("0123456789abcdef") != std::string::npos) {
        return false;
    }
    rule->fingerprint = std::stoull(fingerprint, nullptr, 16);
    return true;
}

bool ReadRollback(std::istringstream& words, RollbackDeadline* rollback) {
    std::string deadline;
    std::string hex;
    return (words >> rollback->list >> deadline) && IsList(rollback->list) &&
           ReadInteger(deadline, &rollback->deadlineMicros) &&
           // An empty previous list is an empty field: the line ends after the deadline.
           (!(words >> hex) || FromHex(hex, &rollback->previous));
}

}  // namespace

std::string FormatDeadlines(const Deadlines& deadlines) {
    std::string text = "# qvfwd: rules to delete and lists to put back at their deadlines\n";
    char fingerprint[17];
    for (const auto& [key, rule] : deadlines.rules) {
        snprintf(fingerprint, sizeof fingerprint, "%016" PRIx64, rule.fingerprint);
        text += "rule " + rule.list + " " + std::to_string(rule.number) + " " +
                std::to_string(rule.deadlineMicros) + " " + fingerprint + "\n";
    }
    for (const auto& [list, rollback] : deadlines.rollbacks) {
        text += "rollback " + list + " " + std::to_string(rollback.deadlineMicros) + " " +
                Hex(rollback.previous) + "\n";
    }
    return text;
}

Deadlines ParseDeadlines(const std::string& text, int* skipped) {
    Deadlines deadlines;
    *skipped = 0;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string kind;
        if (!(words >> kind) || kind[0] == '#') {
            continue;
        }
        RuleDeadline rule;
        RollbackDeadline rollback;
        if (kind == "rule" && ReadRule(words, &rule)) {
            deadlines.rules[{rule.list, rule.number}] = rule;
        } else if (kind == "rollback" && ReadRollback(words, &rollback)) {
            deadlines.rollbacks[rollback.list] = rollback;
        } else {
            ++*skipped;
        }
    }
    return deadlines;
}

bool DeadlineStore::Load(std::string* error) {
    std::string text;
    struct stat file {};
    if (stat(m_path.c_str(), &file) != 0) {
        return true;
    }
    if (!ReadWholeFile(m_path, &text)) {
        *error = "cannot read " + m_path;
        return false;
    }
    int skipped = 0;
    Deadlines read = ParseDeadlines(text, &skipped);
    if (skipped > 0) {
        *error =
            m_path + ": " + std::to_string(skipped) + " line(s) could not be read and are skipped";
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_deadlines = std::move(read);
    return true;
}

bool DeadlineStore::Save(const Deadlines& next, std::string* error) {
    if (!WriteFileAtomically(m_path, FormatDeadlines(next), 0600, error)) {
        return false;
    }
    m_deadlines = next;
    return true;
}

bool DeadlineStore::AddRules(const std::vector<RuleDeadline>& rules, std::string* error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Deadlines next = m_deadlines;
    for (const RuleDeadline& rule : rules) {
        next.rules[{rule.list, rule.number}] = rule;
    }
    return Save(next, error);
}

bool DeadlineStore::RemoveRules(const std::vector<std::pair<std::string, uint32_t>>& keys,
                                std::string* error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Deadlines next = m_deadlines;
    size_t removed = 0;
    for (const auto& key : keys) {
        removed += next.rules.erase(key);
    }
    return removed == 0 || Save(next, error);
}

bool DeadlineStore::SetRollback(const RollbackDeadline& rollback, std::string* error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Deadlines next = m_deadlines;
    next.rollbacks[rollback.list] = rollback;
    return Save(next, error);
}

bool DeadlineStore::RemoveRollback(const std::string& list, std::string* error) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Deadlines next = m_deadlines;
    return next.rollbacks.erase(list) == 0 || Save(next, error);
}

Deadlines DeadlineStore::Copy() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_deadlines;
}

}  // namespace qvfwd
