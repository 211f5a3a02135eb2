// Where the daemon's records go: every packet the plug-in reports (through the host
// service) becomes a packet record, counted by action and set, held back by the rate
// limit when there is one; change, expiry and rollback records are written as they come.
// Each record goes to the kept records that `qvfwctl watch --json` / `events --json`
// read and, with --events-file, to the events file.
#pragma once

#include <stdint.h>

#include <string>

#include "EventHub.h"
#include "EventsFile.h"
#include "Metrics.h"
#include "RateLimiter.h"
#include "RuleDirectory.h"
#include "WallClock.h"

namespace qvfwd {

class EventJournal {
public:
    // `file` may be null (no --events-file).
    EventJournal(const WallClock& clock, EventHub& records, EventsFile* file, RateLimiter& limiter,
                 Metrics& metrics, const RuleDirectory& rules)
        : m_clock(clock),
          m_records(records),
          m_file(file),
          m_limiter(limiter),
          m_metrics(metrics),
          m_rules(rules) {}

    // `event`: a serialized qor.vela.EventLogItemFw from the host service.
    void OnEvent(const std::string& event);
    // A record made elsewhere (change, expiry, rollback).
    void Write(const std::string& record);
    // Writes the suppressed records of the seconds that are over.
    void FlushSuppressed();

    const WallClock& clock() const { return m_clock; }

private:
    const WallClock& m_clock;
    EventHub& m_records;
    EventsFile* m_file;
    RateLimiter& m_limiter;
    Metrics& m_metrics;
    const RuleDirectory& m_rules;
};

}  // namespace qvfwd
