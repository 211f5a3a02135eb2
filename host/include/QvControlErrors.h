// What the codes of the plug-in and the daemon mean, in words a person reads. Shared by
// qvfwd (its start-up failure line) and qvfwctl (every failing command); the plug-in's
// meanings come from its own table (QvFirewall.h).
#pragma once

#include <stdint.h>

#include <string>

#include "QvControl.h"
#include "QvFirewall.h"

namespace qvctl {

inline const char* CodeMeaningOf(int32_t code) {
    if (code == kPeerRefused) {
        return "permission denied: only root or the daemon's own user may use qvfwd";
    }
    if (code == kDaemonBusy) {
        return "qvfwd is serving as many clients as it may; try again once some have finished";
    }
    if (code == kBadRequest) {
        return "qvfwd could not read the request";
    }
    if (code == kNothingToConfirm) {
        return "no change is waiting for confirmation";
    }
    if (code == kStateNotSaved) {
        return "qvfwd could not save its state directory; nothing was changed";
    }
    const char* meaning = QvFwCodeMeaning(code);
    return meaning != nullptr ? meaning : "unknown error";
}

// "error 20704: ipfw refused the rule"
inline std::string DescribeCode(int32_t code) {
    return "error " + std::to_string(code) + ": " + CodeMeaningOf(code);
}

}  // namespace qvctl
