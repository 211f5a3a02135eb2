// The host service's side of the plug-in's inter-process call: command 65567 carries a
// firewall event, which is kept and fanned out to the streaming clients; the reply is
// code 0 with an empty NullObject (zero bytes). Each event also goes to the event journal
// (its JSON record), before it is kept.
#pragma once

#include <functional>
#include <string>

#include "EventHub.h"
#include "EventJournal.h"
#include "StopSignal.h"

namespace qvfwd {

class ServiceSession {
public:
    using LogLine = std::function<void(const std::string&)>;

    // `frameTimeoutMs`: a frame begun that brings no byte for this long closes the
    // connection, with a line to `log`.
    ServiceSession(EventHub& events, EventJournal& journal, const StopSignal& stop,
                   int frameTimeoutMs, LogLine log)
        : m_events(events),
          m_journal(journal),
          m_stop(stop),
          m_frameTimeoutMs(frameTimeoutMs),
          m_log(std::move(log)) {}

    // Serves calls on `fd` until the peer hangs up, a frame is malformed or stalls, or stop.
    void operator()(int fd) const;

private:
    EventHub& m_events;
    EventJournal& m_journal;
    const StopSignal& m_stop;
    int m_frameTimeoutMs;
    LogLine m_log;
};

}  // namespace qvfwd
