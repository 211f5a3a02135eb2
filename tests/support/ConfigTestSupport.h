// Shared by the store and conversion tests: a rule that sets every field (with values
// above 2^31 and a double that is not exact in decimal).
#pragma once

#include <string>

#include "VelaFwInternalMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qvtest {

inline qor::vela::FwRule fullRule(unsigned int index) {
    using namespace qor::vela;
    FwRule rule;
    rule.set_rule_index(index);
    rule.set_description("allow ssh \xc3\xa9t\xc3\xa9 & <more>");  // non-ASCII on purpose
    rule.set_probability(0.1);
    rule.set_action(ACTION_UNREACH);
    rule.set_unreach_code(-3);
    rule.mutable_protocol()->set_type(PROTO_SPECIFIED);
    rule.mutable_protocol()->set_protocol(PROTO_VALUE_UDP);
    rule.mutable_protocol()->set_exclude(true);
    rule.mutable_src_ip()->set_ip_type(IP_LIST);
    IpAddr* addr = rule.mutable_src_ip()->add_ips();
    addr->set_use_host_name(false);
    addr->set_ip(3232235777u);  // 192.168.1.1
    addr->set_mask_len(24);
    addr = rule.mutable_src_ip()->add_ips();
    addr->set_use_host_name(true);
    addr->set_host("example.org");
    rule.mutable_dst_ip()->set_ip_type(IP_ME);
    rule.mutable_src_port()->set_port_type(PORT_LIST);
    Port* port = rule.mutable_src_port()->add_ports();
    port->set_use_range(false);
    port->set_port(22);
    port = rule.mutable_src_port()->add_ports();
    port->set_use_range(true);
    port->mutable_port_range()->set_from(1000);
    port->mutable_port_range()->set_to(2000);
    rule.mutable_dst_port()->set_port_type(PORT_ANY);
    rule.add_icmp_type(ICMP_TYPE_ECHO);
    rule.add_icmp_type(ICMP_TYPE_ECHO_REPLY);
    TcpFlags* flag = rule.add_tcp_flags();
    flag->set_value(TCP_FLAG_SYN);
    flag->set_exclude(false);
    rule.add_tcp_flags()->set_value(TCP_FLAG_ACK);
    rule.mutable_tcp_flags(1)->set_exclude(true);
    rule.add_tcp_opts()->set_value(TCP_OPTION_WINDOW);
    rule.add_ip_opts()->set_value(IP_OPTION_RR);
    rule.mutable_ip_opts(0)->set_exclude(true);
    rule.add_ip_tos()->set_value(IP_TOS_CONGESTION);
    rule.set_direction(DIRECT_OUT);
    rule.mutable_via_interface()->set_type(FW_IF_TYPE_2);
    rule.mutable_via_interface()->set_ip(4294967295u);
    rule.mutable_via_interface()->set_device("en0");
    MacAddr* mac = rule.mutable_mac_addr()->mutable_src_mac();
    mac->set_type(MAC_SPECIFIED);
    mac->set_mac("00:11:22:33:44:55");
    mac->set_mask_len(48);
    rule.mutable_mac_addr()->mutable_dst_mac()->set_type(MAC_ANY);
    rule.set_keep_state(true);
    return rule;
}

}  // namespace qvtest
