// The manager with a configuration in a temporary directory and an in-memory ipfw: the
// order of its start and stop, and many host threads at once, after which the stored
// lists and the ipfw sets must hold the same rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CommandTable.h"
#include "FwMgr.h"
#include "Handler.h"
#include "InMemoryIpfw.h"
#include "IpfwListing.h"
#include "QvFirewall.h"
#include "RecordingEventSink.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "TestUtil.h"

using namespace qor::vela;

namespace {

class FwMgrTest : public ::testing::Test {
protected:
    FwMgrTest() {
        qvtest::writeFile(m_dir.file("ipfw.log"), "");
        writeConfig("");
    }
    ~FwMgrTest() override {
        g_pFwMgr = nullptr;
        if (manager != nullptr) {
            (void)manager->Final();
        }
    }

    // Options for sets 19 and 18 and this world's files, `options` besides; one stored rule.
    void writeConfig(const std::string& options) {
        qvtest::writeFile(
            m_dir.file("QvFw.conf.plist"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>"
            "<key>FwOptions</key><dict>" +
                options +
                "<key>default_set_num</key><integer>19</integer><key>exception_set_num</key>"
                "<integer>18</integer><key>fw_log_path</key><string>" +
                m_dir.file("ipfw.log") + "</string><key>syslog_conf</key><string>" +
                m_dir.file("syslog.conf") +
                "</string></dict><key>FwRuleCfg</key><dict><key>rules</key><array><dict>"
                "<key>rule_index</key><integer>3100</integer><key>action</key><integer>2</integer>"
                "</dict></array></dict></dict>\n</plist>\n");
    }

    // A manager on this world's configuration and its own ipfw, which `ipfw` then shows.
    int start() {
        auto shell = std::make_unique<qvtest::InMemoryIpfw>();
        ipfw = shell.get();
        manager = std::make_unique<FwMgr>(std::move(shell),
                                          std::make_unique<qvtest::RecordingEventSink>());
        return manager->Init().code();
    }

    // Calls the table's handler for `cmd` with `request`; the response parsed into `reply`.
    static int call(int cmd, const google::protobuf::MessageLite& request,
                    google::protobuf::MessageLite* reply = nullptr) {
        lastCall() = "command " + std::to_string(cmd);
        for (const QvHandlerEntry& row : handlerArr) {
            if (row.cmd != cmd) {
                continue;
            }
            const std::string bytes = request.SerializeAsString();
            void* out = nullptr;
            int outLen = 0;
            const int code = row.handler(cmd, bytes.empty() ? "" : bytes.data(),
                                         static_cast<int>(bytes.size()), &out, &outLen);
            if (reply != nullptr && out != nullptr) {
                EXPECT_TRUE(reply->ParseFromArray(out, outLen));
            }
            free(out);
            lastCall() += " answered " + std::to_string(code);
            return code;
        }
        ADD_FAILURE() << "no row for command " << cmd;
        return -1;
    }

    // What the last call was and how it was answered, for a failure's trace.
    static std::string& lastCall() {
        static thread_local std::string text;
        return text;
    }

    std::vector<uint32_t> stored(bool exception) const {
        FwRuleList list;
        if (exception) {
            manager->GetExcpRules(list);
        } else {
            manager->GetAllNormalRules(list);
        }
        std::vector<uint32_t> numbers;
        for (const FwRule& rule : list.rules()) {
            numbers.push_back(rule.rule_index());
        }
        std::sort(numbers.begin(), numbers.end());
        return numbers;
    }

    static FwRule tcpRule(uint32_t port) {
        FwRule rule;
        rule.set_action(ACTION_DENY);
        rule.mutable_protocol()->set_type(PROTO_SPECIFIED);
        rule.mutable_protocol()->set_protocol(PROTO_VALUE_TCP);
        Port* entry = rule.mutable_dst_port()->add_ports();
        rule.mutable_dst_port()->set_port_type(PORT_LIST);
        entry->set_use_range(false);
        entry->set_port(port);
        return rule;
    }

    // Sixteen host threads with `kCalls` calls each through the command table.
    void hammer(unsigned seed) {
        constexpr int kThreads = 16;
        constexpr int kCalls = 100;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([this, t, seed] {
                std::mt19937 random(static_cast<unsigned>(t) * 7919u + seed);
                for (int i = 0; i < kCalls; ++i) {
                    callSomething(random);
                }
            });
        }
        qvtest::joinAll(threads);
    }

