#include "Metrics.h"

#include "QvFirewall.h"

namespace qvfwd {

void LatencyHistogram::Add(double seconds) {
    for (size_t i = 0; i < kLatencyBuckets.size(); ++i) {
        if (seconds <= kLatencyBuckets[i]) {
            ++buckets[i];
            break;
        }
    }
    ++count;
    sumSeconds += seconds;
}

bool IsIpfwFailure(int32_t code) {
    return code == QV_ERR_CMD || code == FW_ERR_NO_RULE_NUM || code == FW_ERR_RULE_REFUSED ||
           code == FW_ERR_IPFW_PRINTED;
}

void Metrics::SetRules(const std::string& list, int64_t set, int64_t rules) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_snapshot.rules[list] = RuleListGauge{set, rules};
}

void Metrics::CountEvent(const std::string& action, const std::string& set) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_snapshot.events[{action, set}];
}

void Metrics::CountSuppressed(int64_t records) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_snapshot.recordsSuppressed += records;
}

void Metrics::CountHandler(const std::string& command, int32_t code, double seconds) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_snapshot.handlerCalls[{command, code}];
    m_snapshot.handlerSeconds[command].Add(seconds);
    if (IsIpfwFailure(code)) {
        ++m_snapshot.ipfwFailures[{"plugin", std::to_string(code)}];
    }
}

void Metrics::CountIpfwFailure(const std::string& source, const std::string& reason) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_snapshot.ipfwFailures[{source, reason}];
}

void Metrics::SetPending(int64_t expiringRules, int64_t pendingRollbacks) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_snapshot.expiringRules = expiringRules;
    m_snapshot.pendingRollbacks = pendingRollbacks;
}

MetricsSnapshot Metrics::Snapshot() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_snapshot;
}

}  // namespace qvfwd
