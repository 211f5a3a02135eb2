#include "Daemon.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <functional>

#include "Acceptor.h"
#include "CommandNames.h"
#include "ControlSession.h"
#include "PluginPath.h"
#include "PrometheusText.h"
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

// Blocks the stop signals and SIGHUP in this thread and, through inheritance, in every
// thread started later (the plug-in's included), so that only sigwait() receives them.
sigset_t BlockStopSignals() {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    // A client that hangs up mid-reply must cost a failed write, not the process.
    signal(SIGPIPE, SIG_IGN);
    return stopSignals;
}

// Waits for SIGTERM or SIGINT; each SIGHUP on the way runs `onHangUp`.
int WaitForStopSignal(const sigset_t& stopSignals, const std::function<void()>& onHangUp) {
    for (;;) {
        int received = 0;
        if (sigwait(&stopSignals, &received) != 0) {
            continue;
        }
        if (received != SIGHUP) {
            return received;
        }
        onHangUp();
    }
}

// The directory of a file's path ("." for a bare name).
std::string DirectoryOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

constexpr const char* kDeadlinesFile = "qvfwd.deadlines";

}  // namespace

Daemon::Daemon(const DaemonOptions& options) : m_options(options) {}

Daemon::~Daemon() {
    g_callbackEvents = nullptr;
}

