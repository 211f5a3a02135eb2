// The firewall configuration on a real file in $QV_CONF_DIR: option defaults and the list
// operations with their effect on the file. The file's form is the store's and the
// converter's (tests/common, tests/platform).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Config.h"
#include "LogCapture.h"
#include "QvConfig.h"
#include "QvFirewall.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;
using qvtest::readFile;
using qvtest::writeFile;

namespace {

const char kEmptyDocument[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict/>\n</plist>\n";

FwRule rule(unsigned int index, const std::string& description = "") {
    FwRule result;
    result.set_rule_index(index);
    result.set_description(description.empty() ? "rule " + std::to_string(index) : description);
    return result;
}

FwRuleList ruleList(std::initializer_list<unsigned int> indexes) {
    FwRuleList list;
    for (unsigned int index : indexes) {
        list.add_rules()->CopyFrom(rule(index));
    }
    return list;
}

std::vector<unsigned int> indexesOf(const FwRuleList& list) {
    std::vector<unsigned int> indexes;
    for (const FwRule& r : list.rules()) {
        indexes.push_back(r.rule_index());
    }
    return indexes;
}

using Indexes = std::vector<unsigned int>;

class FwConfigTest : public ::testing::Test {
protected:
    std::string path() const { return m_dir.file("QvFw.conf.plist"); }
    std::string backup() const { return m_dir.file("backup/QvFw.conf.plist"); }

    // Writes a configuration file holding the given entries (none for an empty list).
    void seed(const FwRuleList& normal, const FwRuleList& exception,
              const FwOptions* options = nullptr) {
        writeFile(path(), kEmptyDocument);
        QvConfig<Mutex> store(path().c_str());
        ASSERT_TRUE(store.set(normal, "FwRuleCfg").ok());
        ASSERT_TRUE(store.set(exception, "FwExceptionRuleCfg").ok());
        if (options != nullptr) {
            ASSERT_TRUE(store.set(*options, "FwOptions").ok());
        }
        ASSERT_TRUE(store.save().ok());
        std::filesystem::remove_all(m_dir.file("backup"));
    }

    // The rule list stored in the file now, read past FwConfig.
    FwRuleList stored(const char* key) const {
        QvConfig<Mutex> store(path().c_str());
        FwRuleList list;
        EXPECT_TRUE(store.get(list, key).ok());
        return list;
    }

    qvtest::TempDir m_dir;
    qvtest::ScopedEnv m_confDir{"QV_CONF_DIR", m_dir.path()};
};

TEST_F(FwConfigTest, MissingLocationOrFileIsLoggedAndNotReady) {
    qvtest::LogCapture log;
    setenv("QV_CONF_DIR", m_dir.file("absent").c_str(), 1);
    {
        FwConfig config;
        EXPECT_FALSE(config.IsReady());
    }
    EXPECT_TRUE(log.has(3, "InitConfig Can't find QvFw.conf.plist"));

    setenv("QV_CONF_DIR", m_dir.path().c_str(), 1);
    FwConfig config;
    EXPECT_FALSE(config.IsReady());
    EXPECT_TRUE(log.has(3, "InitConfig Failed to Init Config file, buf is " + path()));
}

// Missing options take their defaults without a write; set numbers outside 1..30 fall
// back to theirs; stored rules are sorted stably on reading.
TEST_F(FwConfigTest, ReadingTakesDefaultsAndSortsRulesStably) {
    seed(ruleList({}), ruleList({}));
    const std::string before = readFile(path());
    {
        FwConfig config;
        ASSERT_TRUE(config.IsReady());
        EXPECT_TRUE(config.IsFwEnable());
        EXPECT_TRUE(config.IsNotifyEnable());
        EXPECT_EQ(19, config.GetNormalSetNum());
        EXPECT_EQ(18, config.GetExceptionSetNum());
        EXPECT_EQ("/var/log/Quorvane/QvrnCore/ipfw.log", config.GetFwLogPath());
        EXPECT_EQ("/etc/syslog.conf", config.GetSysConfPath());
    }
    EXPECT_EQ(before, readFile(path()));

    struct Case {
        int normal, exception;
        int normalAfter, exceptionAfter;
    };
    for (const Case& c :
         {Case{0, 31, 19, 18}, Case{31, 0, 19, 18}, Case{30, 1, 30, 1}, Case{-5, 17, 19, 17}}) {
        FwOptions options;
        options.set_default_set_num(c.normal);
        options.set_exception_set_num(c.exception);
        seed(ruleList({}), ruleList({}), &options);
        FwConfig config;
        ASSERT_TRUE(config.IsReady());
        EXPECT_EQ(c.normalAfter, config.GetNormalSetNum()) << c.normal;
        EXPECT_EQ(c.exceptionAfter, config.GetExceptionSetNum()) << c.exception;
    }

    FwRuleList normal = ruleList({5, 2, 9});
    normal.add_rules()->CopyFrom(rule(5, "second five"));
    normal.add_rules()->CopyFrom(rule(1));
    seed(normal, ruleList({30, 10, 20}));
    FwConfig sorted;
    ASSERT_TRUE(sorted.IsReady());
    FwRuleList all;
    sorted.GetAllNormalRules(all);
    EXPECT_EQ((Indexes{1, 2, 5, 5, 9}), indexesOf(all));
    EXPECT_EQ("rule 5", all.rules(2).description());
    EXPECT_EQ("second five", all.rules(3).description());
    FwRuleList exceptions;
    sorted.GetExceptionRules(exceptions);
    EXPECT_EQ((Indexes{10, 20, 30}), indexesOf(exceptions));
}

// Add replaces in place or appends unsorted; delete moves the last rule into the gap;
// swap exchanges contents, writing twice. What the file then holds against memory is
// RandomChangesKeepTheFileInStepWithMemory's.
TEST_F(FwConfigTest, AddDeleteAndSwapKeepTheirOrder) {
    seed(ruleList({2, 5, 9}), ruleList({}));
    FwConfig config;
    ASSERT_TRUE(config.IsReady());
    EXPECT_EQ(0, config.AddNormalRule(rule(1)).code());
    EXPECT_EQ(0, config.AddNormalRule(rule(5, "replaced")).code());
    EXPECT_EQ(0, config.AddExcpRule(rule(7)).code());
    FwRuleList all;
    config.GetAllNormalRules(all);
    EXPECT_EQ((Indexes{2, 5, 9, 1}), indexesOf(all));
    EXPECT_EQ("replaced", all.rules(1).description());
    EXPECT_EQ(Indexes{7}, indexesOf(stored("FwExceptionRuleCfg")));

    EXPECT_EQ(0, config.DeleteNormalRule(2).code());
    config.GetAllNormalRules(all);
    EXPECT_EQ((Indexes{1, 5, 9}), indexesOf(all));
    EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, config.DeleteNormalRule(2).code());
    EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, config.DeleteExcpRule(1).code());
    FwRule found;
    EXPECT_EQ(0, config.GetNormalRule(5, found).code());
    EXPECT_EQ("replaced", found.description());
    EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, config.GetNormalRule(2, found).code());

    ASSERT_EQ(0, config.SwapNormalRuleOrder(5, 9).code());
    config.GetAllNormalRules(all);
    EXPECT_EQ((Indexes{1, 5, 9}), indexesOf(all));
    EXPECT_EQ("rule 9", all.rules(1).description());
    EXPECT_EQ("replaced", all.rules(2).description());
    // The second write copied the first one's result into the backup.
    EXPECT_EQ(readFile(path()), readFile(backup()));
    const std::string before = readFile(path());
    EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, config.SwapNormalRuleOrder(1, 1).code());
    // A half-found exchange changes nothing, in memory or in the file.
    for (const auto& [a, b] : {std::pair{9u, 40u}, std::pair{41u, 5u}}) {
        EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, config.SwapNormalRuleOrder(a, b).code());
        config.GetAllNormalRules(all);
        EXPECT_EQ((Indexes{1, 5, 9}), indexesOf(all));
    }
    EXPECT_EQ(before, readFile(path()));
    ASSERT_EQ(0, config.AddNormalRule(rule(12)).code());
    EXPECT_EQ(readFile(path()).find("<integer>40</integer>"), std::string::npos);

    EXPECT_EQ(0, config.FlushRules().code());
    EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, config.GetNormalRule(5, found).code());
    EXPECT_EQ(0, stored("FwRuleCfg").rules_size());
}

