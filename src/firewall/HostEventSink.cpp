#include "HostEventSink.h"

#include <string>

#include "QvFirewall.h"
#include "QvIpcCall.h"
#include "VelaCommonMsg.pb.h"

namespace qor {
namespace vela {

void HostEventSink::Report(const EventLogItemFw& event, bool notify) {
    if (notify) {
        std::string data;
        event.SerializeToString(&data);
        m_callback.load()(QV_EVENT_FW_LOG, data.data(), static_cast<int>(data.size()));
    }
    NullObject reply;
    QvIpcCall(QV_IPC_FW_EVENT, event, reply);
}

}  // namespace vela
}  // namespace qor
