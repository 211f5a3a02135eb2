// One client of the control socket: reads requests until the client hangs up, sends the
// daemon's own commands (QvControl.h) to their handlers in an explicit table and every
// other number to the plug-in. A frame that stalls half-way closes the connection with a
// log line. Every change is made under TimedChanges' gate and leaves
// a change record (ChangeAudit).
#pragma once

#include <stdint.h>

#include <functional>
#include <string>

#include "ChangeAudit.h"
#include "EventHub.h"
#include "FrameChannel.h"
#include "IpfwCounters.h"
#include "Metrics.h"
#include "PluginCaller.h"
#include "QvControlStatus.h"
#include "RuleChecker.h"
#include "StopSignal.h"
#include "TimedChanges.h"

namespace qvfwd {

struct ControlServices {
    PluginCaller call;  // the plug-in's handlers, timed and counted
    EventHub& events;   // the plug-in's events, serialized
    EventHub& records;  // the JSON records
    const RuleChecker& checker;
    const IpfwCounters& counters;
    const StopSignal& stop;
    std::function<qvctl::DaemonStatus()> status;
    std::function<std::string()> metricsText;
    Metrics& metrics;
    ChangeAudit& audit;
    TimedChanges& timed;
    std::function<void()> changed;  // wakes the housekeeper: metrics at once
    int frameTimeoutMs;             // a frame begun that brings no byte for this long is dropped
    std::function<void(const std::string&)> log;
};

class ControlSession {
public:
    explicit ControlSession(const ControlServices& services) : m_services(services) {}

    void operator()(int fd) const;

private:
    // A handler of the daemon's own commands. False ends the connection.
    using Handler = bool (ControlSession::*)(qvctl::FrameChannel&, int fd,
                                             const std::string& request) const;
    struct Route {
        uint32_t command;
        Handler handler;
    };
    static const Route kRoutes[];

    bool Status(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool StreamEvents(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool RuleText(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool CheckRule(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool RuleCounters(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool Metrics(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool AddExpiring(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool Apply(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool Confirm(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool Deadlines(qvctl::FrameChannel& channel, int fd, const std::string& request) const;
    bool ToPlugin(qvctl::FrameChannel& channel, int fd, uint32_t command,
                  const std::string& request) const;
    bool FollowEvents(qvctl::FrameChannel& channel, int fd, EventHub& hub, uint64_t next) const;
    void CountOwnIpfw(int32_t code) const;

    ControlServices m_services;
};

}  // namespace qvfwd