int32_t Daemon::CallPlugin(uint32_t command, const std::string& request, std::string* response) {
    const auto start = std::chrono::steady_clock::now();
    const int32_t code = m_plugin.Call(command, request, response);
    m_metrics.CountHandler(
        CommandName(command), code,
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    return code;
}

// Everything records need, before the host service starts taking events.
bool Daemon::PrepareRecords() {
    StoredOptions stored;
    ReadStoredOptions(&stored);
    PluginCaller call = [this](uint32_t command, const std::string& request,
                               std::string* response) {
        return CallPlugin(command, request, response);
    };
    // The directory's own reads are the daemon's bookkeeping, not calls anyone made.
    PluginCaller uncounted = [this](uint32_t command, const std::string& request,
                                    std::string* response) {
        return m_plugin.Call(command, request, response);
    };
    m_rules = std::make_unique<RuleDirectory>(uncounted, stored.normalSet, stored.exceptionSet);
    const std::string stateDir =
        m_options.stateDir.empty() ? DirectoryOf(stored.path) : m_options.stateDir;
    m_deadlines = std::make_unique<DeadlineStore>(stateDir + "/" + kDeadlinesFile);
    if (!m_options.eventsFile.empty()) {
        m_eventsFile = std::make_unique<EventsFile>(m_options.eventsFile);
        std::string error;
        if (!m_eventsFile->Start(&error)) {
            Log("cannot start: " + error);
            return false;
        }
    }
    m_journal = std::make_unique<EventJournal>(m_clock, m_records, m_eventsFile.get(), m_limiter,
                                               m_metrics, *m_rules);
    m_audit = std::make_unique<ChangeAudit>(*m_journal, *m_rules, m_checker, Log);
    m_timed = std::make_unique<TimedChanges>(call, *m_rules, *m_deadlines, *m_journal, m_metrics,
                                             m_checker, Log);
    if (!m_options.metricsFile.empty()) {
        m_metricsFile =
            std::make_unique<MetricsFile>(m_options.metricsFile, [this] { return MetricsText(); });
    }
    m_housekeeper = std::make_unique<Housekeeper>(
        m_clock, Housekeeper::Jobs{[this] { return m_timed->NextDeadlineMicros(); },
                                   [this](bool poked) { Housekeep(poked); }});
    return true;
}

// The deadlines of the last run: rules deleted or replaced while qvfwd was away lose theirs;
// those already due are acted on at the housekeeper's first wake.
bool Daemon::LoadDeadlines() {
    std::string error;
    bool loaded = m_deadlines->Load(&error);
    if (!error.empty()) {
        Log((loaded ? "" : "cannot start: ") + error);
    }
    if (!loaded) {
        return false;
    }
    std::lock_guard<std::mutex> gate(m_timed->gate());
    m_timed->AfterChange();
    return true;
}

void Daemon::Housekeep(bool poked) {
    m_timed->Tick();
    m_journal->FlushSuppressed();
    std::string error;
    if (m_metricsFile && !m_metricsFile->Update(m_clock.NowMicros(), poked, &error)) {
        Log(error);
    }
}

std::string Daemon::MetricsText() const {
    MetricsSnapshot snapshot = m_metrics.Snapshot();
    if (m_eventsFile) {
        EventsFileCounts written = m_eventsFile->Counts();
        snapshot.recordsWritten = written.written;
        snapshot.recordsLost["queue_full"] = written.queueFull;
        snapshot.recordsLost["write_failed"] = written.writeFailed;
    }
    EventCounts events = m_events.Counts();
    snapshot.loggedPacketsLost = events.loggedPacketsLost;
    snapshot.watchers = events.subscribers;
    return FormatPrometheus(snapshot);
}

bool Daemon::ClaimSockets() {
    std::string error;
    // Whoever may write the control socket's directory could put a socket of their own
    // in its place for qvfwctl to talk to.
    if (m_control.Claim(m_options.controlSocket, &error, ListeningSocket::kPrivateDirectory) != 0 ||
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
    if (status.ipfw != "answers") {
        m_metrics.CountIpfwFailure("qvfwd", "probe");
    }
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
    if (!PrepareRecords()) {
        return 1;
    }
    // The plug-in's own calls to the host service go to the socket served here.
    setenv("QV_IPC_SOCKET", m_service.path().c_str(), 1);
    const int frameTimeoutMs = static_cast<int>(m_options.frameTimeoutSeconds * 1000);
    Acceptor service(m_service.fd(), m_serviceStop, m_serviceClients,
                     ServiceSession(m_events, *m_journal, m_serviceStop, frameTimeoutMs, Log), Log,
                     "host service socket " + m_service.path());
    std::string error;
    if (!service.Start(&error)) {
        Log("cannot start: " + error);
        return 1;
    }
    int status = 1;
    if (IpfwAnswers() && StartPlugin() && LoadDeadlines()) {
        ControlServices services{
            [this](uint32_t command, const std::string& request, std::string* response) {
                return CallPlugin(command, request, response);
            },
            m_events,
            m_records,
            m_checker,
            m_counters,
            m_controlStop,
            [this] { return Status(); },
            [this] { return MetricsText(); },
            m_metrics,
            *m_audit,
            *m_timed,
            [this] { m_housekeeper->Poke(); },
            frameTimeoutMs,
            Log};
        Acceptor control(m_control.fd(), m_controlStop, m_controlClients, ControlSession(services),
                         Log, "control socket " + m_control.path());
        if (!control.Start(&error)) {
            Log("cannot start: " + error);
        } else {
            m_housekeeper->Start();
            Log("started: pid " + std::to_string(getpid()) + ", plug-in " +
                std::to_string(m_plugin.id()) + " from " + m_plugin.path() + ", control " +
                m_control.path() + ", host service " + m_service.path());
            if (!m_serviceManager.Send("READY=1")) {
                Log("cannot tell the service manager that the firewall is up");
            }
            int received = WaitForStopSignal(stopSignals, [this] {
                if (m_eventsFile) {
                    Log("SIGHUP: reopening the events file " + m_eventsFile->path());
                    m_eventsFile->Reopen();
                }
            });
            Log(std::string("stopping on ") + (received == SIGINT ? "SIGINT" : "SIGTERM"));
            (void)m_serviceManager.Send("STOPPING=1");
            m_controlStop.Raise();
            m_events.Stop();
            m_records.Stop();
            control.Join();
            m_controlClients.JoinAll();
            m_housekeeper->Stop();
            status = 0;
        }
    }
    m_plugin.Finalize();
    g_callbackEvents = nullptr;
    m_serviceStop.Raise();
    service.Join();
    m_serviceClients.JoinAll();
    if (m_eventsFile) {
        m_eventsFile->Stop();
    }
    Log(status == 0 ? "stopped" : "start-up failed; stopped");
    return status;
}

}  // namespace qvfwd
