// Reads a qor.vela.FwRule into the generator's RuleFields. Header-only on purpose: the
// plug-in and qvfwd hold the lite classes of the schema and qvfwctl the full ones, with
// the same names, so each program reads its messages with its own classes through
// whichever VelaFwMsg.pb.h its include path holds, and the library stays free of both.
#pragma once

#include "RuleFields.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {
namespace fields {

inline RuleFields::Addresses ReadAddresses(bool present, const FwIp& ip) {
    RuleFields::Addresses addresses;
    addresses.present = present;
    if (ip.ip_type() == IP_ME) {
        addresses.kind = RuleFields::Addresses::Kind::kMe;
    } else if (ip.ip_type() == IP_ANY) {
        addresses.kind = RuleFields::Addresses::Kind::kAny;
    } else {
        addresses.kind = RuleFields::Addresses::Kind::kList;
    }
    for (const IpAddr& addr : ip.ips()) {
        RuleFields::Address entry;
        entry.useHostName = addr.use_host_name();
        entry.hasHost = addr.has_host();
        entry.host = addr.host();
        entry.hasIp = addr.has_ip();
        entry.ip = addr.ip();
        entry.hasMaskLen = addr.has_mask_len();
        entry.maskLen = addr.mask_len();
        addresses.entries.push_back(entry);
    }
    return addresses;
}

inline RuleFields::Ports ReadPorts(bool present, const FwPort& port) {
    RuleFields::Ports ports;
    ports.present = present;
    ports.any = port.port_type() == PORT_ANY;
    for (const Port& entry : port.ports()) {
        RuleFields::PortEntry read;
        read.useRange = entry.use_range();
        read.port = entry.port();
        read.from = entry.port_range().from();
        read.to = entry.port_range().to();
        ports.entries.push_back(read);
    }
    return ports;
}

template <typename Enum, typename List>
std::vector<RuleFields::Flag<Enum>> ReadFlags(const List& list) {
    std::vector<RuleFields::Flag<Enum>> flags;
    for (const auto& entry : list) {
        flags.push_back({entry.has_exclude() && entry.exclude(), static_cast<Enum>(entry.value())});
    }
    return flags;
}

inline RuleFields::Mac ReadMac(const MacAddr& mac) {
    RuleFields::Mac read;
    read.any = mac.has_type() && mac.type() == MAC_ANY;
    read.hasMac = mac.has_mac();
    read.mac = mac.mac();
    read.hasMaskLen = mac.has_mask_len();
    read.maskLen = mac.mask_len();
    return read;
}

inline RuleFields::Direction ReadDirection(const FwRule& rule) {
    if (!rule.has_direction()) {
        return RuleFields::Direction::kNone;
    }
    if (rule.direction() == DIRECT_IN) {
        return RuleFields::Direction::kIn;
    }
    return rule.direction() == DIRECT_OUT ? RuleFields::Direction::kOut
                                          : RuleFields::Direction::kNone;
}

inline void ReadProtocol(const FwRule& rule, RuleFields& fields) {
    fields.hasProtocol = rule.has_protocol();
    fields.allProtocols = rule.protocol().type() == PROTO_ALL;
    fields.excludeProtocol = rule.protocol().has_exclude() && rule.protocol().exclude();
    fields.protocol = rule.protocol().protocol();
}

inline void ReadInterface(const FwRule& rule, RuleFields& fields) {
    fields.hasViaInterface = rule.has_via_interface();
    fields.viaByName = rule.via_interface().type() == FW_IF_TYPE_NAME;
    fields.viaDevice = rule.via_interface().device();
    fields.viaIp = rule.via_interface().ip();
}

}  // namespace fields

inline RuleFields ReadRuleFields(const FwRule& rule) {
    RuleFields fields;
    fields.hasProbability = rule.has_probability();
    fields.probability = rule.probability();
    fields.action = rule.action();
    fields.unreachCode = rule.unreach_code();
    fields::ReadProtocol(rule, fields);
    fields.srcIp = fields::ReadAddresses(rule.has_src_ip(), rule.src_ip());
    fields.dstIp = fields::ReadAddresses(rule.has_dst_ip(), rule.dst_ip());
    fields.srcPort = fields::ReadPorts(rule.has_src_port(), rule.src_port());
    fields.dstPort = fields::ReadPorts(rule.has_dst_port(), rule.dst_port());
    for (int type : rule.icmp_type()) {
        fields.icmpTypes.push_back(type);
    }
    fields.tcpFlags = fields::ReadFlags<TcpFlagEnum>(rule.tcp_flags());
    fields.tcpOptions = fields::ReadFlags<TcpOptionEnum>(rule.tcp_opts());
    fields.ipOptions = fields::ReadFlags<IpOptionEnum>(rule.ip_opts());
    fields.ipTos = fields::ReadFlags<IpTosOptEnum>(rule.ip_tos());
    fields.hasMacAddr = rule.has_mac_addr();
    fields.dstMac = fields::ReadMac(rule.mac_addr().dst_mac());
    fields.srcMac = fields::ReadMac(rule.mac_addr().src_mac());
    fields.direction = fields::ReadDirection(rule);
    fields::ReadInterface(rule, fields);
    fields.keepState = rule.has_keep_state() && rule.keep_state();
    return fields;
}

}  // namespace vela
}  // namespace qor
