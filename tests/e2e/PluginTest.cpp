// The plug-in driven end to end as a host drives it, against the simulated ipfw: after
// every step the store and `ipfw -S show` must agree.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <map>
#include <thread>

#include "PluginWorld.h"

using namespace qor::vela;
using qvtest::CallbackEvents;
using qvtest::eventually;
using qvtest::PluginWorld;

namespace {

class PluginTest : public PluginWorld {
protected:
    // Every row of the table called with a request it can decode: the code of each.
    std::map<int, int> callEveryRow() {
        FwRule rule = tcpRule(ACTION_DENY, 22);
        rule.set_rule_index(3100);
        UIntType number;
        number.set_value(3100);
        UIntPair pair;
        pair.set_first(3100);
        pair.set_second(3110);
        const FwRuleInfoList list = ruleList({{1, rule}});
        DebugOption level;
        level.set_plugins(128);
        level.set_debug_level(4);
        const std::map<int, const google::protobuf::MessageLite*> requests = {
            {QV_CMD_ADD_RULE, &rule},           {QV_CMD_ADD_EXCP_RULE, &rule},
            {QV_CMD_MODIFY_RULE, &rule},        {QV_CMD_DELETE_RULE, &number},
            {QV_CMD_DELETE_EXCP_RULE, &number}, {QV_CMD_SWAP_RULES, &pair},
            {QV_CMD_ADD_RULE_LIST, &list},      {QV_CMD_SET_RULE_LIST, &list},
            {QV_CMD_SET_EXCP_RULE_LIST, &list}, {QV_CMD_SET_DEBUG_LEVEL, &level}};
        const QvHandlerEntry* table = nullptr;
        int count = 0;
        QvCommandHandler fallback = nullptr;
        EXPECT_EQ(plugin->getHandlers(&table, &count, &fallback), 0);
        std::map<int, int> codes;
        for (int row = 0; row < count; ++row) {
            auto request = requests.find(table[row].cmd);
            codes[table[row].cmd] = request != requests.end()
                                        ? call(table[row].cmd, *request->second)
                                        : call(table[row].cmd, number);
        }
        return codes;
    }
};

TEST_F(PluginTest, FrameHandsOutTheTableAndExportsNothingElse) {
    EXPECT_EQ(plugin->getId(), 128);

    const QvHandlerEntry* table = nullptr;
    int count = 0;
    QvCommandHandler fallback = nullptr;
    EXPECT_EQ(plugin->getHandlers(nullptr, &count, &fallback), 20002);
    EXPECT_EQ(plugin->getHandlers(&table, nullptr, &fallback), 20002);
    EXPECT_EQ(plugin->getHandlers(&table, &count, nullptr), 20002);
    EXPECT_EQ(table, nullptr);
    ASSERT_EQ(plugin->getHandlers(&table, &count, &fallback), 0);
    ASSERT_EQ(count, 21);
    EXPECT_EQ(table, plugin->handlerArr);

    // The command numbers a host sends, in the table's order.
    const int commands[] = {0x8000, 0x8001, 0x8002, 0x8004, 0x8005, 0x8007, 0x8009,
                            0x8008, 0x8003, 0x8006, 0x800a, 0x800b, 0x800c, 0x800d,
                            0x800e, 0x800f, 0x8010, 0x8011, 0x8012, 0x8013, 258};
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(table[i].cmd, commands[i]) << "row " << i;
    }
    EXPECT_EQ(fallback(0x9999, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(plugin->free(nullptr), 0);

    const std::string exported = qvtest::commandOutput(
        "nm -D --defined-only " + qvtest::LoadedPlugin::path() + " | awk '{print $3}' | sort");
    EXPECT_EQ(exported,
              "QvPluginFinalize\nQvPluginFree\nQvPluginGetHandlers\nQvPluginGetId\n"
              "QvPluginInitialize\nQvPluginNullNotify\nQvPluginSetNotificationCallback\n"
              "handlerArr\n");
}

// Before Initialize, after an Initialize whose configuration and backup cannot be read,
// and after Finalize, every handler answers 20013 (the debug level aside, which needs no
// manager), and nothing reaches ipfw: not even the rules of set 0, which a manager that
// never learnt its sets could delete.
TEST_F(PluginTest, HandlersAnswer20013WithoutAWorkingManager) {
    ipfw("-q add 100 set 0 allow ip from any to any");
    const std::string before = ipfw("-S show");
    auto expectNoManager = [this, &before](const char* when) {
        for (const auto& [cmd, code] : callEveryRow()) {
            EXPECT_EQ(cmd == QV_CMD_SET_DEBUG_LEVEL ? 0 : 20013, code) << when << " " << cmd;
        }
        EXPECT_EQ(before, ipfw("-S show")) << when;
    };
    expectNoManager("before Initialize");
    for (const char* content : {"", "<plist><dict><key>x</key>", "\x00\x01garbage"}) {
        qvtest::writeFile(configPath(), content);
        unlink((confDir() + "/backup/QvFw.conf.plist").c_str());
        EXPECT_EQ(start(), 20013) << content;
        EXPECT_TRUE(logged(3, "QvPluginInitialize Failed to init FwMgr"));
        expectNoManager(content);
        stop();
        EXPECT_EQ(before, ipfw("-S show"));
    }
    writeConfig(optionsXml());
    ASSERT_EQ(start(), 0);
    stop();
    expectNoManager("after Finalize");
}

// A rule's whole life through the plug-in is tests/daemon's (DaemonEndToEndTest, through
// qvfwd, which loads this library); every handler that changes a set, with the store and
// ipfw agreeing after, is FwMgrTest's.
TEST_F(PluginTest, RuleListsAnswerOneOrderAndNumberPairPerRule) {
    ASSERT_EQ(start(), 0);
    FwRule badMac = tcpRule(ACTION_DENY, 25);
    badMac.mutable_mac_addr()->mutable_src_mac()->set_type(MAC_SPECIFIED);
    badMac.mutable_mac_addr()->mutable_src_mac()->set_mac("not a mac");
    badMac.mutable_mac_addr()->mutable_dst_mac()->set_type(MAC_ANY);

    UIntPairArray pairs;
    const auto list =
        ruleList({{7, tcpRule(ACTION_DENY, 22)}, {3, badMac}, {1, tcpRule(ACTION_ALLOW, 80)}});
    EXPECT_EQ(call(QV_CMD_SET_RULE_LIST, list, &pairs), 20702);
    ASSERT_EQ(pairs.values_size(), 3);
    EXPECT_EQ(pairs.values(0).first(), 1u);
    EXPECT_EQ(pairs.values(0).second(), 3100u);
    EXPECT_EQ(pairs.values(1).first(), 3u);
    EXPECT_FALSE(pairs.values(1).has_second());
    EXPECT_EQ(pairs.values(2).first(), 7u);
    EXPECT_EQ(pairs.values(2).second(), 3120u);  // the failed rule used up 3110
    expectStoreAndIpfwAgree();

    // A repeated order changes nothing on any list command.
    const auto repeated = ruleList({{1, tcpRule(ACTION_DENY, 1)}, {1, tcpRule(ACTION_DENY, 2)}});
    for (int cmd : {QV_CMD_ADD_RULE_LIST, QV_CMD_SET_RULE_LIST, QV_CMD_SET_EXCP_RULE_LIST}) {
        EXPECT_EQ(call(cmd, repeated, &pairs), 20707) << cmd;
        EXPECT_EQ(pairs.values_size(), 0);
    }
    EXPECT_EQ(stored(false).size(), 2u);

    // An empty list still has to be a request: only a list with no entries empties the set.
    FwRuleInfoList empty;
    EXPECT_EQ(call(QV_CMD_SET_RULE_LIST, empty, &pairs), 20002);
    expectStoreAndIpfwAgree();
}

TEST_F(PluginTest, EnableAndDisableReachBothSets) {
    ASSERT_EQ(start(), 0);
    BoolType enabled;
    EXPECT_EQ(call(QV_CMD_DISABLE_FW), 0);
    EXPECT_EQ(call(QV_CMD_IS_FW_ENABLE, &enabled), 0);
    EXPECT_FALSE(enabled.value());
    EXPECT_EQ(ipfw("set show").substr(0, 14), "disable 18 19 ");
    EXPECT_EQ(call(QV_CMD_ENABLE_FW), 0);
    EXPECT_EQ(call(QV_CMD_IS_FW_ENABLE, &enabled), 0);
    EXPECT_TRUE(enabled.value());
    EXPECT_EQ(ipfw("set show").substr(0, 9), "enable 0 ");
}

TEST_F(PluginTest, DeniedPacketReachesCallbackAndHostServiceThroughTheLoggerBlock) {
    ASSERT_EQ(start(), 0);
    add(tcpRule(ACTION_DENY, 22));

    const time_t before = time(nullptr);
    EXPECT_EQ(ipfw("packet tcp 10.0.0.1:1234 10.0.0.2:22 in via en0"), "3100 Deny\n");
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() == 1; }));
    ASSERT_TRUE(eventually([&] { return service->callCount() == 1; }));
    const auto [code, bytes] = CallbackEvents::all()[0];
    EXPECT_EQ(code, 1207);
    EventLogItemFw event;
    ASSERT_TRUE(event.ParseFromString(bytes));
    EXPECT_FALSE(event.has_id());
    EXPECT_EQ(event.rule_index(), 3100);
    EXPECT_GE(event.time(), before);
    EXPECT_LE(event.time(), time(nullptr));
    EXPECT_EQ(event.detail(),
              std::string("3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0\n", 51) +
                  std::string(1, '\0'));
    EXPECT_EQ(service->calls()[0].command, 65567u);
    EXPECT_EQ(service->calls()[0].payload, bytes);
    // With notification off only the host service hears: DaemonEndToEndTest's.
}

