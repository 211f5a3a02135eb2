#include "VelaFwMsgConvert.h"

namespace qor {
namespace vela {

namespace {

// TcpFlags, TcpOption, IpOption and IpTosOpt share one shape: an enumerated "value" and
// an "exclude" flag.
template <typename Option, typename Enum>
bool readOption(CFDictionaryRef dict, Option& option, bool (*isValid)(int)) {
    if (dict == nullptr) {
        return false;
    }
    readEnumField(dict, "value", isValid,
                  [&](int value) { option.set_value(static_cast<Enum>(value)); });
    readField<bool>(dict, "exclude", [&](bool value) { option.set_exclude(value); });
    return option.IsInitialized();
}

template <typename Option>
bool writeOption(const Option& option, CFMutableDictionaryRef dict) {
    return beginWrite(option, dict) &&
           writeField(dict, "value", option.has_value(), static_cast<int>(option.value())) &&
           writeField(dict, "exclude", option.has_exclude(), option.exclude());
}

}  // namespace

// ---- Readers -------------------------------------------------------------------------

bool convert(CFDictionaryRef dict, FwRule& rule) {
    if (dict == nullptr) {
        return false;
    }
    readField<unsigned int>(dict, "rule_index", [&](unsigned int v) { rule.set_rule_index(v); });
    readField<std::string>(dict, "description",
                           [&](const std::string& v) { rule.set_description(v); });
    readField<double>(dict, "probability", [&](double v) { rule.set_probability(v); });
    readEnumField(dict, "action", ActionEnum_IsValid,
                  [&](int v) { rule.set_action(static_cast<ActionEnum>(v)); });
    readField<int>(dict, "unreach_code", [&](int v) { rule.set_unreach_code(v); });
    readNestedField(dict, "protocol", [&] { return rule.mutable_protocol(); });
    readNestedField(dict, "src_ip", [&] { return rule.mutable_src_ip(); });
    readNestedField(dict, "dst_ip", [&] { return rule.mutable_dst_ip(); });
    readNestedField(dict, "src_port", [&] { return rule.mutable_src_port(); });
    readNestedField(dict, "dst_port", [&] { return rule.mutable_dst_port(); });
    readRepeatedField(dict, "icmp_type", *rule.mutable_icmp_type());
    readRepeatedField(dict, "tcp_flags", *rule.mutable_tcp_flags());
    readRepeatedField(dict, "tcp_opts", *rule.mutable_tcp_opts());
    readRepeatedField(dict, "ip_opts", *rule.mutable_ip_opts());
    readRepeatedField(dict, "ip_tos", *rule.mutable_ip_tos());
    readEnumField(dict, "direction", DirectEnum_IsValid,
                  [&](int v) { rule.set_direction(static_cast<DirectEnum>(v)); });
    readNestedField(dict, "via_interface", [&] { return rule.mutable_via_interface(); });
    readNestedField(dict, "mac_addr", [&] { return rule.mutable_mac_addr(); });
    readField<bool>(dict, "keep_state", [&](bool v) { rule.set_keep_state(v); });
    return rule.IsInitialized();
}

bool convert(CFDictionaryRef dict, FwProtocol& protocol) {
    if (dict == nullptr) {
        return false;
    }
    readEnumField(dict, "type", ProtoEnum_IsValid,
                  [&](int v) { protocol.set_type(static_cast<ProtoEnum>(v)); });
    readEnumField(dict, "protocol", ProtoValueEnum_IsValid,
                  [&](int v) { protocol.set_protocol(static_cast<ProtoValueEnum>(v)); });
    readField<bool>(dict, "exclude", [&](bool v) { protocol.set_exclude(v); });
    return protocol.IsInitialized();
}

bool convert(CFDictionaryRef dict, FwIp& ip) {
    if (dict == nullptr) {
        return false;
    }
    readEnumField(dict, "ip_type", IpEnum_IsValid,
                  [&](int v) { ip.set_ip_type(static_cast<IpEnum>(v)); });
    readRepeatedField(dict, "ips", *ip.mutable_ips());
    return ip.IsInitialized();
}

bool convert(CFDictionaryRef dict, IpAddr& addr) {
    if (dict == nullptr) {
        return false;
    }
    readField<bool>(dict, "use_host_name", [&](bool v) { addr.set_use_host_name(v); });
    readField<unsigned int>(dict, "ip", [&](unsigned int v) { addr.set_ip(v); });
    readField<unsigned int>(dict, "mask_len", [&](unsigned int v) { addr.set_mask_len(v); });
    readField<std::string>(dict, "host", [&](const std::string& v) { addr.set_host(v); });
    return addr.IsInitialized();
}

bool convert(CFDictionaryRef dict, FwPort& port) {
    if (dict == nullptr) {
        return false;
    }
    readEnumField(dict, "port_type", PortEnum_IsValid,
                  [&](int v) { port.set_port_type(static_cast<PortEnum>(v)); });
    readRepeatedField(dict, "ports", *port.mutable_ports());
    return port.IsInitialized();
}

bool convert(CFDictionaryRef dict, Port& port) {
    if (dict == nullptr) {
        return false;
    }
    readField<bool>(dict, "use_range", [&](bool v) { port.set_use_range(v); });
    readField<unsigned int>(dict, "port", [&](unsigned int v) { port.set_port(v); });
    readNestedField(dict, "port_range", [&] { return port.mutable_port_range(); });
    return port.IsInitialized();
}

bool convert(CFDictionaryRef dict, PortRange& range) {
    if (dict == nullptr) {
        return false;
    }
    readField<unsigned int>(dict, "from", [&](unsigned int v) { range.set_from(v); });
    readField<unsigned int>(dict, "to", [&](unsigned int v) { range.set_to(v); });
    return range.IsInitialized();
}

bool convert(CFDictionaryRef dict, TcpFlags& flags) {
    return readOption<TcpFlags, TcpFlagEnum>(dict, flags, TcpFlagEnum_IsValid);
}

bool convert(CFDictionaryRef dict, TcpOption& option) {
    return readOption<TcpOption, TcpOptionEnum>(dict, option, TcpOptionEnum_IsValid);
}

bool convert(CFDictionaryRef dict, IpOption& option) {
    return readOption<IpOption, IpOptionEnum>(dict, option, IpOptionEnum_IsValid);
}

bool convert(CFDictionaryRef dict, IpTosOpt& tos) {
    return readOption<IpTosOpt, IpTosOptEnum>(dict, tos, IpTosOptEnum_IsValid);
}

bool convert(CFDictionaryRef dict, FwIfSpec& iface) {
    if (dict == nullptr) {
        return false;
    }
    readEnumField(dict, "type", FwIfTypeEnum_IsValid,
                  [&](int v) { iface.set_type(static_cast<FwIfTypeEnum>(v)); });
    readField<unsigned int>(dict, "ip", [&](unsigned int v) { iface.set_ip(v); });
    readField<std::string>(dict, "device", [&](const std::string& v) { iface.set_device(v); });
    return iface.IsInitialized();
}

bool convert(CFDictionaryRef dict, FwMac& mac) {
    if (dict == nullptr) {
        return false;
    }
    readNestedField(dict, "src_mac", [&] { return mac.mutable_src_mac(); });
    readNestedField(dict, "dst_mac", [&] { return mac.mutable_dst_mac(); });
    return mac.IsInitialized();
}

bool convert(CFDictionaryRef dict, MacAddr& addr) {
    if (dict == nullptr) {
        return false;
    }
    readEnumField(dict, "type", MacEnum_IsValid,
                  [&](int v) { addr.set_type(static_cast<MacEnum>(v)); });
    readField<std::string>(dict, "mac", [&](const std::string& v) { addr.set_mac(v); });
    readField<unsigned int>(dict, "mask_len", [&](unsigned int v) { addr.set_mask_len(v); });
    return addr.IsInitialized();
}

bool convert(CFDictionaryRef dict, FwRuleList& list) {
    if (dict == nullptr) {
        return false;
    }
    readRepeatedField(dict, "rules", *list.mutable_rules());
    return list.IsInitialized();
}

// ---- Writers -------------------------------------------------------------------------

bool convert(const FwRule& rule, CFMutableDictionaryRef dict) {
    return beginWrite(rule, dict) &&
           writeField(dict, "rule_index", rule.has_rule_index(), rule.rule_index()) &&
           writeField(dict, "description", rule.has_description(), rule.description()) &&
           writeField(dict, "probability", rule.has_probability(), rule.probability()) &&
           writeField(dict, "action", rule.has_action(), static_cast<int>(rule.action())) &&
           writeField(dict, "unreach_code", rule.has_unreach_code(), rule.unreach_code()) &&
           writeNestedField(dict, "protocol", rule.has_protocol(), rule.protocol()) &&
           writeNestedField(dict, "src_ip", rule.has_src_ip(), rule.src_ip()) &&
           writeNestedField(dict, "dst_ip", rule.has_dst_ip(), rule.dst_ip()) &&
           writeNestedField(dict, "src_port", rule.has_src_port(), rule.src_port()) &&
           writeNestedField(dict, "dst_port", rule.has_dst_port(), rule.dst_port()) &&
           writeRepeatedField(dict, "icmp_type", rule.icmp_type()) &&
           writeRepeatedField(dict, "tcp_flags", rule.tcp_flags()) &&
           writeRepeatedField(dict, "tcp_opts", rule.tcp_opts()) &&
           writeRepeatedField(dict, "ip_opts", rule.ip_opts()) &&
           writeRepeatedField(dict, "ip_tos", rule.ip_tos()) &&
           writeField(dict, "direction", rule.has_direction(),
                      static_cast<int>(rule.direction())) &&
           writeNestedField(dict, "via_interface", rule.has_via_interface(),
                            rule.via_interface()) &&
           writeNestedField(dict, "mac_addr", rule.has_mac_addr(), rule.mac_addr()) &&
           writeField(dict, "keep_state", rule.has_keep_state(), rule.keep_state());
}

bool convert(const FwProtocol& protocol, CFMutableDictionaryRef dict) {
    return beginWrite(protocol, dict) &&
           writeField(dict, "type", protocol.has_type(), static_cast<int>(protocol.type())) &&
           writeField(dict, "protocol", protocol.has_protocol(),
                      static_cast<int>(protocol.protocol())) &&
           writeField(dict, "exclude", protocol.has_exclude(), protocol.exclude());
}

bool convert(const FwIp& ip, CFMutableDictionaryRef dict) {
    return beginWrite(ip, dict) &&
           writeField(dict, "ip_type", ip.has_ip_type(), static_cast<int>(ip.ip_type())) &&
           writeRepeatedField(dict, "ips", ip.ips());
}

bool convert(const IpAddr& addr, CFMutableDictionaryRef dict) {
    return beginWrite(addr, dict) &&
           writeField(dict, "use_host_name", addr.has_use_host_name(), addr.use_host_name()) &&
           writeField(dict, "ip", addr.has_ip(), addr.ip()) &&
           writeField(dict, "mask_len", addr.has_mask_len(), addr.mask_len()) &&
           writeField(dict, "host", addr.has_host(), addr.host());
}

bool convert(const FwPort& port, CFMutableDictionaryRef dict) {
    return beginWrite(port, dict) &&
           writeField(dict, "port_type", port.has_port_type(),
                      static_cast<int>(port.port_type())) &&
           writeRepeatedField(dict, "ports", port.ports());
}

bool convert(const Port& port, CFMutableDictionaryRef dict) {
    return beginWrite(port, dict) &&
           writeField(dict, "use_range", port.has_use_range(), port.use_range()) &&
           writeField(dict, "port", port.has_port(), port.port()) &&
           writeNestedField(dict, "port_range", port.has_port_range(), port.port_range());
}

bool convert(const PortRange& range, CFMutableDictionaryRef dict) {
    return beginWrite(range, dict) && writeField(dict, "from", range.has_from(), range.from()) &&
           writeField(dict, "to", range.has_to(), range.to());
}

bool convert(const TcpFlags& flags, CFMutableDictionaryRef dict) {
    return writeOption(flags, dict);
}

bool convert(const TcpOption& option, CFMutableDictionaryRef dict) {
    return writeOption(option, dict);
}

bool convert(const IpOption& option, CFMutableDictionaryRef dict) {
    return writeOption(option, dict);
}

bool convert(const IpTosOpt& tos, CFMutableDictionaryRef dict) {
    return writeOption(tos, dict);
}

bool convert(const FwIfSpec& iface, CFMutableDictionaryRef dict) {
    return beginWrite(iface, dict) &&
           writeField(dict, "type", iface.has_type(), static_cast<int>(iface.type())) &&
           writeField(dict, "ip", iface.has_ip(), iface.ip()) &&
           writeField(dict, "device", iface.has_device(), iface.device());
}

bool convert(const FwMac& mac, CFMutableDictionaryRef dict) {
    return beginWrite(mac, dict) &&
           writeNestedField(dict, "src_mac", mac.has_src_mac(), mac.src_mac()) &&
           writeNestedField(dict, "dst_mac", mac.has_dst_mac(), mac.dst_mac());
}

bool convert(const MacAddr& addr, CFMutableDictionaryRef dict) {
    return beginWrite(addr, dict) &&
           writeField(dict, "type", addr.has_type(), static_cast<int>(addr.type())) &&
           writeField(dict, "mac", addr.has_mac(), addr.mac()) &&
           writeField(dict, "mask_len", addr.has_mask_len(), addr.mask_len());
}

bool convert(const FwRuleList& list, CFMutableDictionaryRef dict) {
    return beginWrite(list, dict) && writeRepeatedField(dict, "rules", list.rules());
}

}  // namespace vela
}  // namespace qor
