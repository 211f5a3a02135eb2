#pragma once

#include <cstdint>
#include <string>

#include "ipfwsim/NameService.h"

namespace ipfwsim {

// inet_aton(3): every numeric IPv4 form, a single 32-bit number included. Host order.
bool parseInetAton(const std::string& text, uint32_t& address);
// The address first as a number, then through the name service, as the command's
// host lookup does.
bool lookupHost(const NameService& names, const std::string& text, uint32_t& address);
std::string dottedQuad(uint32_t address);
// Leading one bits of a contiguous mask, or -1 when the mask has holes.
int contiguousMaskLength(uint32_t mask);
uint32_t maskOfLength(int bits);

}  // namespace ipfwsim
