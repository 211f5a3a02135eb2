// qvfwctl watch and events: the daemon's event stream, live or kept; with --json the
// daemon's JSON records, the same objects as in its events file.
#include "EventLine.h"
#include "QvControl.h"
#include "SubCommand.h"
#include "VelaEventLogMsg.pb.h"

namespace qvctl {

namespace {

constexpr uint32_t kAllKept = 1000;

// False when the frame does not hold an event.
bool PrintEvent(CtlContext& context, const Frame& frame) {
    int32_t origin = static_cast<int32_t>(frame.head);
    if (origin == kRecord) {
        fprintf(context.out, "%s\n", frame.payload.c_str());
        fflush(context.out);
        return true;
    }
    if (origin == kFromCallback && !context.arguments.all) {
        return true;  // every event also comes through the host service; show it once
    }
    qor::vela::EventLogItemFw event;
    if (!event.ParseFromString(frame.payload)) {
        return false;
    }
    fprintf(context.out, "%s\n", FormatEventLine(event, origin, context.arguments.all).c_str());
    fflush(context.out);
    return true;
}

int Stream(CtlContext& context, uint32_t backlog, bool follow) {
    if (!context.arguments.positional.empty()) {
        return Fail(context, kExitUsage, context.arguments.command + " takes no argument");
    }
    uint32_t kept = 0;
    const uint32_t flags = (follow ? kFollow : 0u) | (context.arguments.json ? kJsonRecords : 0u);
    if (!context.client.OpenStream(backlog, flags, &kept)) {
        return Fail(context, kExitUnreachable, context.client.error());
    }
    if (follow && !context.arguments.json) {
        fputs("watching firewall events (Ctrl-C to stop)\n", context.err);
    }
    Frame frame;
    FrameStatus status;
    while ((status = context.client.NextFrame(&frame)) == FrameStatus::kOk &&
           frame.head != static_cast<uint32_t>(kEndOfStream)) {
        if (!PrintEvent(context, frame)) {
            return Fail(context, kExitFailed, "cannot read an event that qvfwd sent");
        }
    }
    if (status != FrameStatus::kOk) {
        return Fail(context, kExitUnreachable, "qvfwd closed the event stream");
    }
    return kExitOk;
}

}  // namespace

int RunWatch(CtlContext& context) {
    long count = context.arguments.count;
    return Stream(context, count < 0 ? 0 : static_cast<uint32_t>(count), true);
}

int RunEvents(CtlContext& context) {
    long count = context.arguments.count;
    return Stream(context, count < 0 ? kAllKept : static_cast<uint32_t>(count), false);
}

}  // namespace qvctl
