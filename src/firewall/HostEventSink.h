// The plug-in's event sink: the host's notification callback while notification is on,
// and the host service (QV_IPC_FW_EVENT) always.
#pragma once

#include <atomic>

#include "EventSink.h"
#include "QvPlugin.h"

namespace qor {
namespace vela {

class HostEventSink final : public EventSink {
public:
    // `callback` is the entry points' slot, which the host may set at any time, before
    // or after start-up; it is never null and outlives the sink.
    explicit HostEventSink(const std::atomic<QvNotifyCallback>& callback) : m_callback(callback) {}

    void Report(const EventLogItemFw& event, bool notify) override;

private:
    const std::atomic<QvNotifyCallback>& m_callback;
};

}  // namespace vela
}  // namespace qor