    static constexpr size_t kExceptionRoom = 90;  // numbers 2100 to 2990

    // One of the 21 commands with arguments drawn at random: numbers that are stored and
    // numbers that are not, lists with and without rules. The exception set stays below
    // a hundred rules: past that its numbers reach the normal set's, where the normal
    // set's "ipfw -q delete N" removes both sets' rule N.
    void callSomething(std::mt19937& random) {
        auto below = [&random](int n) { return static_cast<int>(random() % n); };
        auto someNumber = [this, &below](bool exception) {
            const std::vector<uint32_t> numbers = stored(exception);
            UIntType number;
            number.set_value(numbers.empty() || below(5) == 0
                                 ? static_cast<uint32_t>(2090 + below(1500))
                                 : numbers[below(static_cast<int>(numbers.size()))]);
            return number;
        };
        const bool exception = below(3) == 0;
        FwRule rule = tcpRule(static_cast<uint32_t>(1 + below(60000)));
        FwRuleInfoList list;
        for (int k = 0, n = below(4); k < n; ++k) {
            FwRuleInfo* entry = list.add_rules();
            entry->set_order(k);
            *entry->mutable_rule() = tcpRule(static_cast<uint32_t>(100 + k));
        }
        const int pick = below(21);  // the kinds of call by weight
        if (pick < 2 && exception && stored(true).size() >= kExceptionRoom) {
            call(QV_CMD_FLUSH_EXCP_RULES, NullObject());
        } else if (pick < 2) {
            call(exception ? QV_CMD_ADD_EXCP_RULE : QV_CMD_ADD_RULE, rule);
        } else if (pick == 2) {
            call(QV_CMD_ADD_RULE_LIST, list);
        } else if (pick == 3) {
            call(exception ? QV_CMD_SET_EXCP_RULE_LIST : QV_CMD_SET_RULE_LIST, list);
        } else if (pick < 6) {
            rule.set_rule_index(someNumber(false).value());
            call(QV_CMD_MODIFY_RULE, rule);
        } else if (pick < 9) {
            UIntPair pair;
            pair.set_first(someNumber(false).value());
            pair.set_second(someNumber(false).value());
            call(QV_CMD_SWAP_RULES, pair);
        } else if (pick < 11) {
            call(exception ? QV_CMD_DELETE_EXCP_RULE : QV_CMD_DELETE_RULE, someNumber(exception));
        } else if (pick == 11 && below(4) == 0) {
            call(exception ? QV_CMD_FLUSH_EXCP_RULES
                           : (below(4) == 0 ? QV_CMD_FLUSH_RULES : QV_CMD_FLUSH_NORMAL_RULES),
                 NullObject());
        } else if (pick == 12 || pick == 13) {
            call(below(2) == 0 ? QV_CMD_ENABLE_FW : QV_CMD_DISABLE_FW, NullObject());
        } else if (pick == 14) {
            call(below(2) == 0 ? QV_CMD_ENABLE_NOTIFY : QV_CMD_DISABLE_NOTIFY, NullObject());
        } else if (pick == 15) {
            call(below(2) == 0 ? QV_CMD_IS_FW_ENABLE : QV_CMD_IS_NOTIFY_ENABLE, NullObject());
        } else if (pick == 16) {
            DebugOption debug;
            debug.set_plugins(below(2));
            debug.set_debug_level(below(8));
            call(QV_CMD_SET_DEBUG_LEVEL, debug);
        } else if (pick > 16) {
            FwRuleList all;
            call(exception ? QV_CMD_GET_EXCP_RULES : QV_CMD_GET_ALL_RULES, NullObject(), &all);
        }
    }

