// qvfwd: claims its two sockets, serves the host service, brings the plug-in up, serves
// the control socket, and on SIGTERM or SIGINT takes everything down in reverse order.
// SIGHUP reopens the events file.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "ChangeAudit.h"
#include "ConnectionPool.h"
#include "DaemonOptions.h"
#include "DeadlineStore.h"
#include "EventHub.h"
#include "EventJournal.h"
#include "EventsFile.h"
#include "Housekeeper.h"
#include "IpfwCounters.h"
#include "IpfwProbe.h"
#include "ListeningSocket.h"
#include "Metrics.h"
#include "MetricsFile.h"
#include "PluginLibrary.h"
#include "QvControlStatus.h"
#include "RateLimiter.h"
#include "RuleChecker.h"
#include "RuleDirectory.h"
#include "ServiceNotice.h"
#include "StopSignal.h"
#include "TimedChanges.h"
#include "WallClock.h"

namespace qvfwd {

class Daemon {
public:
    explicit Daemon(const DaemonOptions& options);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Returns the process's exit status: 0 after a signal, non-zero when start-up failed.
    int Run();

private:
    bool ClaimSockets();
    bool IpfwAnswers();
    bool PrepareRecords();
    bool StartPlugin();
    bool LoadDeadlines();
    void Housekeep(bool poked);
    int32_t CallPlugin(uint32_t command, const std::string& request, std::string* response);
    std::string MetricsText() const;
    qvctl::DaemonStatus Status() const;

    static constexpr size_t kKeptEvents = 1000;

    DaemonOptions m_options;
    const std::chrono::steady_clock::time_point m_started = std::chrono::steady_clock::now();
    SystemWallClock m_clock;
    // Counted from const paths too (the status probes ipfw); it locks itself.
    mutable Metrics m_metrics{m_clock.NowMicros() / kMicrosPerSecond};
    ListeningSocket m_control;
    ListeningSocket m_service;
    // The control side stops first, so that no handler runs when the plug-in is
    // finalized; the host service stays up until then for the plug-in's last events.
    StopSignal m_controlStop;
    StopSignal m_serviceStop;
    ConnectionPool m_controlClients{static_cast<size_t>(m_options.maxClients)};
    ConnectionPool m_serviceClients{static_cast<size_t>(m_options.maxClients)};
    EventHub m_events{kKeptEvents};
    EventHub m_records{kKeptEvents};
    PluginLibrary m_plugin;
    RuleChecker m_checker;
    IpfwCounters m_counters;
    IpfwProbe m_ipfw;
    RateLimiter m_limiter{m_options.eventRateLimit};
    // Made once the options and the configuration are known (PrepareRecords).
    std::unique_ptr<EventsFile> m_eventsFile;
    std::unique_ptr<RuleDirectory> m_rules;
    std::unique_ptr<DeadlineStore> m_deadlines;
    std::unique_ptr<EventJournal> m_journal;
    std::unique_ptr<ChangeAudit> m_audit;
    std::unique_ptr<TimedChanges> m_timed;
    std::unique_ptr<MetricsFile> m_metricsFile;
    std::unique_ptr<Housekeeper> m_housekeeper;
    const ServiceNotice m_serviceManager = ServiceNotice::FromEnvironment();
};

}  // namespace qvfwd
