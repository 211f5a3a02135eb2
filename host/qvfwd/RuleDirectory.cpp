#include "RuleDirectory.h"

#include "QvFirewall.h"
#include "VelaFwMsg.pb.h"

namespace qvfwd {

uint64_t RuleFingerprint(const qor::vela::FwRule& rule) {
    qor::vela::FwRule unnumbered = rule;
    unnumbered.clear_rule_index();
    std::string bytes;
    unnumbered.SerializeToString(&bytes);
    uint64_t hash = 1469598103934665603ull;
    for (unsigned char c : bytes) {
        hash = (hash ^ c) * 1099511628211ull;
    }
    return hash;
}

bool RuleDirectory::ReadList(uint32_t command, std::map<uint32_t, StoredRule>* rules) {
    std::string response;
    qor::vela::FwRuleList read;
    if (m_call(command, "", &response) != 0 || !read.ParseFromString(response)) {
        return false;
    }
    for (const qor::vela::FwRule& rule : read.rules()) {
        StoredRule& stored = (*rules)[rule.rule_index()];
        rule.SerializeToString(&stored.message);
        stored.fingerprint = RuleFingerprint(rule);
    }
    return true;
}

bool RuleDirectory::Refresh() {
    std::map<uint32_t, StoredRule> normal;
    std::map<uint32_t, StoredRule> exceptions;
    if (!ReadList(QV_CMD_GET_ALL_RULES, &normal) || !ReadList(QV_CMD_GET_EXCP_RULES, &exceptions)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    auto same = [](const std::map<uint32_t, StoredRule>& a,
                   const std::map<uint32_t, StoredRule>& b) {
        if (a.size() != b.size()) {
            return false;
        }
        for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
            if (i->first != j->first || i->second.fingerprint != j->second.fingerprint) {
                return false;
            }
        }
        return true;
    };
    if (!same(m_rules["normal"], normal) || !same(m_rules["exception"], exceptions)) {
        ++m_generation;
    }
    m_rules["normal"] = std::move(normal);
    m_rules["exception"] = std::move(exceptions);
    return true;
}

std::optional<RulePlace> RuleDirectory::PlaceOf(uint32_t number) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const char* list : {"normal", "exception"}) {
        auto rules = m_rules.find(list);
        if (rules != m_rules.end() && rules->second.count(number) != 0) {
            return RulePlace{list, m_sets.at(list)};
        }
    }
    return std::nullopt;
}

std::optional<StoredRule> RuleDirectory::Find(const std::string& list, uint32_t number) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto rules = m_rules.find(list);
    if (rules == m_rules.end()) {
        return std::nullopt;
    }
    auto found = rules->second.find(number);
    return found == rules->second.end() ? std::nullopt : std::optional<StoredRule>(found->second);
}

int64_t RuleDirectory::SetOf(const std::string& list) const {
    auto found = m_sets.find(list);
    return found == m_sets.end() ? 0 : found->second;
}

size_t RuleDirectory::Count(const std::string& list) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto rules = m_rules.find(list);
    return rules == m_rules.end() ? 0 : rules->second.size();
}

uint64_t RuleDirectory::generation() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_generation;
}

}  // namespace qvfwd
