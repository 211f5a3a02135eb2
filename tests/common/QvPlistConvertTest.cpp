// Messages to property-list dictionaries and back: every field, the reading rules for
// bad keys and bad array elements, and the all-or-nothing writers.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "ConfigTestSupport.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;

namespace {

// Owns one CoreFoundation reference for the length of a test.
struct Release {
    void operator()(const void* ref) const { CFRelease(ref); }
};
template <typename Ref>
using Owned = std::unique_ptr<std::remove_pointer_t<Ref>, Release>;

using Dict = Owned<CFMutableDictionaryRef>;

void put(CFMutableDictionaryRef dict, const char* key, CFTypeRef value) {
    ASSERT_TRUE(addValue(dict, key, value));
}

void putInt(CFMutableDictionaryRef dict, const char* key, int value) {
    Owned<CFTypeRef> number(createValue(value));
    put(dict, key, number.get());
}

FwRule roundTrip(const FwRule& rule) {
    Dict dict(createMutableDictionary());
    EXPECT_TRUE(convert(rule, dict.get()));
    FwRule back;
    EXPECT_TRUE(convert(dict.get(), back));
    return back;
}

// A rule with every field set comes back unchanged, reals exactly; an unset message
// writes nothing.
TEST(PlistConvertTest, RoundTripsRealsAndWritesNothingForUnsetFields) {
    for (double p : {0.1, 0.0, -0.5, 1e20, 5e-324, 0.30000000000000004}) {
        FwRule real;
        real.set_probability(p);
        EXPECT_EQ(p, roundTrip(real).probability());
    }
    const FwRule rule = qvtest::fullRule(4000000000u);
    EXPECT_EQ(rule.SerializeAsString(), roundTrip(rule).SerializeAsString());
    Dict dict(createMutableDictionary());
    putInt(dict.get(), "stale", 1);
    ASSERT_TRUE(convert(FwRule(), dict.get()));
    EXPECT_EQ(0, CFDictionaryGetCount(dict.get()));
}

TEST(PlistConvertTest, WriterRefusesIncompleteMessageAndNullTarget) {
    FwRule rule;
    rule.mutable_protocol()->set_protocol(PROTO_VALUE_TCP);  // required type missing
    Dict dict(createMutableDictionary());
    putInt(dict.get(), "stale", 1);
    EXPECT_FALSE(convert(rule, dict.get()));
    EXPECT_NE(nullptr, lookupValue(dict.get(), "stale"));
    EXPECT_FALSE(convert(FwRule(), static_cast<CFMutableDictionaryRef>(nullptr)));

    FwRule other;
    EXPECT_FALSE(convert(static_cast<CFDictionaryRef>(nullptr), other));

    // One incomplete element fails the whole array and leaves `out` alone.
    google::protobuf::RepeatedPtrField<IpAddr> addrs;
    addrs.Add()->set_use_host_name(true);
    addrs.Add()->set_ip(1);
    CFArrayRef out = reinterpret_cast<CFArrayRef>(&addrs);
    const CFArrayRef before = out;
    EXPECT_FALSE(convertCreate(addrs, out));
    EXPECT_EQ(before, out);
}

TEST(PlistConvertTest, ReaderSkipsBadKeysOneByOne) {
    Dict dict(createMutableDictionary());
    putInt(dict.get(), "action", 9);                 // outside ActionEnum
    putInt(dict.get(), "direction", 3);              // valid
    putInt(dict.get(), "keep_state", 1);             // a number is not a boolean
    put(dict.get(), "description", kCFBooleanTrue);  // a boolean is not a string
    Owned<CFTypeRef> half(createValue(2.5));
    put(dict.get(), "unreach_code", half.get());  // not an integer
    putInt(dict.get(), "unknown_key", 1);

    FwRule rule;
    EXPECT_TRUE(convert(dict.get(), rule));
    EXPECT_FALSE(rule.has_action());
    EXPECT_EQ(DIRECT_BOTH, rule.direction());
    EXPECT_FALSE(rule.has_keep_state());
    EXPECT_FALSE(rule.has_description());
    EXPECT_FALSE(rule.has_unreach_code());

    // A nested message is present as soon as its key is; this empty one lacks its
    // required ip_type, so the rule is incomplete.
    Owned<CFTypeRef> text(createValue(std::string("x")));
    put(dict.get(), "src_ip", text.get());
    FwRule withIp;
    EXPECT_FALSE(convert(dict.get(), withIp));
    EXPECT_TRUE(withIp.has_src_ip());
    EXPECT_FALSE(withIp.src_ip().has_ip_type());
}

TEST(PlistConvertTest, OneBadArrayElementEmptiesTheField) {
    FwRuleList list;
    for (unsigned int i = 1; i <= 4; ++i) {
        list.add_rules()->set_rule_index(i);
    }
    CFArrayRef rules = nullptr;
    ASSERT_TRUE(convertCreate(list.rules(), rules));
    Owned<CFArrayRef> ownedRules(rules);
    ASSERT_EQ(4, CFArrayGetCount(rules));

    // Replace the third element by a string.
    CFTypeRef items[4];
    for (CFIndex i = 0; i < 4; ++i) {
        items[i] = CFArrayGetValueAtIndex(rules, i);
    }
    Owned<CFTypeRef> text(createValue(std::string("not a rule")));
    items[2] = text.get();
    Owned<CFArrayRef> bad(CFArrayCreate(kCFAllocatorDefault, items, 4, &kCFTypeArrayCallBacks));

    FwRuleList back;
    back.add_rules()->set_rule_index(99);
    EXPECT_TRUE(convert(rules, *back.mutable_rules()));
    EXPECT_EQ(4, back.rules_size());
    EXPECT_EQ(3u, back.rules(2).rule_index());
    EXPECT_FALSE(convert(bad.get(), *back.mutable_rules()));
    EXPECT_EQ(0, back.rules_size());

    // Integers: a real that is not whole spoils the array.
    Owned<CFTypeRef> eight(createValue(8));
    Owned<CFTypeRef> real(createValue(2.7));
    CFTypeRef numbers[] = {eight.get(), real.get()};
    Owned<CFArrayRef> mixed(CFArrayCreate(kCFAllocatorDefault, numbers, 2, &kCFTypeArrayCallBacks));
    google::protobuf::RepeatedField<int> icmp;
    EXPECT_TRUE(convert(mixed.get(), icmp) == false && icmp.empty());
    Owned<CFArrayRef> one(CFArrayCreate(kCFAllocatorDefault, numbers, 1, &kCFTypeArrayCallBacks));
    EXPECT_TRUE(convert(one.get(), icmp));
    EXPECT_EQ(1, icmp.size());
}

TEST(PlistConvertTest, StringsWithAndWithoutDirectPointer) {
    std::string out = "stale";
    Owned<CFStringRef> empty(QvCreateCFStringFromString(""));
    EXPECT_TRUE(convert(empty.get(), out));
    EXPECT_EQ("", out);
    // Non-ASCII text has no direct UTF-8 pointer, so it takes the copying path.
    const std::string text = "r\xc3\xa8gle \xe2\x82\xac \xf0\x9f\x94\xa5";
    Owned<CFStringRef> utf8(QvCreateCFStringFromString(text.c_str()));
    EXPECT_TRUE(convert(utf8.get(), out));
    EXPECT_EQ(text, out);
    EXPECT_FALSE(convert(static_cast<CFStringRef>(nullptr), out));
}

}  // namespace
