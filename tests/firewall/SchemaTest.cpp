// What could really go wrong in our schemas: field numbers and required labels, closed
// enums, and the wire bytes other components rely on.
#include <gtest/gtest.h>

#include <string>

#include "VelaCommonMsg.pb.h"
#include "VelaEventLogMsg.pb.h"
#include "VelaFwInternalMsg.pb.h"
#include "VelaFwMsg.pb.h"

using namespace qor::vela;

namespace {

std::string bytes(std::initializer_list<unsigned char> list) {
    return std::string(list.begin(), list.end());
}

template <typename T>
T parse(const std::string& wire) {
    T msg;
    msg.ParsePartialFromString(wire);
    return msg;
}

}  // namespace

TEST(SchemaEnums, UnknownRepeatedEnumValueIsKeptAsUnknownAndReEmittedLast) {
    // icmp_type 8, icmp_type 2 (invalid), then rule_index 7 after them on the wire.
    FwRule rule = parse<FwRule>(bytes({0x58, 0x08, 0x58, 0x02, 0x08, 0x07}));
    ASSERT_EQ(1, rule.icmp_type_size());
    EXPECT_EQ(ICMP_TYPE_ECHO, rule.icmp_type(0));
    EXPECT_EQ(7u, rule.rule_index());
    // Known fields in number order, then the preserved unknown varint.
    EXPECT_EQ(bytes({0x08, 0x07, 0x58, 0x08, 0x58, 0x02}), rule.SerializeAsString());
}

TEST(SchemaRequired, MissingRequiredFieldOfAnyPartMakesTheRuleUninitialized) {
    FwRule rule;
    rule.mutable_protocol()->set_protocol(PROTO_VALUE_TCP);
    EXPECT_FALSE(rule.IsInitialized());
    rule.mutable_protocol()->set_type(PROTO_SPECIFIED);
    EXPECT_TRUE(rule.IsInitialized());

    rule.mutable_dst_ip()->set_ip_type(IP_LIST);
    rule.mutable_dst_ip()->add_ips()->set_ip(1);  // use_host_name missing
    EXPECT_FALSE(rule.IsInitialized());
    rule.mutable_dst_ip()->mutable_ips(0)->set_use_host_name(false);
    EXPECT_TRUE(rule.IsInitialized());

    rule.mutable_src_port()->set_port_type(PORT_LIST);
    rule.mutable_src_port()->add_ports()->set_port(80);  // use_range missing
    EXPECT_FALSE(rule.IsInitialized());
    rule.mutable_src_port()->mutable_ports(0)->set_use_range(false);
    EXPECT_TRUE(rule.IsInitialized());

    rule.mutable_mac_addr()->mutable_src_mac()->set_type(MAC_ANY);  // dst_mac missing
    EXPECT_FALSE(rule.IsInitialized());
    rule.mutable_mac_addr()->mutable_dst_mac()->set_type(MAC_ANY);
    EXPECT_TRUE(rule.IsInitialized());

    rule.mutable_via_interface()->set_device("en0");  // type missing
    EXPECT_FALSE(rule.IsInitialized());
    rule.mutable_via_interface()->set_type(FW_IF_TYPE_NAME);
    EXPECT_TRUE(rule.IsInitialized());

    rule.add_tcp_flags();  // option lists have no required fields
    EXPECT_TRUE(rule.IsInitialized());
}

TEST(SchemaRequired, RuleListsRequireEveryElementAndOrder) {
    FwRuleInfoList list;
    FwRuleInfo* info = list.add_rules();
    EXPECT_FALSE(list.IsInitialized());  // order missing
    info->set_order(1);
    EXPECT_TRUE(list.IsInitialized());
    info->mutable_rule()->mutable_protocol()->set_protocol(PROTO_VALUE_UDP);
    EXPECT_FALSE(list.IsInitialized());

    FwRuleList rules;
    rules.add_rules()->mutable_src_ip();
    EXPECT_FALSE(rules.IsInitialized());

    DebugOption debug;
    debug.set_debug_level(7);
    EXPECT_FALSE(debug.IsInitialized());
}

TEST(SchemaWire, FieldNumbersAndEncodingsMatchTheWireContract) {
    UIntArray values;
    values.add_values(1);
    values.add_values(2);
    EXPECT_EQ(bytes({0x08, 0x01, 0x08, 0x02}), values.SerializeAsString());

    EventLogItemFw item;
    item.set_time(0);
    item.set_rule_index(100);
    item.set_detail("x");
    EXPECT_EQ(bytes({0x10, 0x00, 0x18, 0x64, 0x22, 0x01, 0x78}), item.SerializeAsString());
    EXPECT_EQ("", EventLogItemFwArray().SerializeAsString());

    FwRule rule;
    rule.set_probability(0.5);  // double: tag 0x19 and eight little-endian bytes
    rule.set_keep_state(true);  // field 20: two-byte tag
    EXPECT_EQ(bytes({0x19, 0, 0, 0, 0, 0, 0, 0xe0, 0x3f, 0xa0, 0x01, 0x01}),
              rule.SerializeAsString());

    FwIfSpec iface;
    iface.set_type(FW_IF_TYPE_2);
    iface.set_ip(1);
    iface.set_device("e");
    EXPECT_EQ(bytes({0x08, 0x02, 0x20, 0x01, 0x2a, 0x01, 'e'}), iface.SerializeAsString());

    MacAddr mac;
    mac.set_mask_len(4);
    EXPECT_EQ(bytes({0x20, 0x04}), mac.SerializePartialAsString());

    FwPort port;
    port.add_ports()->set_use_range(true);
    EXPECT_EQ(bytes({0x1a, 0x02, 0x08, 0x01}), port.SerializePartialAsString());
}

TEST(SchemaWire, UnassignedNumbersSurviveAsUnknownFields) {
    // FwOptions field 3 (varint 5) after field 1.
    FwOptions options = parse<FwOptions>(bytes({0x18, 0x05, 0x08, 0x00}));
    EXPECT_FALSE(options.enable_fw());
    EXPECT_EQ(bytes({0x08, 0x00, 0x18, 0x05}), options.SerializeAsString());

    // FwRule field 19 (varint 1).
    FwRule rule = parse<FwRule>(bytes({0x98, 0x01, 0x01}));
    EXPECT_EQ(bytes({0x98, 0x01, 0x01}), rule.SerializeAsString());
}