    // Both sets hold in ipfw what the store holds, no number twice, and the switches are
    // as the stored flag says.
    void expectStoreAndIpfwAgree() {
        for (const auto& [set, exception] : {std::pair{19, false}, std::pair{18, true}}) {
            std::vector<uint32_t> inIpfw = qvtest::numbersInSet(ipfw->ipfw("-S list"), set);
            std::sort(inIpfw.begin(), inIpfw.end());
            EXPECT_EQ(stored(exception), inIpfw) << ipfw->ipfw("-S list");
            EXPECT_EQ(inIpfw.end(), std::adjacent_find(inIpfw.begin(), inIpfw.end()));
        }
        const bool enabled = manager->IsFwEnable();
        const std::string sets = ipfw->ipfw("set show");
        EXPECT_EQ(!enabled, sets.find("disable") != std::string::npos) << sets;
    }

    qvtest::TempDir m_dir{qvtest::TempDir::MemoryBase()};
    qvtest::ScopedEnv m_confDir{"QV_CONF_DIR", m_dir.path()};
    std::unique_ptr<FwMgr> manager;
    qvtest::InMemoryIpfw* ipfw = nullptr;
};

// Start: the log routed, both sets switched as stored before any rule goes in, the
// watcher started, then each set cleared and refilled, exceptions first. Stop: the
// watcher, then the normal set and the exception set deleted. (A whole restart with
// its rules put back: FaultTest.FullOrReadOnlyConfigurationKeepsWhatWasSaved.)
TEST_F(FwMgrTest, InitAndFinalRunTheirCommandLinesInOrder) {
    ASSERT_EQ(0, start());
    const std::string log = m_dir.file("ipfw.log");
    EXPECT_EQ((std::vector<std::string>{
                  "touch \"" + log + "\"", "killall -HUP syslogd", "ipfw -q set enable 19",
                  "ipfw -q set enable 18", "sysctl -w net.inet.ip.fw.verbose=1",
                  "ipfw -q delete set 18", "ipfw -q delete set 19",
                  "ipfw -q add 3100 set 19  deny log logamount 0 2>/dev/stdout"}),
              ipfw->commands());
    const size_t started = ipfw->commands().size();
    EXPECT_EQ(0, manager->Final().code());
    const std::vector<std::string> all = ipfw->commands();
    EXPECT_EQ((std::vector<std::string>{"sysctl -w net.inet.ip.fw.verbose=0",
                                        "ipfw -q delete set 19", "ipfw -q delete set 18"}),
              std::vector<std::string>(all.begin() + static_cast<long>(started), all.end()));
    EXPECT_EQ(0, manager->Final().code());  // a second Final does nothing
    EXPECT_EQ(all, ipfw->commands());

    writeConfig("<key>enable_fw</key><false/>");
    ASSERT_EQ(0, start());
    // Stored as disabled, both sets are switched off before any rule goes in; the logger's
    // configuration already routes the log.
    EXPECT_EQ(
        (std::vector<std::string>{"touch \"" + log + "\"", "ipfw -q set disable 19",
                                  "ipfw -q set disable 18", "sysctl -w net.inet.ip.fw.verbose=1",
                                  "ipfw -q delete set 18", "ipfw -q delete set 19",
                                  "ipfw -q add 3100 set 19  deny log logamount 0 2>/dev/stdout"}),
        ipfw->commands());
    EXPECT_FALSE(manager->IsFwEnable());
    (void)manager->Final();

    // Without its configuration directory the start fails, and the manager's own commands, called
    // past the handlers, touch neither ipfw nor the store.
    qvtest::ScopedEnv nowhere("QV_CONF_DIR", m_dir.file("missing"));
    ASSERT_EQ(QV_ERR_INIT, start());
    FwRule rule;
    rule.set_action(ACTION_DENY);
    FwRuleInfoList list;
    list.add_rules()->mutable_rule()->CopyFrom(rule);
    UIntPairArray pairs;
    EXPECT_EQ(QV_ERR_INIT, manager->AddNormalRule(rule).code());
    EXPECT_EQ(QV_ERR_INIT, manager->DeleteExcpRule(2100).code());
    EXPECT_EQ(QV_ERR_INIT, manager->EnableFirewall().code());
    EXPECT_EQ(QV_ERR_INIT, manager->SetNormalRuleList(list, pairs).code());
    EXPECT_EQ(FW_ERR_FLUSH, manager->FlushRules().code());
    EXPECT_EQ(0, manager->Final().code());
    EXPECT_EQ(std::vector<std::string>{}, ipfw->commands());
}

// What failed reaches the host as its own code: ipfw that cannot be run, ipfw that
// complains, and a flush of both sets, which answers its one code whatever failed.
TEST_F(FwMgrTest, FailuresReachTheHostAsTheirCodes) {
    ASSERT_EQ(0, start());
    g_pFwMgr = manager.get();
    using Answer = std::optional<Result<std::string>>;
    ipfw->override([](const std::string& command) -> Answer {
        if (command.find("delete") != std::string::npos) {
            return Result<std::string>::Success("ipfw: unexpected\n");
        }
        return Result<std::string>::Failure(QV_ERR_CMD);
    });
    UIntType number;
    number.set_value(3100);
    EXPECT_EQ(FW_ERR_IPFW_PRINTED, call(QV_CMD_DELETE_RULE, number));
    EXPECT_EQ(FW_ERR_IPFW_PRINTED, call(QV_CMD_FLUSH_EXCP_RULES, NullObject()));
    EXPECT_EQ(QV_ERR_CMD, call(QV_CMD_ENABLE_FW, NullObject()));
    EXPECT_EQ(FW_ERR_FLUSH, call(QV_CMD_FLUSH_RULES, NullObject()));
    UIntPair absent;
    absent.set_first(3100);
    absent.set_second(3110);
    EXPECT_EQ(FW_ERR_RULE_NOT_FOUND, call(QV_CMD_SWAP_RULES, absent));
}

// Host threads with calls of every kind. Each call holds its set's lock for its whole
// length, so the stored lists and the ipfw sets end as some serial order of the same
// calls would leave them; an exchange that finds only one of its rules changes nothing.
TEST_F(FwMgrTest, ConcurrentHandlerCallsKeepStoreAndIpfwInStep) {
    ASSERT_EQ(0, start());
    g_pFwMgr = manager.get();
    for (unsigned seed : {1u, 2u}) {
        hammer(seed);
        expectStoreAndIpfwAgree();
    }
    // The calls reached ipfw (the lists they leave may end empty: a flush can come last).
    EXPECT_GT(ipfw->commands().size(), 1000u);
}

// Random sequences of all the commands from one host thread, store and ipfw compared
// after every call.
TEST_F(FwMgrTest, StoreAndIpfwAgreeAfterEveryCallOfRandomSequences) {
    ASSERT_EQ(0, start());
    g_pFwMgr = manager.get();
    // The fixture's stored rule has no body that ipfw takes: the sequences start empty.
    ASSERT_EQ(0, call(QV_CMD_FLUSH_RULES, NullObject()));
    expectStoreAndIpfwAgree();
    for (unsigned seed = 1; seed <= 10; ++seed) {
        std::mt19937 random(seed);
        for (int call = 0; call < 400 && !HasFailure(); ++call) {
            callSomething(random);
            SCOPED_TRACE("seed " + std::to_string(seed) + ", call " + std::to_string(call) + ": " +
                         lastCall());
            expectStoreAndIpfwAgree();
        }
    }
}

}  // namespace
