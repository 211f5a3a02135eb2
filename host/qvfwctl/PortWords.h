// The number lists of a rule: ports after src-port and dst-port (any, or PORT and
// FROM-TO joined by commas) and ICMP types after icmptypes. False with what was
// expected in `expected`.
#pragma once

#include <string>

#include "VelaFwMsg.pb.h"

namespace qvctl {

bool ReadPortList(const std::string& word, qor::vela::FwPort* port, std::string* expected);
bool ReadIcmpTypes(const std::string& word, qor::vela::FwRule* rule, std::string* expected);

}  // namespace qvctl
