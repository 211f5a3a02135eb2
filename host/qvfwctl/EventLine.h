// One firewall event as a line for a person: local time, rule number, packet text. (For
// scripts, the daemon writes the JSON records itself.)
#pragma once

#include <stdint.h>

#include <string>

#include "VelaEventLogMsg.pb.h"

namespace qvctl {

// The packet text of a record's detail: without the rule number it begins with, and
// without the newline and NUL the watcher leaves at its end.
std::string PacketText(const std::string& detail);

// "2024-05-01 12:00:00  3100  Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0", with
// " (callback)" after the time when `showOrigin` and the event came that way.
std::string FormatEventLine(const qor::vela::EventLogItemFw& event, int32_t origin,
                            bool showOrigin);

}  // namespace qvctl
