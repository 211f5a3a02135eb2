#include "PrometheusText.h"

#include <stdio.h>

namespace qvfwd {

namespace {

void Family(std::string& out, const char* name, const char* type, const char* help) {
    out += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string Label(const char* name, const std::string& value) {
    return std::string(name) + "=\"" + PrometheusLabel(value) + "\"";
}

void Sample(std::string& out, const std::string& name, const std::string& labels,
            const std::string& value) {
    out += name + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
}

std::string Seconds(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.9g", value);
    return text;
}

void Histograms(std::string& out, const MetricsSnapshot& metrics) {
    const char* name = "qvfwd_handler_duration_seconds";
    Family(out, name, "histogram", "Time the plug-in's handlers took, by command.");
    for (const auto& [command, histogram] : metrics.handlerSeconds) {
        const std::string commandLabel = Label("command", command);
        int64_t cumulative = 0;
        for (size_t i = 0; i < kLatencyBuckets.size(); ++i) {
            cumulative += histogram.buckets[i];
            Sample(out, std::string(name) + "_bucket",
                   commandLabel + "," + Label("le", Seconds(kLatencyBuckets[i])),
                   std::to_string(cumulative));
        }
        Sample(out, std::string(name) + "_bucket", commandLabel + ",le=\"+Inf\"",
               std::to_string(histogram.count));
        Sample(out, std::string(name) + "_sum", commandLabel, Seconds(histogram.sumSeconds));
        Sample(out, std::string(name) + "_count", commandLabel, std::to_string(histogram.count));
    }
}

}  // namespace

std::string PrometheusLabel(const std::string& value) {
    std::string out;
    for (char c : value) {
        if (c == '\\' || c == '"') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    return out;
}

std::string FormatPrometheus(const MetricsSnapshot& metrics) {
    std::string out;
    Family(out, "qvfwd_start_time_seconds", "gauge",
           "When qvfwd started, in seconds since the epoch.");
    Sample(out, "qvfwd_start_time_seconds", "", std::to_string(metrics.startTimeSeconds));

    Family(out, "qvfwd_rules", "gauge", "Rules in each list, by list and ipfw set.");
    for (const auto& [list, gauge] : metrics.rules) {
        Sample(out, "qvfwd_rules",
               Label("list", list) + "," + Label("set", std::to_string(gauge.set)),
               std::to_string(gauge.rules));
    }

    Family(out, "qvfwd_events_total", "counter", "Logged packets, by action and ipfw set.");
    for (const auto& [key, count] : metrics.events) {
        Sample(out, "qvfwd_events_total",
               Label("action", key.first) + "," + Label("set", key.second), std::to_string(count));
    }

    Family(out, "qvfwd_event_records_written_total", "counter",
           "Records written to the events file.");
    Sample(out, "qvfwd_event_records_written_total", "", std::to_string(metrics.recordsWritten));
    Family(out, "qvfwd_event_records_lost_total", "counter",
           "Records that did not reach the events file, by reason.");
    for (const char* reason : {"queue_full", "write_failed"}) {
        auto found = metrics.recordsLost.find(reason);
        Sample(out, "qvfwd_event_records_lost_total", Label("reason", reason),
               std::to_string(found == metrics.recordsLost.end() ? 0 : found->second));
    }
    Family(out, "qvfwd_event_records_suppressed_total", "counter",
           "Packet records held back by --event-rate (reported as suppressed records).");
    Sample(out, "qvfwd_event_records_suppressed_total", "",
           std::to_string(metrics.recordsSuppressed));
    Family(out, "qvfwd_logged_packets_lost_total", "counter",
           "Logged packets that the firewall's logger reported lost.");
    Sample(out, "qvfwd_logged_packets_lost_total", "", std::to_string(metrics.loggedPacketsLost));

    Family(out, "qvfwd_handler_calls_total", "counter",
           "Calls of the plug-in's handlers, by command and result code.");
    for (const auto& [key, count] : metrics.handlerCalls) {
        Sample(out, "qvfwd_handler_calls_total",
               Label("code", std::to_string(key.second)) + "," + Label("command", key.first),
               std::to_string(count));
    }
    Histograms(out, metrics);

    Family(out, "qvfwd_ipfw_failures_total", "counter",
           "ipfw commands that failed or were refused: by the plug-in's handlers (reason: the "
           "code) and by qvfwd's own runs.");
    for (const auto& [key, count] : metrics.ipfwFailures) {
        Sample(out, "qvfwd_ipfw_failures_total",
               Label("reason", key.second) + "," + Label("source", key.first),
               std::to_string(count));
    }

    Family(out, "qvfwd_expiring_rules", "gauge", "Rules that qvfwd will delete at a deadline.");
    Sample(out, "qvfwd_expiring_rules", "", std::to_string(metrics.expiringRules));
    Family(out, "qvfwd_pending_rollbacks", "gauge", "Applied lists waiting for confirmation.");
    Sample(out, "qvfwd_pending_rollbacks", "", std::to_string(metrics.pendingRollbacks));
    Family(out, "qvfwd_watchers", "gauge", "Clients following the event stream.");
    Sample(out, "qvfwd_watchers", "", std::to_string(metrics.watchers));
    return out;
}

}  // namespace qvfwd
