// The control socket of qvfwd, shared by the daemon and qvfwctl.
//
// Frames are those of ipc::call (QvFrame.h). A connection may carry any number of
// requests, one after the other. A command number of the plug-in's table (QvFirewall.h)
// goes to its handler and the reply carries the
// handler's code and response; any other number that is not listed below goes to the
// plug-in's default handler. A frame longer than ipc::kMaxPayload, or one that stops
// short, closes the connection.
#pragma once

#include <stdint.h>

namespace qvctl {

// Where qvfwd listens unless --control (or $QV_CONTROL_SOCKET for qvfwctl) says otherwise.
constexpr const char* kDefaultControlSocket = "/var/run/Quorvane/qvfw.sock";
constexpr const char* kControlSocketEnv = "QV_CONTROL_SOCKET";

// Commands the daemon answers itself; the plug-in never sees them. They sit far above
// the plug-in's numbers (258, 0x8000..0x8013) and the host service's (65567).
enum Command : uint32_t {
    // Request: empty. Reply: the daemon's status as "key=value" lines (QvControlStatus.h).
    kStatus = 0x51000001,
    // Request: u32 backlog, u32 flags. Reply: a header frame (code 0, payload u32 count of
    // kept events that follow), then one frame per event: code = EventOrigin, payload =
    // a serialized qor.vela.EventLogItemFw. The last `backlog` kept events come first;
    // with kFollow, live events follow until the client hangs up, otherwise an end frame
    // (code kEndOfStream, empty) closes the stream.
    kStreamEvents = 0x51000002,
    // Request: a serialized qor.vela.FwRule. Reply: code 0 and the rule's ipfw body
    // text, or the generator's code (FW_ERR_MAC, FW_ERR_ACTION, FW_ERR_UNSAFE_TEXT) and nothing.
    kRuleText = 0x51000003,
    // Request: a serialized qor.vela.FwRule. Reply payload: the ipfw body text, a newline,
    // then what `ipfw -n add` said when it refused; code 0 when ipfw accepts the rule,
    // FW_ERR_RULE_REFUSED when it refuses, QV_ERR_CMD when ipfw cannot be run, or the generator's
    // code.
    kCheckRule = 0x51000004,
    // Request: empty. Reply: code 0 and what "ipfw -S show" printed (rule number, packets,
    // bytes, set, rule per line), or QV_ERR_CMD when ipfw cannot be run.
    kRuleCounters = 0x51000005,
    // Request: empty. Reply: code 0 and the daemon's metrics in Prometheus's text format.
    kMetrics = 0x51000006,
    // Request: u32 command (QV_CMD_ADD_RULE, QV_CMD_ADD_EXCP_RULE or QV_CMD_ADD_RULE_LIST),
    // u32 seconds, then that command's request. The plug-in's reply; every rule it added
    // is deleted again by the daemon once the seconds have passed.
    kAddExpiring = 0x51000007,
    // Request: u32 ApplyFlags, u32 seconds to confirm (0: no confirmation), then a
    // serialized qor.vela.FwRuleInfoList that replaces the normal or the exception list.
    // Reply: the plug-in's code and UIntPairArray. With seconds, the list as it was comes
    // back unless kConfirm arrives in time (a restart of the daemon included).
    kApply = 0x51000008,
    // Request: empty. Reply: 0 when a change waited for confirmation and now stays,
    // kNothingToConfirm otherwise.
    kConfirm = 0x51000009,
    // Request: empty. Reply: code 0, one line per rule that expires: "SET NUMBER SECONDS"
    // (SET "normal" or "exception", SECONDS since the epoch), then for a change waiting
    // for confirmation "rollback SET SECONDS".
    kDeadlines = 0x5100000a,
};

enum StreamFlags : uint32_t {
    kFollow = 1u,
    // The events file's JSON records (code kRecord, payload one JSON object) instead of
    // the plug-in's serialized events.
    kJsonRecords = 2u,
};

enum ApplyFlags : uint32_t {
    kApplyExceptions = 1u,
};

// How an event reached the daemon.
enum EventOrigin : int32_t {
    kFromHostService = 1,  // the plug-in's inter-process call 65567 (every event)
    kFromCallback = 2,     // the notification callback (only while notify is on)
    kEndOfStream = 3,
    kRecord = 4,  // a JSON record of the events file (kJsonRecords)
};

// The daemon's answer to a connection it refuses (peer of another user).
constexpr int32_t kPeerRefused = 13;  // EACCES
// The daemon's answer to a connection over its limit of clients (--max-clients) or one it
// could not make a thread for, sent before it closes the connection; the payload says
// which in words.
constexpr int32_t kDaemonBusy = 16;  // EBUSY
// A request of the daemon's own that does not hold what its command needs.
constexpr int32_t kBadRequest = 22;  // EINVAL
// kConfirm when no change waits for confirmation.
constexpr int32_t kNothingToConfirm = 61;  // ENODATA
// A change that could not be kept: the state directory could not be written.
constexpr int32_t kStateNotSaved = 5;  // EIO

}  // namespace qvctl
