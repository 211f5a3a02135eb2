#include "ControlClient.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "PeerUid.h"
#include "QvCloseOnExec.h"
#include "QvControl.h"
#include "QvControlErrors.h"
#include "QvFrame.h"

namespace qvctl {

namespace {

// Handlers run ipfw once per rule; a long rule list takes its time.
constexpr int kReplyTimeoutMs = 120 * 1000;

std::string HowToStart() {
    return "start it with scripts/run (from the source tree) or systemctl start qvfwd, or "
           "point --control (or $QV_CONTROL_SOCKET) at its socket";
}

}  // namespace

ControlClient::~ControlClient() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

bool ControlClient::Connect() {
    if (m_fd >= 0) {
        return true;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_path.size() >= sizeof address.sun_path) {
        m_error = "control socket path too long: " + m_path;
        return false;
    }
    memcpy(address.sun_path, m_path.c_str(), m_path.size() + 1);
    m_fd = QvUnixStreamSocket();
    if (m_fd >= 0 && connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        return ListenerTrusted();
    }
    int reason = errno;
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
    m_unreachable = true;
    if (reason == EACCES || reason == EPERM) {
        m_error = "permission denied on " + m_path + ": only root or qvfwd's own user may use it";
    } else {
        m_error = "qvfwd is not running (nothing answers on " + m_path + ": " + strerror(reason) +
                  "); " + HowToStart();
    }
    return false;
}

// Rules and their answers are for qvfwd alone: a socket that some other user serves (one
// put in qvfwd's place) gets no request.
bool ControlClient::ListenerTrusted() {
    uid_t listener = 0;
    const bool known = PeerUid(m_fd, &listener);
    if (known && (listener == 0 || listener == geteuid())) {
        return true;
    }
    close(m_fd);
    m_fd = -1;
    m_error = known ? "refusing to talk to " + m_path + ": it is served by uid " +
                          std::to_string(listener) + ", neither root nor you (uid " +
                          std::to_string(geteuid()) + "), so it is not a qvfwd to trust"
                    : "refusing to talk to " + m_path + ": the system does not say who serves it";
    return false;
}

bool ControlClient::Call(uint32_t command, const std::string& request, int32_t* code,
                         std::string* reply) {
    if (!Connect()) {
        return false;
    }
    FrameChannel channel(m_fd, -1, kReplyTimeoutMs);
    Frame frame;
    // A refused peer gets its answer before it asks; the write may then fail, the read not.
    bool sent = channel.Write(command, request);
    FrameStatus status = channel.Read(&frame);
    if (status != FrameStatus::kOk) {
        m_error = sent ? "qvfwd broke off the exchange" : "qvfwd closed the connection";
        return false;
    }
    *code = static_cast<int32_t>(frame.head);
    *reply = std::move(frame.payload);
    return true;
}

bool ControlClient::OpenStream(uint32_t backlog, uint32_t flags, uint32_t* backlogCount) {
    std::string request(8, '\0');
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&request[0]);
    ipc::StoreLittleEndian32(backlog, bytes);
    ipc::StoreLittleEndian32(flags, bytes + 4);
    int32_t code = 0;
    std::string header;
    if (!Call(kStreamEvents, request, &code, &header)) {
        return false;
    }
    if (code != 0 || header.size() < 4) {
        m_error = "qvfwd refused the event stream: " + DescribeCode(code);
        return false;
    }
    *backlogCount = ipc::LoadLittleEndian32(reinterpret_cast<const uint8_t*>(header.data()));
    return true;
}

FrameStatus ControlClient::NextFrame(Frame* frame) {
    return FrameChannel(m_fd).Read(frame);
}

}  // namespace qvctl