// The watcher reads from the end the log has when it starts, which may be after start()
// returned: a line goes in until one is reported, then the count starts over.
void AwaitWatcher(const std::string& log) {
    ASSERT_TRUE(eventually([&log] {
        std::ofstream(log, std::ios::app)
            << "Nov 23 09:59:59 host kernel: ipfw: 100 Count a b in\n";
        return eventually([] { return !CallbackEvents::all().empty(); },
                          std::chrono::milliseconds(200));
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    CallbackEvents::clear();
}

TEST_F(PluginTest, WatcherFollowsRotationTruncationAndDeletion) {
    ASSERT_EQ(start(), 0);
    AwaitWatcher(fwLog());
    auto append = [&](const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::app) << text;
    };
    auto lastRule = [] {
        EventLogItemFw event;
        event.ParseFromString(CallbackEvents::all().back().second);
        return event.rule_index();
    };
    append(fwLog(), "Nov 23 10:00:00 host kernel: ipfw: 3100 Deny TCP a b in\n");
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() == 1; }));

    // Moved away and replaced: the new file is read from its first line.
    ASSERT_EQ(rename(fwLog().c_str(), (fwLog() + ".0").c_str()), 0);
    append(fwLog(), "Nov 23 10:00:01 host kernel: IPFW: 3200 Deny UDP a b out\n");
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() == 2; }));
    EXPECT_EQ(lastRule(), 3200);

    // Truncated: what comes after is still reported. Lines without "ipfw:" are not.
    ASSERT_EQ(truncate(fwLog().c_str(), 0), 0);
    append(fwLog(), "Nov 23 10:00:02 host syslogd: restart\n");
    append(fwLog(), "Nov 23 10:00:03 host kernel: ipfw: 3300 Deny ICMP a b in\n");
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() >= 3; }));
    EXPECT_EQ(lastRule(), 3300);
    EXPECT_EQ(CallbackEvents::all().size(), 3u);

    // Deleted and created again: the new file is followed from its first line.
    ASSERT_EQ(unlink(fwLog().c_str()), 0);
    append(fwLog(), "Nov 23 10:00:04 host kernel: ipfw: 3400 Deny TCP a b in\n");
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() == 4; }));
    EXPECT_EQ(lastRule(), 3400);
}

