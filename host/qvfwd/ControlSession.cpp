#include "ControlSession.h"

#include <poll.h>
#include <sys/socket.h>

#include "CommandNames.h"
#include "PeerCredentials.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "QvFrame.h"
#include "StalledFrame.h"

namespace qvfwd {

namespace {

// How often a following stream looks whether its client is still there.
constexpr int kFollowPollMs = 500;

struct StreamRequest {
    uint32_t backlog = 0;
    uint32_t flags = 0;
};

StreamRequest ParseStreamRequest(const std::string& payload) {
    StreamRequest request;
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(payload.data());
    if (payload.size() >= 4) {
        request.backlog = ipc::LoadLittleEndian32(bytes);
    }
    if (payload.size() >= 8) {
        request.flags = ipc::LoadLittleEndian32(bytes + 4);
    }
    return request;
}

std::string EncodeCount(size_t count) {
    std::string out(4, '\0');
    ipc::StoreLittleEndian32(static_cast<uint32_t>(count), reinterpret_cast<uint8_t*>(&out[0]));
    return out;
}

// True when the client closed its end (nothing more to read, ever).
bool PeerHungUp(int fd) {
    struct pollfd wait = {fd, POLLIN, 0};
    if (poll(&wait, 1, 0) <= 0) {
        return false;
    }
    char byte;
    return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0 || (wait.revents & POLLHUP) != 0;
}

// The two numbers that open a request of the daemon's own, and what follows them.
bool SplitHeader(const std::string& request, uint32_t* first, uint32_t* second, std::string* rest) {
    if (request.size() < 8) {
        return false;
    }
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(request.data());
    *first = ipc::LoadLittleEndian32(bytes);
    *second = ipc::LoadLittleEndian32(bytes + 4);
    *rest = request.substr(8);
    return true;
}

bool WriteEvents(qvctl::FrameChannel& channel, const std::vector<KeptEvent>& events) {
    for (const KeptEvent& event : events) {
        if (!channel.Write(static_cast<uint32_t>(event.origin), event.record)) {
            return false;
        }
    }
    return true;
}

// Counts a following client for the status while it lives.
class Subscription {
public:
    explicit Subscription(EventHub& events) : m_events(events) { m_events.AddSubscriber(1); }
    ~Subscription() { m_events.AddSubscriber(-1); }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

private:
    EventHub& m_events;
};

}  // namespace

const ControlSession::Route ControlSession::kRoutes[] = {
    {qvctl::kStatus, &ControlSession::Status},
    {qvctl::kStreamEvents, &ControlSession::StreamEvents},
    {qvctl::kRuleText, &ControlSession::RuleText},
    {qvctl::kCheckRule, &ControlSession::CheckRule},
    {qvctl::kRuleCounters, &ControlSession::RuleCounters},
    {qvctl::kMetrics, &ControlSession::Metrics},
    {qvctl::kAddExpiring, &ControlSession::AddExpiring},
    {qvctl::kApply, &ControlSession::Apply},
    {qvctl::kConfirm, &ControlSession::Confirm},
    {qvctl::kDeadlines, &ControlSession::Deadlines},
};

void ControlSession::operator()(int fd) const {
    qvctl::FrameChannel channel(fd, m_services.stop.fd(), -1, ipc::kMaxPayload,
                                m_services.frameTimeoutMs);
    qvctl::Frame request;
    qvctl::FrameStatus status;
    while ((status = channel.Read(&request)) == qvctl::FrameStatus::kOk) {
        const Route* route = nullptr;
        for (const Route& candidate : kRoutes) {
            if (candidate.command == request.head) {
                route = &candidate;
            }
        }
        bool goOn = route != nullptr ? (this->*route->handler)(channel, fd, request.payload)
                                     : ToPlugin(channel, fd, request.head, request.payload);
        if (!goOn) {
            return;
        }
    }
    if (status == qvctl::FrameStatus::kStalled) {
        m_services.log(StalledFrameLine("control socket", fd, m_services.frameTimeoutMs));
    }
}

bool ControlSession::ToPlugin(qvctl::FrameChannel& channel, int fd, uint32_t command,
                              const std::string& request) const {
    std::string response;
    const CommandInfo* info = FindCommand(command);
    if (info == nullptr || !info->changes) {
        int32_t code = m_services.call(command, request, &response);
        return channel.Write(static_cast<uint32_t>(code), response);
    }
    const PeerIdentity peer = PeerIdentityOf(fd);
    int32_t code = 0;
    {
        std::lock_guard<std::mutex> gate(m_services.timed.gate());
        ChangeSubject subject = m_services.audit.Describe(command, request);
        code = m_services.call(command, request, &response);
        m_services.timed.AfterChange();
        if (std::optional<int64_t> added = AddedRuleNumber(command, response)) {
            subject.ruleNumber = added;
        }
        m_services.audit.Record(peer, info->name, subject, code);
    }
    m_services.changed();
    return channel.Write(static_cast<uint32_t>(code), response);
}

bool ControlSession::Metrics(qvctl::FrameChannel& channel, int, const std::string&) const {
    return channel.Write(0, m_services.metricsText());
}

bool ControlSession::AddExpiring(qvctl::FrameChannel& channel, int fd,
                                 const std::string& request) const {
    uint32_t command = 0;
    uint32_t seconds = 0;
    std::string inner;
    std::string response;
    if (!SplitHeader(request, &command, &seconds, &inner)) {
        return channel.Write(static_cast<uint32_t>(qvctl::kBadRequest), "");
    }
    const PeerIdentity peer = PeerIdentityOf(fd);
    int32_t code = 0;
    {
        std::lock_guard<std::mutex> gate(m_services.timed.gate());
        ChangeSubject subject = m_services.audit.Describe(command, inner);
        std::string log;
        code = m_services.timed.AddExpiring(command, seconds, inner, &response, &log);
        if (std::optional<int64_t> added = AddedRuleNumber(command, response)) {
            subject.ruleNumber = added;
        }
        m_services.audit.Record(
            peer, std::string(CommandName(command)) + " --for " + std::to_string(seconds) + "s",
            subject, code);
    }
    m_services.changed();
    return channel.Write(static_cast<uint32_t>(code), response);
}

bool ControlSession::Apply(qvctl::FrameChannel& channel, int fd, const std::string& request) const {
    uint32_t flags = 0;
    uint32_t seconds = 0;
    std::string list;
    std::string response;
    if (!SplitHeader(request, &flags, &seconds, &list)) {
        return channel.Write(static_cast<uint32_t>(qvctl::kBadRequest), "");
    }
    const bool exceptions = (flags & qvctl::kApplyExceptions) != 0;
    const PeerIdentity peer = PeerIdentityOf(fd);
    int32_t code = 0;
    {
        std::lock_guard<std::mutex> gate(m_services.timed.gate());
        ChangeSubject subject{std::nullopt, m_services.audit.ListWords(list)};
        std::string log;
        code = m_services.timed.Apply(exceptions ? "exception" : "normal", seconds, list, &response,
                                      &log);
        m_services.audit.Record(
            peer,
            std::string("apply") + (exceptions ? " --exceptions" : "") +
                (seconds > 0 ? " --confirm " + std::to_string(seconds) + "s" : ""),
            subject, code);
    }
    m_services.changed();
    return channel.Write(static_cast<uint32_t>(code), response);
}

bool ControlSession::Confirm(qvctl::FrameChannel& channel, int fd, const std::string&) const {
    const PeerIdentity peer = PeerIdentityOf(fd);
    int32_t code = 0;
    {
        std::lock_guard<std::mutex> gate(m_services.timed.gate());
        std::string log;
        code = m_services.timed.Confirm(&log);
        m_services.audit.Record(peer, "confirm", ChangeSubject{}, code);
    }
    m_services.changed();
    return channel.Write(static_cast<uint32_t>(code), "");
}

bool ControlSession::Deadlines(qvctl::FrameChannel& channel, int, const std::string&) const {
    return channel.Write(0, m_services.timed.DeadlinesText());
}

void ControlSession::CountOwnIpfw(int32_t code) const {
    if (code == QV_ERR_CMD) {
        m_services.metrics.CountIpfwFailure("qvfwd", std::to_string(code));
    }
}

bool ControlSession::Status(qvctl::FrameChannel& channel, int, const std::string&) const {
    return channel.Write(0, qvctl::FormatStatus(m_services.status()));
}

bool ControlSession::RuleText(qvctl::FrameChannel& channel, int, const std::string& request) const {
    std::string text;
    int32_t code = m_services.checker.RuleText(request, &text);
    return channel.Write(static_cast<uint32_t>(code), text);
}

bool ControlSession::CheckRule(qvctl::FrameChannel& channel, int,
                               const std::string& request) const {
    std::string report;
    int32_t code = m_services.checker.Check(request, &report);
    CountOwnIpfw(code);
    return channel.Write(static_cast<uint32_t>(code), report);
}

bool ControlSession::RuleCounters(qvctl::FrameChannel& channel, int, const std::string&) const {
    std::string listing;
    int32_t code = m_services.counters.Show(&listing);
    CountOwnIpfw(code);
    return channel.Write(static_cast<uint32_t>(code), code == 0 ? listing : std::string());
}

bool ControlSession::StreamEvents(qvctl::FrameChannel& channel, int fd,
                                  const std::string& request) const {
    StreamRequest stream = ParseStreamRequest(request);
    EventHub& hub =
        (stream.flags & qvctl::kJsonRecords) != 0 ? m_services.records : m_services.events;
    uint64_t next = 0;
    std::vector<KeptEvent> recent = hub.Recent(stream.backlog, &next);
    if (!channel.Write(0, EncodeCount(recent.size())) || !WriteEvents(channel, recent)) {
        return false;
    }
    if ((stream.flags & qvctl::kFollow) == 0) {
        channel.Write(static_cast<uint32_t>(qvctl::kEndOfStream), "", 0);
        return false;
    }
    return FollowEvents(channel, fd, hub, next);
}

bool ControlSession::FollowEvents(qvctl::FrameChannel& channel, int fd, EventHub& hub,
                                  uint64_t next) const {
    Subscription subscription(m_services.events);
    while (!m_services.stop.raised() && !PeerHungUp(fd)) {
        std::vector<KeptEvent> events = hub.WaitFrom(&next, kFollowPollMs);
        if (!WriteEvents(channel, events)) {
            break;
        }
    }
    return false;
}

}  // namespace qvfwd
