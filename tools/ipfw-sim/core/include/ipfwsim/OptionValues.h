#pragma once

#include <cstdint>
#include <string>

#include "ipfwsim/KeywordTables.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// The arguments of a rule's options that need no name service, as the real command reads
// them.

// "a,!b,c" from `table`: the set bits, and the cleared ones shifted left by eight. Stops
// quietly at the end; fails on an unknown name.
Status parseFlagList(const std::string& text, const KeywordList& table, uint32_t& bits);

// "8,0,3": a bitmap of ICMP types 0..31.
Status parseIcmpTypes(const std::string& text, uint32_t& bits);

// An interface name (cut to fifteen characters) or, starting with a digit, an address.
Status parseInterface(const std::string& text, InterfaceRef& iface);

// atoi(3) without its undefined overflow: saturates at the int range.
long long atoiSaturating(const std::string& text);

}  // namespace ipfwsim