// A log whose directory went away is looked for, quietly, until it is made again.
TEST_F(PluginTest, WatcherWaitsQuietlyWhileTheLogsDirectoryIsGoneAndFollowsItsReturn) {
    const std::string directory = fwLog() + ".d";
    const std::string log = directory + "/ipfw.log";
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    std::string options = optionsXml();
    options.replace(options.find(fwLog()), fwLog().size(), log);
    writeConfig(options);
    ASSERT_EQ(start(), 0);
    AwaitWatcher(log);
    std::ofstream(log, std::ios::app)
        << "Nov 23 10:00:04 host kernel: ipfw: 3400 Deny TCP a b in\n";
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() == 1; }));

    ASSERT_EQ(unlink(log.c_str()), 0);
    ASSERT_EQ(rmdir(directory.c_str()), 0);
    EXPECT_LT(qvtest::cpuSecondsOver(getpid(), 1.0), 0.3)
        << "the watcher spins while its log is gone";

    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    std::ofstream(log, std::ios::app)
        << "Nov 23 10:00:05 host kernel: ipfw: 3500 Deny TCP a b in\n";
    ASSERT_TRUE(eventually([] { return CallbackEvents::all().size() == 2; }));
}

// The configuration's paths go into command lines run as root: one that would run a
// command of its own is never put into one, and start-up goes on without it.
TEST_F(PluginTest, LogPathThatWouldRunACommandNeverReachesTheShell) {
    const std::string marker = fwLog() + ".ran";
    const std::string hostile = fwLog() + "$(touch " + marker + ")";
    std::string options = optionsXml();
    options.replace(options.find(fwLog()), fwLog().size(), hostile);
    writeConfig(options);

    ASSERT_EQ(start(), 0);
    EXPECT_EQ(add(tcpRule(ACTION_DENY, 22)), 3100u);
    stop();
    EXPECT_FALSE(std::ifstream(marker).good());
    EXPECT_TRUE(logged(3, "FwMgr::InitNotify Unsafe log path " + hostile + ", not created"));
}