// Every change converts only the rules it touched: after each one that answers 0 the
// file must hold exactly the list in memory, also across reloads (which sort the lists
// in memory only and share the loaded dictionaries) and after a half-found exchange
// whose renumbering reaches the file with the next save of the list.
TEST_F(FwConfigTest, RandomChangesKeepTheFileInStepWithMemory) {
    seed(ruleList({40, 10, 30}), ruleList({7}));
    std::mt19937 random(20261123);
    auto pick = [&](unsigned int n) { return static_cast<unsigned int>(random() % n); };
    auto config = std::make_unique<FwConfig>();
    ASSERT_TRUE(config->IsReady());
    // A list read back sorted reaches the file in that order only once it is written.
    bool normalWritten = true;
    bool exceptionsWritten = true;
    for (int step = 0; step < 400; ++step) {
        const unsigned int index = 1 + pick(60);
        const FwRule changed = rule(index, "variant " + std::to_string(pick(3)));
        bool exception = pick(4) == 0;
        Result<> result = Result<>::Success();
        switch (pick(6)) {
            case 0:
            case 1:
                result = exception ? config->AddExcpRule(changed) : config->AddNormalRule(changed);
                break;
            case 2:
                result =
                    exception ? config->DeleteExcpRule(index) : config->DeleteNormalRule(index);
                break;
            case 3:
                result = exception ? config->FlushExcpRules()
                                   : config->SwapNormalRuleOrder(index, 1 + pick(60));
                break;
            case 4:
                result = exception ? config->FlushRules() : config->AddNormalRule(changed);
                exception = false;
                break;
            default:
                config = std::make_unique<FwConfig>();
                ASSERT_TRUE(config->IsReady());
                normalWritten = exceptionsWritten = false;
                continue;
        }
        if (!result.ok()) {
            continue;
        }
        FwRuleList list;
        if (exception) {
            exceptionsWritten = true;
            config->GetExceptionRules(list);
            ASSERT_EQ(list.SerializeAsString(), stored("FwExceptionRuleCfg").SerializeAsString())
                << "step " << step;
        }
        normalWritten = normalWritten || !exception;
        if (normalWritten) {
            config->GetAllNormalRules(list);
            ASSERT_EQ(list.SerializeAsString(), stored("FwRuleCfg").SerializeAsString())
                << "step " << step;
        }
    }
}

TEST_F(FwConfigTest, OnlyChangedNotifySettingIsWritten) {
    seed(ruleList({}), ruleList({}));
    FwConfig config;
    ASSERT_TRUE(config.IsReady());
    EXPECT_EQ(0, config.SetNotifyEnable(true).code());  // already on: no save, so no backup either
    EXPECT_FALSE(std::filesystem::exists(backup()));
    EXPECT_EQ(0, config.SetFwEnable(true).code());  // unchanged, written all the same
    EXPECT_TRUE(std::filesystem::exists(backup()));
    EXPECT_EQ(0, config.SetNotifyEnable(false).code());
    EXPECT_FALSE(config.IsNotifyEnable());

    FwOptions options;
    QvConfig<Mutex> store(path().c_str());
    ASSERT_TRUE(store.get(options, "FwOptions").ok());
    EXPECT_TRUE(options.has_enable_fw() && options.enable_fw());
    EXPECT_TRUE(options.has_enable_notify() && !options.enable_notify());
    EXPECT_EQ(19, options.default_set_num());  // the defaults went out with the change
    EXPECT_TRUE(options.has_syslog_conf());
}

}  // namespace
