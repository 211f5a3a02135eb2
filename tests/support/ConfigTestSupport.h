// Shared by the store, conversion and firewall-configuration tests: a rule that sets
// every field (with values above 2^31 and a double that is not exact in decimal), the
// same document as a Python literal, and a runner for /usr/bin/python3's plistlib as an
// independent reader and writer of property lists.
#pragma once

#include <stdio.h>

#include <string>

#include "CommandOutput.h"
#include "TempDir.h"
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

inline qor::vela::FwOptions fullOptions() {
    qor::vela::FwOptions options;
    options.set_enable_fw(false);
    options.set_enable_notify(true);
    options.set_default_set_num(7);
    options.set_exception_set_num(30);
    options.set_fw_log_path("/tmp/qv/ipfw.log");
    options.set_syslog_conf("/tmp/qv/syslog.conf");
    return options;
}

// The document holding fullOptions(), fullRule(4000000000) as the only normal rule and no
// exception rules, as the store writes it: unsigned values above 2^31 appear as their
// signed 32-bit twins. Defines `expected` and `same` (type-strict equality, so that a
// boolean is never taken for the integer 1).
inline std::string pythonExpectedDocument() {
    return R"PY(
rule = {
    "rule_index": 4000000000 - 2**32, "description": "allow ssh \u00e9t\u00e9 & <more>",
    "probability": 0.1, "action": 5, "unreach_code": -3,
    "protocol": {"type": 2, "protocol": 17, "exclude": True},
    "src_ip": {"ip_type": 3, "ips": [
        {"use_host_name": False, "ip": 3232235777 - 2**32, "mask_len": 24},
        {"use_host_name": True, "host": "example.org"}]},
    "dst_ip": {"ip_type": 1},
    "src_port": {"port_type": 2, "ports": [
        {"use_range": False, "port": 22},
        {"use_range": True, "port_range": {"from": 1000, "to": 2000}}]},
    "dst_port": {"port_type": 1},
    "icmp_type": [8, 0],
    "tcp_flags": [{"value": 1, "exclude": False}, {"value": 3, "exclude": True}],
    "tcp_opts": [{"value": 2}],
    "ip_opts": [{"value": 3, "exclude": True}],
    "ip_tos": [{"value": 5}],
    "direction": 2,
    "via_interface": {"type": 2, "ip": -1, "device": "en0"},
    "mac_addr": {"src_mac": {"type": 2, "mac": "00:11:22:33:44:55", "mask_len": 48},
                 "dst_mac": {"type": 1}},
    "keep_state": True,
}
expected = {
    "FwOptions": {"enable_fw": False, "enable_notify": True, "default_set_num": 7,
                  "exception_set_num": 30, "fw_log_path": "/tmp/qv/ipfw.log",
                  "syslog_conf": "/tmp/qv/syslog.conf"},
    "FwRuleCfg": {"rules": [rule]},
    "FwExceptionRuleCfg": {},
}
def same(a, b):
    if type(a) is not type(b):
        return False
    if isinstance(a, dict):
        return a.keys() == b.keys() and all(same(a[k], b[k]) for k in a)
    if isinstance(a, list):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    return a == b
)PY";
}

// Runs `script` with /usr/bin/python3 (argv[1] = `argument`) and returns what it printed.
inline std::string runPython(const TempDir& dir, const std::string& script,
                             const std::string& argument) {
    const std::string scriptPath = dir.file("check.py");
    writeFile(scriptPath, "import plistlib, sys\n" + script);
    return commandOutput("/usr/bin/python3 " + scriptPath + " '" + argument + "' 2>&1");
}

}  // namespace qvtest
