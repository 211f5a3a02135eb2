// The host service's side of the plug-in's inter-process call: command 65567 carries a
// firewall event, which is kept and fanned out to the streaming clients; the reply is
// code 0 with an empty NullObject (zero bytes). Each event also goes to the event journal
// (its JSON record), before it is kept.
#pragma once

#include "EventHub.h"
#include "EventJournal.h"
#include "StopSignal.h"

namespace qvfwd {

class ServiceSession {
public:
    ServiceSession(EventHub& events, EventJournal& journal, const StopSignal& stop)
        : m_events(events), m_journal(journal), m_stop(stop) {}

    // Serves calls on `fd` until the peer hangs up, a frame is malformed, or stop.
    void operator()(int fd) const;

private:
    EventHub& m_events;
    EventJournal& m_journal;
    const StopSignal& m_stop;
};

}  // namespace qvfwd
