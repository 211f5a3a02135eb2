// Rule lists shaped like a workstation's: a deny rule with a description, a source
// network, a destination port and a direction, numbered as the normal set numbers them.
#pragma once

#include <string>

#include "VelaFwMsg.pb.h"

namespace qvbench {

constexpr unsigned int kFirstNormalRule = 3100;
constexpr unsigned int kRuleSpacing = 10;

inline qor::vela::FwRule benchRule(unsigned int index) {
    using namespace qor::vela;
    FwRule rule;
    rule.set_rule_index(index);
    rule.set_description("block inbound service " + std::to_string(index));
    rule.set_action(ACTION_DENY);
    rule.mutable_protocol()->set_type(PROTO_SPECIFIED);
    rule.mutable_protocol()->set_protocol(PROTO_VALUE_TCP);
    rule.mutable_src_ip()->set_ip_type(IP_LIST);
    IpAddr* address = rule.mutable_src_ip()->add_ips();
    address->set_use_host_name(false);
    address->set_ip(0x0a000000u + index);  // 10.0.x.y
    address->set_mask_len(32);
    rule.mutable_dst_ip()->set_ip_type(IP_ME);
    rule.mutable_dst_port()->set_port_type(PORT_LIST);
    Port* port = rule.mutable_dst_port()->add_ports();
    port->set_use_range(false);
    port->set_port(1024 + index % 60000);
    rule.set_direction(DIRECT_IN);
    return rule;
}

// `count` rules numbered from the normal set's first number, spaced by ten (or by
// `spacing`: 10,000 rules spaced by ten would run past ipfw's last number).
inline qor::vela::FwRuleList benchRules(int count, unsigned int spacing = kRuleSpacing) {
    qor::vela::FwRuleList list;
    for (int i = 0; i < count; ++i) {
        list.add_rules()->CopyFrom(benchRule(kFirstNormalRule + spacing * i));
    }
    return list;
}

}  // namespace qvbench
