// The metrics in Prometheus's text exposition format (version 0.0.4): a HELP and a TYPE
// line per family, samples with sorted labels, a histogram's cumulative buckets with
// their sum and count. Node exporter's textfile collector reads exactly this.
#pragma once

#include <string>

#include "Metrics.h"

namespace qvfwd {

// A label value with backslash, double quote and newline escaped.
std::string PrometheusLabel(const std::string& value);

std::string FormatPrometheus(const MetricsSnapshot& metrics);

}  // namespace qvfwd
