#include "ServiceSession.h"

#include "FrameChannel.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "QvFrame.h"
#include "StalledFrame.h"

namespace qvfwd {

namespace {

constexpr int32_t kUnknownCommand = QV_ERR_INVALID_ARG;

}  // namespace

void ServiceSession::operator()(int fd) const {
    qvctl::FrameChannel channel(fd, m_stop.fd(), -1, ipc::kMaxPayload, m_frameTimeoutMs);
    qvctl::Frame request;
    qvctl::FrameStatus status;
    while ((status = channel.Read(&request)) == qvctl::FrameStatus::kOk) {
        int32_t code = 0;
        if (request.head == QV_IPC_FW_EVENT) {
            m_journal.OnEvent(request.payload);
            m_events.Publish(qvctl::kFromHostService, std::move(request.payload));
        } else {
            code = kUnknownCommand;
        }
        if (!channel.Write(static_cast<uint32_t>(code), "", 0)) {
            return;
        }
    }
    if (status == qvctl::FrameStatus::kStalled) {
        m_log(StalledFrameLine("host service socket", fd, m_frameTimeoutMs));
    }
}

}  // namespace qvfwd
