// What could really go wrong in our schemas: numbers, labels, defaults, closed enums and
// the wire bytes other components rely on.
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

TEST(SchemaDefaults, FwRuleDefaultsAreAllowAndInWithoutPresence) {
    FwRule rule;
    EXPECT_EQ(ACTION_ALLOW, rule.action());
    EXPECT_EQ(DIRECT_IN, rule.direction());
    EXPECT_FALSE(rule.has_action());
    EXPECT_FALSE(rule.has_direction());
    EXPECT_TRUE(rule.IsInitialized());
    EXPECT_EQ(0u, rule.ByteSizeLong());
    EXPECT_EQ("", rule.SerializeAsString());
}

TEST(SchemaDefaults, ProtocolDefaultsToTcpAndTypeToAll) {
    FwProtocol proto = parse<FwProtocol>(bytes({0x08, 0x01}));
    EXPECT_EQ(PROTO_ALL, proto.type());
    EXPECT_EQ(PROTO_VALUE_TCP, proto.protocol());
    EXPECT_FALSE(proto.has_protocol());
    EXPECT_TRUE(proto.IsInitialized());
}

TEST(SchemaDefaults, PartsDefaultToTheirFirstDeclaredValue) {
    EXPECT_EQ(IP_ME, FwIp().ip_type());
    EXPECT_EQ(PORT_ANY, FwPort().port_type());
    EXPECT_EQ(MAC_ANY, MacAddr().type());
    EXPECT_EQ(FW_IF_TYPE_NAME, FwIfSpec().type());
    EXPECT_EQ(TCP_FLAG_SYN, TcpFlags().value());
    EXPECT_EQ(TCP_OPTION_MSS, TcpOption().value());
    EXPECT_EQ(IP_OPTION_SSRR, IpOption().value());
    EXPECT_EQ(IP_TOS_LOWDELAY, IpTosOpt().value());
}

TEST(SchemaDefaults, EmptyFwOptionsReadsTheExplicitDefaults) {
    FwOptions options = parse<FwOptions>("");
    EXPECT_TRUE(options.enable_fw());
    EXPECT_TRUE(options.enable_notify());
    EXPECT_EQ(19, options.default_set_num());
    EXPECT_EQ(18, options.exception_set_num());
    EXPECT_EQ("/var/log/Quorvane/QvrnCore/ipfw.log", options.fw_log_path());
    EXPECT_EQ("/etc/syslog.conf", options.syslog_conf());
    EXPECT_FALSE(options.has_enable_fw());
    EXPECT_FALSE(options.has_enable_notify());
    EXPECT_FALSE(options.has_default_set_num());
    EXPECT_FALSE(options.has_exception_set_num());
    EXPECT_FALSE(options.has_fw_log_path());
    EXPECT_FALSE(options.has_syslog_conf());
    EXPECT_EQ("", options.SerializeAsString());
}

TEST(SchemaEnums, ValidityChecksFollowTheDeclaredSets) {
    EXPECT_FALSE(ProtoValueEnum_IsValid(2));
    EXPECT_TRUE(ProtoValueEnum_IsValid(17));
    EXPECT_TRUE(ProtoValueEnum_IsValid(0));
    for (int type : {1, 2, 6, 7, 19}) {
        EXPECT_FALSE(IcmpTypeEnum_IsValid(type)) << type;
    }
    for (int type : {0, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}) {
        EXPECT_TRUE(IcmpTypeEnum_IsValid(type)) << type;
    }
    EXPECT_FALSE(ActionEnum_IsValid(0));
    EXPECT_FALSE(ActionEnum_IsValid(6));
    EXPECT_TRUE(DirectEnum_IsValid(3));
    EXPECT_FALSE(DirectEnum_IsValid(4));
    EXPECT_TRUE(IfSpecEnum_IsValid(3));
    EXPECT_TRUE(TABLE_INDEX_IsValid(10));
    EXPECT_FALSE(TABLE_INDEX_IsValid(11));
    EXPECT_TRUE(FW_TABLE_INDEX_IsValid(2));
    EXPECT_FALSE(FW_TABLE_INDEX_IsValid(3));
}

TEST(SchemaEnums, UnknownRepeatedEnumValueIsKeptAsUnknownAndReEmittedLast) {
    // icmp_type 8, icmp_type 2 (invalid), then rule_index 7 after them on the wire.
    FwRule rule = parse<FwRule>(bytes({0x58, 0x08, 0x58, 0x02, 0x08, 0x07}));
    ASSERT_EQ(1, rule.icmp_type_size());
    EXPECT_EQ(ICMP_TYPE_ECHO, rule.icmp_type(0));
    EXPECT_EQ(7u, rule.rule_index());
    // Known fields in number order, then the preserved unknown varint.
    EXPECT_EQ(bytes({0x08, 0x07, 0x58, 0x08, 0x58, 0x02}), rule.SerializeAsString());
}

TEST(SchemaEnums, PackedIcmpTypesAreAcceptedAndWrittenUnpacked) {
    // Field 11 packed: 8, 2 (invalid), 0.
    FwRule rule = parse<FwRule>(bytes({0x5a, 0x03, 0x08, 0x02, 0x00}));
    ASSERT_EQ(2, rule.icmp_type_size());
    EXPECT_EQ(ICMP_TYPE_ECHO, rule.icmp_type(0));
    EXPECT_EQ(ICMP_TYPE_ECHO_REPLY, rule.icmp_type(1));
    EXPECT_EQ(bytes({0x58, 0x08, 0x58, 0x00, 0x58, 0x02}), rule.SerializeAsString());
}

TEST(SchemaEnums, OutOfSetRequiredEnumLeavesThePartUninitialized) {
    FwProtocol proto = parse<FwProtocol>(bytes({0x08, 0x03}));
    EXPECT_FALSE(proto.has_type());
    EXPECT_FALSE(proto.IsInitialized());
    EXPECT_EQ(bytes({0x08, 0x03}), proto.SerializePartialAsString());
}

TEST(SchemaEnums, OutOfSetSingularEnumKeepsTheDefault) {
    FwRule rule = parse<FwRule>(bytes({0x20, 0x09}));  // action 9
    EXPECT_FALSE(rule.has_action());
    EXPECT_EQ(ACTION_ALLOW, rule.action());
    EXPECT_EQ(bytes({0x20, 0x09}), rule.SerializeAsString());
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

TEST(SchemaWire, NegativeRuleIndexInEventIsASignExtendedVarint) {
    EventLogItemFw item;
    item.set_rule_index(static_cast<int32_t>(3000000000u));
    EXPECT_EQ(11u, item.ByteSizeLong());  // tag + ten varint bytes
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

TEST(SchemaNames, TypeNamesCarryThePackage) {
    EXPECT_EQ("qor.vela.FwRule", FwRule().GetTypeName());
    EXPECT_EQ("qor.vela.GrouInfo", GrouInfo().GetTypeName());
    EXPECT_EQ("qor.vela.FwOptions", FwOptions().GetTypeName());
    EXPECT_EQ("qor.vela.UIntPairArray", UIntPairArray().GetTypeName());
    EXPECT_EQ("qor.vela.EventLogItemFwArray", EventLogItemFwArray().GetTypeName());
    EXPECT_EQ("qor.vela.NullObject", NullObject().GetTypeName());
}
