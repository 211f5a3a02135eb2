// The daemon's counters for `qvfwctl metrics` and the metrics file: what it counts as it
// goes (events by action and set, handler calls by command and code with their time,
// failed ipfw commands), under one lock, and a snapshot of them to format.
#pragma once

#include <stdint.h>

#include <array>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace qvfwd {

// Upper bounds of the handler-time histogram's buckets, in seconds (+Inf is implied).
constexpr std::array<double, 10> kLatencyBuckets = {0.0005, 0.001, 0.0025, 0.005, 0.01,
                                                    0.025,  0.05,  0.1,    0.5,   2.5};

struct LatencyHistogram {
    std::array<int64_t, kLatencyBuckets.size()> buckets{};  // not cumulative
    int64_t count = 0;
    double sumSeconds = 0;

    void Add(double seconds);
};

struct RuleListGauge {
    int64_t set = 0;
    int64_t rules = 0;
};

struct MetricsSnapshot {
    int64_t startTimeSeconds = 0;
    std::map<std::string, RuleListGauge> rules;  // by list: "normal", "exception"
    // (action, set) -> packets; set "" when the rule is not the daemon's.
    std::map<std::pair<std::string, std::string>, int64_t> events;
    std::map<std::string, int64_t> recordsLost;  // by reason
    int64_t recordsWritten = 0;
    int64_t recordsSuppressed = 0;
    int64_t loggedPacketsLost = 0;
    std::map<std::pair<std::string, int32_t>, int64_t> handlerCalls;      // (command, code)
    std::map<std::string, LatencyHistogram> handlerSeconds;               // by command
    std::map<std::pair<std::string, std::string>, int64_t> ipfwFailures;  // (source, reason)
    int64_t expiringRules = 0;
    int64_t pendingRollbacks = 0;
    int64_t watchers = 0;
};

class Metrics {
public:
    explicit Metrics(int64_t startTimeSeconds) { m_snapshot.startTimeSeconds = startTimeSeconds; }

    void SetRules(const std::string& list, int64_t set, int64_t rules);
    void CountEvent(const std::string& action, const std::string& set);
    void CountSuppressed(int64_t records);
    // A call of the plug-in's `command`, its code and how long it took.
    void CountHandler(const std::string& command, int32_t code, double seconds);
    // An ipfw command that failed: `source` "plugin" (the handler's code says so) or
    // "qvfwd" (the daemon's own runs), `reason` the code or what happened.
    void CountIpfwFailure(const std::string& source, const std::string& reason);
    void SetPending(int64_t expiringRules, int64_t pendingRollbacks);

    MetricsSnapshot Snapshot() const;

private:
    mutable std::mutex m_mutex;
    MetricsSnapshot m_snapshot;
};

// True for the handler codes that mean an ipfw command failed or was refused.
bool IsIpfwFailure(int32_t code);

}  // namespace qvfwd
