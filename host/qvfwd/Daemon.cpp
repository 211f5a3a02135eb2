#include "Daemon.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "Acceptor.h"
#include "ControlSession.h"
#include "PluginPath.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "ServiceSession.h"
#include "StoredOptions.h"

namespace qvfwd {

namespace {

// The notification callback is a plain C function without a context argument, so the
// one hub it feeds is reached through this pointer, set before the callback is handed
// to the plug-in and cleared after the plug-in is finalized.
EventHub* g_callbackEvents = nullptr;

void OnPluginEvent(int code, const void* data, int length) {
    EventHub* events = g_callbackEvents;
    if (events != nullptr && code == QV_EVENT_FW_LOG && data != nullptr && length >= 0) {
        events->Publish(qvctl::kFromCallback,
                        std::string(static_cast<const char*>(data), static_cast<size_t>(length)));
    }
}

void Log(const std::string& line) {
    fprintf(stderr, "qvfwd: %s\n", line.c_str());
    fflush(stderr);
}

// Blocks the stop signals in this thread and, through inheritance, in every thread
// started later (the plug-in's included), so that only sigwait() receives them.
sigset_t BlockStopSignals() {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // A client that hangs up mid-reply must cost a failed write, not the process.
    signal(SIGPIPE, SIG_IGN);
    return stopSignals;
}

int WaitForStopSignal(const sigset_t& stopSignals) {
    int received = 0;
    while (sigwait(&stopSignals, &received) != 0) {
    }
    return received;
}

}  // namespace

Daemon::Daemon(const DaemonOptions& options) : m_options(options) {}

Daemon::~Daemon() {
    g_callbackEvents = nullptr;
}

bool Daemon::ClaimSockets() {
    std::string error;
    if (m_control.Claim(m_options.controlSocket, &error) != 0 ||
        m_service.Claim(m_options.serviceSocket, &error) != 0) {
        Log("cannot start: " + error);
        return false;
    }
    return true;
}

bool Daemon::IpfwAnswers() {
    std::string why;
    if (m_ipfw.Answers(&why)) {
        return true;
    }
    Log("cannot start: " + why + "; the firewall would enforce nothing");
    return false;
}

bool Daemon::StartPlugin() {
    std::string path = m_options.pluginPath.empty() ? DefaultPluginPath() : m_options.pluginPath;
    std::string error;
    if (!m_plugin.Load(path, &error)) {
        Log("cannot start: " + error);
        return false;
    }
    g_callbackEvents = &m_events;
    if (m_plugin.Start(OnPluginEvent, &error) != 0) {
        Log("cannot start: " + error);
        return false;
    }
    return true;
}

qvctl::DaemonStatus Daemon::Status() const {
    qvctl::DaemonStatus status;
    status.pid = getpid();
    status.uptimeSeconds = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::steady_clock::now() - m_started)
                               .count();
    status.pluginId = m_plugin.id();
    status.pluginPath = m_plugin.path();
    status.controlSocket = m_control.path();
    status.serviceSocket = m_service.path();
    EventCounts counts = m_events.Counts();
    status.eventsFromService = counts.fromService;
    status.eventsFromCallback = counts.fromCallback;
    status.eventsKept = counts.kept;
    status.streamClients = counts.subscribers;
    status.loggedPacketsLost = counts.loggedPacketsLost;
    std::string why;
    status.ipfw = m_ipfw.Answers(&why) ? "answers" : why;
    StoredOptions options;
    ReadStoredOptions(&options);
    status.configPath = options.path;
    status.normalSet = options.normalSet;
    status.exceptionSet = options.exceptionSet;
    status.fwLogPath = options.fwLogPath;
    status.syslogConf = options.syslogConf;
    return status;
}

int Daemon::Run() {
    const sigset_t stopSignals = BlockStopSignals();
    if (!m_controlStop.valid() || !m_serviceStop.valid() || !ClaimSockets()) {
        return 1;
    }
    // The plug-in's own calls to the host service go to the socket served here.
    setenv("QV_IPC_SOCKET", m_service.path().c_str(), 1);
    Acceptor service(m_service.fd(), m_serviceStop, m_serviceClients,
                     ServiceSession(m_events, m_serviceStop));
    service.Start();
    int status = 1;
    if (IpfwAnswers() && StartPlugin()) {
        ControlServices services{m_plugin,   m_events,      m_checker,
                                 m_counters, m_controlStop, [this] { return Status(); }};
        Acceptor control(m_control.fd(), m_controlStop, m_controlClients, ControlSession(services));
        control.Start();
        Log("started: pid " + std::to_string(getpid()) + ", plug-in " +
            std::to_string(m_plugin.id()) + " from " + m_plugin.path() + ", control " +
            m_control.path() + ", host service " + m_service.path());
        if (!m_serviceManager.Send("READY=1")) {
            Log("cannot tell the service manager that the firewall is up");
        }
        int received = WaitForStopSignal(stopSignals);
        Log(std::string("stopping on ") + (received == SIGINT ? "SIGINT" : "SIGTERM"));
        (void)m_serviceManager.Send("STOPPING=1");
        m_controlStop.Raise();
        m_events.Stop();
        control.Join();
        m_controlClients.JoinAll();
        status = 0;
    }
    m_plugin.Finalize();
    g_callbackEvents = nullptr;
    m_serviceStop.Raise();
    service.Join();
    m_serviceClients.JoinAll();
    Log(status == 0 ? "stopped" : "start-up failed; stopped");
    return status;
}

}  // namespace qvfwd
