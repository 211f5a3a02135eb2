// One client of the control socket: reads requests until the client hangs up, sends the
// daemon's own commands (QvControl.h) to their handlers in an explicit table and every
// other number to the plug-in.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>

#include "EventHub.h"
#include "FrameChannel.h"
#include "IpfwCounters.h"
#include "PluginLibrary.h"
#include "QvControlStatus.h"
#include "RuleChecker.h"
#include "StopSignal.h"

namespace qvfwd {

struct ControlServices {
    const PluginLibrary& plugin;
    EventHub& events;
    const RuleChecker& checker;
    const IpfwCounters& counters;
    const StopSignal& stop;
    std::function<qvctl::DaemonStatus()> status;
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
    bool ToPlugin(qvctl::FrameChannel& channel, uint32_t command, const std::string& request) const;
    bool FollowEvents(qvctl::FrameChannel& channel, int fd, uint64_t next) const;

    ControlServices m_services;
};

}  // namespace qvfwd
