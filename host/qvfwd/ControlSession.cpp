#include "ControlSession.h"

#include <poll.h>
#include <sys/socket.h>

#include "QvControl.h"
#include "QvFrame.h"

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
};

void ControlSession::operator()(int fd) const {
    qvctl::FrameChannel channel(fd, m_services.stop.fd());
    qvctl::Frame request;
    while (channel.Read(&request) == qvctl::FrameStatus::kOk) {
        const Route* route = nullptr;
        for (const Route& candidate : kRoutes) {
            if (candidate.command == request.head) {
                route = &candidate;
            }
        }
        bool goOn = route != nullptr ? (this->*route->handler)(channel, fd, request.payload)
                                     : ToPlugin(channel, request.head, request.payload);
        if (!goOn) {
            return;
        }
    }
}

bool ControlSession::ToPlugin(qvctl::FrameChannel& channel, uint32_t command,
                              const std::string& request) const {
    std::string response;
    int32_t code = m_services.plugin.Call(command, request, &response);
    return channel.Write(static_cast<uint32_t>(code), response);
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
    return channel.Write(static_cast<uint32_t>(code), report);
}

bool ControlSession::RuleCounters(qvctl::FrameChannel& channel, int, const std::string&) const {
    std::string listing;
    int32_t code = m_services.counters.Show(&listing);
    return channel.Write(static_cast<uint32_t>(code), code == 0 ? listing : std::string());
}

bool ControlSession::StreamEvents(qvctl::FrameChannel& channel, int fd,
                                  const std::string& request) const {
    StreamRequest stream = ParseStreamRequest(request);
    uint64_t next = 0;
    std::vector<KeptEvent> recent = m_services.events.Recent(stream.backlog, &next);
    if (!channel.Write(0, EncodeCount(recent.size())) || !WriteEvents(channel, recent)) {
        return false;
    }
    if ((stream.flags & qvctl::kFollow) == 0) {
        channel.Write(static_cast<uint32_t>(qvctl::kEndOfStream), "", 0);
        return false;
    }
    return FollowEvents(channel, fd, next);
}

bool ControlSession::FollowEvents(qvctl::FrameChannel& channel, int fd, uint64_t next) const {
    Subscription subscription(m_services.events);
    while (!m_services.stop.raised() && !PeerHungUp(fd)) {
        std::vector<KeptEvent> events = m_services.events.WaitFrom(&next, kFollowPollMs);
        if (!WriteEvents(channel, events)) {
            break;
        }
    }
    return false;
}

}  // namespace qvfwd
