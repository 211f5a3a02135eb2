// Saving again after small edits reuses the rules' dictionaries and their XML text from
// earlier saves. Each saved file must still hold exactly the bytes that rendering the
// same document from scratch gives.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ConfigTestSupport.h"
#include "QvConfig.h"
#include "TempDir.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;

namespace {

// The XML of `list` under the rules key, rendered from freshly made mutable containers,
// which the writer never reuses text for.
std::string renderedFromScratch(const FwRuleList& list) {
    CFMutableDictionaryRef entry = createMutableDictionary();
    EXPECT_TRUE(convert(list, entry));
    CFMutableDictionaryRef root = createMutableDictionary();
    addValue(root, "FwRuleCfg", entry);
    CFPropertyListRef fresh =
        CFPropertyListCreateDeepCopy(kCFAllocatorDefault, root, kCFPropertyListMutableContainers);
    CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, fresh,
                                              kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                      static_cast<size_t>(CFDataGetLength(data)));
    for (CFTypeRef object : {static_cast<CFTypeRef>(data), fresh, static_cast<CFTypeRef>(root),
                             static_cast<CFTypeRef>(entry)}) {
        CFRelease(object);
    }
    return bytes;
}

FwRuleList rules(int count) {
    FwRuleList list;
    for (int i = 0; i < count; ++i) {
        list.add_rules()->CopyFrom(qvtest::fullRule(3100 + 10 * i));
    }
    return list;
}

TEST(QvConfigReuseTest, EverySaveAfterAnEditHoldsTheBytesOfAFreshRendering) {
    const std::vector<std::pair<const char*, std::function<void(FwRuleList&)>>> edits = {
        {"unchanged", [](FwRuleList&) {}},
        {"one description changed",
         [](FwRuleList& l) { l.mutable_rules(1)->set_description("changed"); }},
        {"a field cleared", [](FwRuleList& l) { l.mutable_rules(2)->clear_keep_state(); }},
        {"a rule added", [](FwRuleList& l) { l.add_rules()->CopyFrom(qvtest::fullRule(9000)); }},
        {"two rules swapped", [](FwRuleList& l) { l.mutable_rules()->SwapElements(0, 3); }},
        {"the last rule removed", [](FwRuleList& l) { l.mutable_rules()->RemoveLast(); }},
        {"a rule equal to another",
         [](FwRuleList& l) { l.mutable_rules(0)->CopyFrom(l.rules(1)); }},
    };
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
    QvConfig<Mutex> store(path.c_str());
    FwRuleList list = rules(4);
    for (const auto& [name, edit] : edits) {
        edit(list);
        ASSERT_TRUE(store.set(list, "FwRuleCfg").ok()) << name;
        ASSERT_TRUE(store.save().ok()) << name;
        EXPECT_EQ(qvtest::readFile(path), renderedFromScratch(list)) << name;
        FwRuleList back;
        ASSERT_TRUE(store.get(back, "FwRuleCfg").ok()) << name;
        EXPECT_EQ(back.SerializeAsString(), list.SerializeAsString()) << name;
    }
}

TEST(QvConfigReuseTest, AnIncompleteRuleIsRefusedEvenAfterItsCompleteTwinWasSaved) {
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
    QvConfig<Mutex> store(path.c_str());
    FwRuleList list = rules(1);
    ASSERT_TRUE(store.set(list, "FwRuleCfg").ok());
    list.mutable_rules(0)->mutable_protocol()->clear_type();
    EXPECT_EQ(store.set(list, "FwRuleCfg").code(), QV_CONFIG_SET_CONVERT);
}

}  // namespace
