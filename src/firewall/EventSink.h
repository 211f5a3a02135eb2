// Where the event watcher hands each logged packet it read. The plug-in's sink reaches
// the host (HostEventSink.h); tests hand in one that records.
#pragma once

#include "VelaEventLogMsg.pb.h"

namespace qor {
namespace vela {

class EventSink {
public:
    virtual ~EventSink() = default;

    // Called on the watcher's thread, one event at a time, in the log's order. `notify`:
    // notification is on, so the host's notification callback hears of it too.
    virtual void Report(const EventLogItemFw& event, bool notify) = 0;
};

}  // namespace vela
}  // namespace qor
