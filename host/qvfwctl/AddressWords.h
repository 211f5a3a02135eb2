// The address words of a rule: the lists after src-ip and dst-ip (me, any, or addresses
// dotted or as the 32-bit number, with an optional mask, and host names), the interface
// after via, and the MAC addresses after mac. Each reader is false with what was expected
// in `expected`.
#pragma once

#include <stdint.h>

#include <string>

#include "VelaFwMsg.pb.h"

namespace qvctl {

// "10.1.2.3" or "167838211": an address, dotted or as the number the rule text writes.
bool ReadAddress(const std::string& text, uint32_t* address);
std::string DottedAddress(uint32_t address);

// Rule text with the addresses after src-ip, dst-ip and via dotted, for a person; the
// reader reads it back as it reads the text itself.
std::string WithDottedAddresses(const std::string& text);

bool ReadAddressList(const std::string& word, qor::vela::FwIp* ip, std::string* expected);
bool ReadInterface(const std::string& word, qor::vela::FwIfSpec* iface, std::string* expected);
bool ReadMacAddress(const std::string& word, qor::vela::MacAddr* mac, std::string* expected);

}  // namespace qvctl
