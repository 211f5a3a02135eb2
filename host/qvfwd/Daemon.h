// qvfwd: claims its two sockets, serves the host service, brings the plug-in up, serves
// the control socket, and on SIGTERM or SIGINT takes everything down in reverse order.
#pragma once

#include <chrono>
#include <string>

#include "ConnectionPool.h"
#include "DaemonOptions.h"
#include "EventHub.h"
#include "IpfwCounters.h"
#include "IpfwProbe.h"
#include "ListeningSocket.h"
#include "PluginLibrary.h"
#include "QvControlStatus.h"
#include "RuleChecker.h"
#include "ServiceNotice.h"
#include "StopSignal.h"

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
    bool StartPlugin();
    qvctl::DaemonStatus Status() const;

    static constexpr size_t kKeptEvents = 1000;

    DaemonOptions m_options;
    const std::chrono::steady_clock::time_point m_started = std::chrono::steady_clock::now();
    ListeningSocket m_control;
    ListeningSocket m_service;
    // The control side stops first, so that no handler runs when the plug-in is
    // finalized; the host service stays up until then for the plug-in's last events.
    StopSignal m_controlStop;
    StopSignal m_serviceStop;
    ConnectionPool m_controlClients;
    ConnectionPool m_serviceClients;
    EventHub m_events{kKeptEvents};
    PluginLibrary m_plugin;
    RuleChecker m_checker;
    IpfwCounters m_counters;
    IpfwProbe m_ipfw;
    const ServiceNotice m_serviceManager = ServiceNotice::FromEnvironment();
};

}  // namespace qvfwd