// Each way of checking and decoding a request, with bytes that are not a complete one
// (the handlers of one kind share theirs).
TEST_F(PluginTest, BadRequestsGetTheirCodesAndChangeNothing) {
    ASSERT_EQ(start(), 0);
    add(tcpRule(ACTION_DENY, 22));
    add(tcpRule(ACTION_ALLOW, 22), true);
    const auto before = ipfw("-S show");
    const std::string config = qvtest::readFile(configPath());

    FwRule noType = tcpRule(ACTION_DENY, 23);
    noType.mutable_protocol()->clear_type();  // required in its part
    const std::string incompleteRule = noType.SerializePartialAsString();
    const std::string noIndex = tcpRule(ACTION_DENY, 24).SerializeAsString();
    FwRuleInfoList noOrder;
    noOrder.add_rules();
    const std::string incompleteList = noOrder.SerializePartialAsString();
    const std::string garbage = "\xff\xff\xff\xff\x0f";
    char byte = 0;
    void* out = nullptr;
    int outLen = 0;

    struct Case {
        int cmd;
        const void* in;
        int inLen;
        bool withOut;
        int code;
    };
    const std::vector<Case> cases = {
        {QV_CMD_ADD_RULE, incompleteRule.data(), int(incompleteRule.size()), true, 20010},
        {QV_CMD_MODIFY_RULE, incompleteRule.data(), int(incompleteRule.size()), false, 20010},
        {QV_CMD_ADD_RULE_LIST, incompleteList.data(), int(incompleteList.size()), true, 20010},
        {QV_CMD_ADD_RULE, nullptr, 4, true, 20002},
        {QV_CMD_ADD_RULE, incompleteRule.data(), int(incompleteRule.size()), false, 20002},
        {QV_CMD_DELETE_RULE, nullptr, 0, false, 20002},
        {QV_CMD_MODIFY_RULE, &byte, -7, false, 20002},
        {QV_CMD_MODIFY_RULE, noIndex.data(), int(noIndex.size()), false, 20002},
        {QV_CMD_SET_RULE_LIST, nullptr, 0, true, 20002},
        {QV_CMD_SET_DEBUG_LEVEL, nullptr, 0, false, 20002},
        {QV_CMD_IS_FW_ENABLE, nullptr, 0, false, 20002},
        {QV_CMD_GET_EXCP_RULES, nullptr, 0, false, 20002},
    };
    for (const Case& c : cases) {
        out = nullptr;
        outLen = -5;
        EXPECT_EQ(handler(c.cmd)(c.cmd, c.in, c.inLen, c.withOut ? &out : nullptr,
                                 c.withOut ? &outLen : nullptr),
                  c.code)
            << std::hex << c.cmd << " inLen " << std::dec << c.inLen;
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(outLen, -5);
    }
    // Bytes that are no message at all: an unreadable list must not empty the set.
    for (int cmd : {QV_CMD_ADD_RULE, QV_CMD_SWAP_RULES, QV_CMD_SET_RULE_LIST,
                    QV_CMD_SET_EXCP_RULE_LIST, QV_CMD_DELETE_RULE}) {
        EXPECT_EQ(call(cmd, garbage.data(), int(garbage.size())), 20010) << std::hex << cmd;
    }
    EXPECT_EQ(ipfw("-S show"), before);
    EXPECT_EQ(qvtest::readFile(configPath()), config);
    EXPECT_TRUE(logged(3, "AddRule failed to init fwRule"));
    EXPECT_TRUE(logged(3, "GetAllRules invalid input, out is (nil), outLen is (nil)"));

    // The debug level: 0..7 only.
    DebugOption level;
    level.set_plugins(0);
    level.set_debug_level(7);
    EXPECT_EQ(call(QV_CMD_SET_DEBUG_LEVEL, level), 0);
    level.set_debug_level(8);
    EXPECT_EQ(call(QV_CMD_SET_DEBUG_LEVEL, level), 20002);
    level.set_debug_level(-1);
    EXPECT_EQ(call(QV_CMD_SET_DEBUG_LEVEL, level), 20002);
}

}  // namespace
