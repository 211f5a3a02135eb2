#pragma once

#include <cstdint>
#include <string>

#include "ipfwsim/Packet.h"
#include "ipfwsim/Rule.h"

namespace ipfwsim {

constexpr int kLogFacilitySecurity = 13;
constexpr int kLogPriorityNotice = 5;
constexpr int kLogPriorityInfo = 6;

// The word the kernel logs for what a rule did: "Accept", "Deny", "Reset", "Reject",
// "Unreach N", "Count", "SkipTo N".
std::string actionLogWord(const Action& action);
// "ipfw: 3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0"
std::string packetLogText(uint32_t ruleNumber, const std::string& actionWord, const Packet& packet);
// "ipfw: limit 5 reached on entry 3100"
std::string limitLogText(uint32_t amount, uint32_t ruleNumber);
// The line syslogd writes: "Nov 22 10:00:00 HOST kernel: TEXT\n" in local time.
std::string syslogFileLine(int64_t epochSeconds, const std::string& host, const std::string& text);

}  // namespace ipfwsim
