// Property-list form of the firewall rule messages.
//
// Readers: every key is tried on its own; a missing key or a value of the wrong kind
// leaves its field unset, an out-of-set enumeration value is skipped, and the result is
// the message's IsInitialized(). Writers: false for a null target or an incomplete
// message; otherwise the target is emptied and one key is added per field that is set.
// A rule list is the dictionary {"rules": [rule, ...]}, with "rules" left out when empty.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include "QvPlistMessageConvert.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

// Every message of the rule schema is stored as a dictionary.
template <>
struct TypeInfo<FwRule> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<FwRuleInfo> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<FwProtocol> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<FwIp> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<IpAddr> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<FwPort> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<Port> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<PortRange> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<TcpFlags> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<TcpOption> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<IpOption> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<IpTosOpt> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<FwIfSpec> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<FwMac> : CFDictionaryTypeInfo {};
template <>
struct TypeInfo<MacAddr> : CFDictionaryTypeInfo {};

bool convert(CFDictionaryRef dict, FwRule& rule);
bool convert(CFDictionaryRef dict, FwProtocol& protocol);
bool convert(CFDictionaryRef dict, FwIp& ip);
bool convert(CFDictionaryRef dict, IpAddr& addr);
bool convert(CFDictionaryRef dict, FwPort& port);
bool convert(CFDictionaryRef dict, Port& port);
bool convert(CFDictionaryRef dict, PortRange& range);
bool convert(CFDictionaryRef dict, TcpFlags& flags);
bool convert(CFDictionaryRef dict, TcpOption& option);
bool convert(CFDictionaryRef dict, IpOption& option);
bool convert(CFDictionaryRef dict, IpTosOpt& tos);
bool convert(CFDictionaryRef dict, FwIfSpec& iface);
bool convert(CFDictionaryRef dict, FwMac& mac);
bool convert(CFDictionaryRef dict, MacAddr& addr);
// "rules" present: the list is replaced by its elements (emptied when one is bad);
// "rules" absent: the list is left as it was. Returns the list's IsInitialized().
bool convert(CFDictionaryRef dict, FwRuleList& list);

bool convert(const FwRule& rule, CFMutableDictionaryRef dict);
bool convert(const FwProtocol& protocol, CFMutableDictionaryRef dict);
bool convert(const FwIp& ip, CFMutableDictionaryRef dict);
bool convert(const IpAddr& addr, CFMutableDictionaryRef dict);
bool convert(const FwPort& port, CFMutableDictionaryRef dict);
bool convert(const Port& port, CFMutableDictionaryRef dict);
bool convert(const PortRange& range, CFMutableDictionaryRef dict);
bool convert(const TcpFlags& flags, CFMutableDictionaryRef dict);
bool convert(const TcpOption& option, CFMutableDictionaryRef dict);
bool convert(const IpOption& option, CFMutableDictionaryRef dict);
bool convert(const IpTosOpt& tos, CFMutableDictionaryRef dict);
bool convert(const FwIfSpec& iface, CFMutableDictionaryRef dict);
bool convert(const FwMac& mac, CFMutableDictionaryRef dict);
bool convert(const MacAddr& addr, CFMutableDictionaryRef dict);
bool convert(const FwRuleList& list, CFMutableDictionaryRef dict);

}  // namespace vela
}  // namespace qor
