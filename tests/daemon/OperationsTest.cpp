// The daemon's operating pieces on strings and fakes: the packet line, the JSON records,
// the Prometheus text, the rate limit on a clock the test moves, the deadline file, the
// events file's writer, and rules that expire and lists put back against a fake plug-in.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "ChangeAudit.h"
#include "DeadlineStore.h"
#include "EventJournal.h"
#include "EventRecord.h"
#include "EventsFile.h"
#include "Housekeeper.h"
#include "Metrics.h"
#include "PacketLine.h"
#include "PeerCredentials.h"
#include "PrometheusText.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "RateLimiter.h"
#include "RuleChecker.h"
#include "RuleDirectory.h"
#include "TempDir.h"
#include "TimedChanges.h"
#include "VelaCommonMsg.pb.h"
#include "VelaEventLogMsg.pb.h"
#include "VelaFwMsg.pb.h"
#include "WallClock.h"

namespace {

using qvtest::readFile;
using qvtest::writeFile;

class FakeClock final : public qvfwd::WallClock {
public:
    int64_t NowMicros() const override { return now; }
    int64_t now = 1700000000LL * qvfwd::kMicrosPerSecond;
};

TEST(DaemonPacketLineTest, EveryShapeTheKernelLogsReadsAndOtherLinesDoNot) {
    auto tcp = qvfwd::ReadPacketLine(
        std::string("Nov 23 12:00:00 host kernel: ipfw: 3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 "
                    "in via en0") +
        std::string("\n\0", 2));
    ASSERT_TRUE(tcp);
    EXPECT_EQ(tcp->text, "3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0");
    // The same fields as the line without syslog's prefix and the watcher's end, which
    // DaemonEventRecordTest reads one by one.
    EXPECT_EQ(qvfwd::PacketRecord(0, *tcp, std::nullopt),
              qvfwd::PacketRecord(0, *qvfwd::ReadPacketLine(tcp->text), std::nullopt));

    auto unreach =
        qvfwd::ReadPacketLine("3110 Unreach 3 UDP 10.0.0.2:53 10.0.0.7:5353 out via eth0");
    ASSERT_TRUE(unreach);
    EXPECT_EQ(unreach->action, "unreach 3");
    EXPECT_EQ(unreach->ActionWord(), "unreach");
    EXPECT_EQ(unreach->direction, "out");

    auto icmp = qvfwd::ReadPacketLine("2100 Accept ICMP:8.0 10.0.0.1 10.0.0.2 in via en0");
    ASSERT_TRUE(icmp);
    EXPECT_EQ(icmp->protocol, "icmp");
    EXPECT_EQ(*icmp->icmpType, 8u);
    EXPECT_EQ(*icmp->icmpCode, 0u);
    EXPECT_FALSE(icmp->sourcePort);

    auto other = qvfwd::ReadPacketLine("3120 Reset P:47 10.0.0.1 10.0.0.2 [no if info]");
    ASSERT_TRUE(other);
    EXPECT_EQ(other->protocol, "47");
    EXPECT_TRUE(other->direction.empty());

    for (const char* notAPacket :
         {"limit 5 reached on entry 3100", "lost 7 logged packets", "3100 Deny TCP 10.0.0.9 x",
          "3100 Deny TCP 10.0.0.9:1 10.0.0.2:2 in via", "", "3100"}) {
        EXPECT_FALSE(qvfwd::ReadPacketLine(notAPacket)) << notAPacket;
    }
}

TEST(DaemonEventRecordTest, RecordsAreOneLineOfJsonWithTheirFieldsAndUtcMicroseconds) {
    EXPECT_EQ(qvfwd::Rfc3339Micros(1700000000123456LL), "2023-11-14T22:13:20.123456Z");
    EXPECT_EQ(qvfwd::Rfc3339Micros(5), "1970-01-01T00:00:00.000005Z");

    auto packet = qvfwd::ReadPacketLine("3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0");
    ASSERT_TRUE(packet);
    EXPECT_EQ(qvfwd::PacketRecord(1700000000000001LL, *packet, qvfwd::RulePlace{"normal", 19}),
              R"({"type":"packet","time":"2023-11-14T22:13:20.000001Z","rule":3100,"set":19,)"
              R"("list":"normal","action":"deny","protocol":"tcp","src":"10.0.0.9",)"
              R"("src_port":40000,"dst":"10.0.0.2","dst_port":22,"icmp_type":null,)"
              R"("icmp_code":null,"direction":"in","interface":"en0",)"
              R"("line":"3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0"})");
    auto icmp = qvfwd::ReadPacketLine("9 Deny ICMP:3.1 10.0.0.1 10.0.0.2 [no if info]");
    const std::string unknown = qvfwd::PacketRecord(0, *icmp, std::nullopt);
    for (const char* part : {R"("set":null,"list":null)", R"("src_port":null)", R"("icmp_type":3)",
                             R"("direction":null,"interface":null)"}) {
        EXPECT_NE(unknown.find(part), std::string::npos) << part << "\n" << unknown;
    }

    // uid, pid, program, command, rule number, rule text, code
    const qvfwd::ChangeFacts change{1000, 42, "qv\"ctl", "delete", 3100, "deny proto tcp\n", 20701};
    EXPECT_EQ(
        qvfwd::ChangeRecord(0, change),
        R"({"type":"change","time":"1970-01-01T00:00:00.000000Z","uid":1000,"pid":42,)"
        R"("program":"qv\"ctl","command":"delete","rule":3100,"rule_text":"deny proto tcp\n",)"
        R"("code":20701,"result":"rule not found"})");
    EXPECT_EQ(qvfwd::ChangeLogLine(change),
              "change by uid 1000 pid 42 (qv\"ctl): delete deny proto tcp\n -> rule 3100: error "
              "20701: rule not found");
    EXPECT_EQ(qvfwd::SuppressedRecord(2 * qvfwd::kMicrosPerSecond, 3100, 1, 17),
              R"({"type":"suppressed","time":"1970-01-01T00:00:02.000000Z","rule":3100,)"
              R"("second":"1970-01-01T00:00:01.000000Z","count":17})");
}

TEST(DaemonPrometheusTextTest, FamiliesHaveHelpAndTypeAndAHistogramCountsUpward) {
    qvfwd::Metrics metrics(1700000000);
    metrics.SetRules("normal", 19, 2);
    metrics.CountEvent("deny", "19");
    metrics.CountEvent("deny", "19");
    metrics.CountHandler("add", 0, 0.0007);
    metrics.CountHandler("add", 20704, 0.2);
    metrics.CountHandler("add", 0, 30.0);
    metrics.CountIpfwFailure("qvfwd", "20016");
    const std::string text = qvfwd::FormatPrometheus(metrics.Snapshot());
    for (const char* line :
         {"# TYPE qvfwd_start_time_seconds gauge\nqvfwd_start_time_seconds 1700000000\n",
          "qvfwd_rules{list=\"normal\",set=\"19\"} 2\n", "# TYPE qvfwd_events_total counter\n",
          "qvfwd_events_total{action=\"deny\",set=\"19\"} 2\n",
          "qvfwd_handler_calls_total{code=\"0\",command=\"add\"} 2\n",
          "qvfwd_handler_calls_total{code=\"20704\",command=\"add\"} 1\n",
          "qvfwd_handler_duration_seconds_bucket{command=\"add\",le=\"0.0005\"} 0\n",
          "qvfwd_handler_duration_seconds_bucket{command=\"add\",le=\"0.001\"} 1\n",
          "qvfwd_handler_duration_seconds_bucket{command=\"add\",le=\"0.5\"} 2\n",
          "qvfwd_handler_duration_seconds_bucket{command=\"add\",le=\"2.5\"} 2\n",
          "qvfwd_handler_duration_seconds_bucket{command=\"add\",le=\"+Inf\"} 3\n",
          "qvfwd_handler_duration_seconds_count{command=\"add\"} 3\n",
          "qvfwd_ipfw_failures_total{reason=\"20704\",source=\"plugin\"} 1\n",
          "qvfwd_ipfw_failures_total{reason=\"20016\",source=\"qvfwd\"} 1\n",
          "qvfwd_event_records_lost_total{reason=\"queue_full\"} 0\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
    }
    EXPECT_EQ(qvfwd::PrometheusLabel("a\"b\\c\nd"), "a\\\"b\\\\c\\nd");
    EXPECT_EQ(text.back(), '\n');
}

TEST(DaemonRateLimiterTest, EachRuleGetsItsShareOfASecondAndTheRestIsCountedOnceTheSecondIsOver) {
    qvfwd::RateLimiter limiter(2);
    const int64_t second = 100 * qvfwd::kMicrosPerSecond;
    int admitted = 0;
    for (int i = 0; i < 5; ++i) {
        admitted += limiter.Admit(3100, second + i * 1000) ? 1 : 0;
    }
    EXPECT_EQ(admitted, 2);
    EXPECT_TRUE(limiter.Admit(3110, second + 10));  // another rule's own share
    EXPECT_TRUE(limiter.TakeFinished(second + 999999).empty()) << "the second is not over";

    std::vector<qvfwd::SuppressedCount> over =
        limiter.TakeFinished(second + qvfwd::kMicrosPerSecond);
    ASSERT_EQ(over.size(), 1u);
    EXPECT_EQ(over[0].rule, 3100);
    EXPECT_EQ(over[0].second, 100);
    EXPECT_EQ(over[0].count, 3);
    EXPECT_TRUE(limiter.TakeFinished(second + 5 * qvfwd::kMicrosPerSecond).empty())
        << "counted once";

    // A new second for a rule reports the last one's count even before a flush.
    qvfwd::RateLimiter one(1);
    one.Admit(1, second);
    one.Admit(1, second);
    EXPECT_TRUE(one.Admit(1, second + qvfwd::kMicrosPerSecond));
    over = one.TakeFinished(second + qvfwd::kMicrosPerSecond);
    ASSERT_EQ(over.size(), 1u);
    EXPECT_EQ(over[0].count, 1);

    qvfwd::RateLimiter off(0);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(off.Admit(1, second));
    }
}

TEST(DaemonDeadlineStoreTest, DeadlinesReadBackAsWrittenAndAFileThatCannotBeWrittenChangesNothing) {
    qvfwd::Deadlines deadlines;
    deadlines.rules[{"normal", 3100}] = {"normal", 3100, 1700000000000000LL, 0x9f86d081884c7d65ull};
    deadlines.rules[{"exception", 2100}] = {"exception", 2100, 5, 1};
    deadlines.rollbacks["normal"] = {"normal", 1700000001000000LL,
                                     std::string("\x0a\x02\x08\x01", 4)};
    deadlines.rollbacks["exception"] = {"exception", 7, ""};
    const std::string text = qvfwd::FormatDeadlines(deadlines);
    EXPECT_NE(text.find("rule normal 3100 1700000000000000 9f86d081884c7d65\n"), std::string::npos)
        << text;
    int skipped = -1;
    qvfwd::Deadlines read = qvfwd::ParseDeadlines(
        text + "rule normal x 1 0000000000000001\nrule other 1 1 0000000000000001\nnonsense\n",
        &skipped);
    EXPECT_EQ(skipped, 3);
    EXPECT_EQ(qvfwd::FormatDeadlines(read), text);

    qvtest::TempDir dir;
    qvfwd::DeadlineStore store(dir.file("qvfwd.deadlines"));
    std::string error;
    ASSERT_TRUE(store.Load(&error)) << "a missing file holds nothing";
    ASSERT_TRUE(store.AddRules({{"normal", 3100, 10, 2}}, &error)) << error;
    qvfwd::DeadlineStore again(dir.file("qvfwd.deadlines"));
    ASSERT_TRUE(again.Load(&error));
    EXPECT_EQ(again.Copy().rules.at({"normal", 3100}).fingerprint, 2u);

    qvfwd::DeadlineStore nowhere(dir.file("missing/qvfwd.deadlines"));
    EXPECT_FALSE(nowhere.AddRules({{"normal", 3100, 10, 2}}, &error));
    EXPECT_NE(error.find("missing/qvfwd.deadlines"), std::string::npos) << error;
    EXPECT_TRUE(nowhere.Copy().rules.empty());
}

TEST(DaemonHousekeeperTest, ItWaitsForTheNextDeadlineButNeverLongerThanASecondNorSpins) {
    using qvfwd::Housekeeper;
    EXPECT_EQ(Housekeeper::WaitMicros(0, 300000), 300000);
    EXPECT_EQ(Housekeeper::WaitMicros(0, INT64_MAX), Housekeeper::kLongestWaitMicros);
    EXPECT_EQ(Housekeeper::WaitMicros(500, 100), Housekeeper::kShortestWaitMicros);
}

TEST(DaemonEventsFileTest, RecordsFollowTheFileWhenMovedAndEveryRecordIsWrittenOrCounted) {
    qvtest::TempDir dir;
    const std::string path = dir.file("events.jsonl");
    qvfwd::EventsFile file(path);
    std::string error;
    ASSERT_TRUE(file.Start(&error)) << error;
    file.Append("{\"n\":1}");
    ASSERT_TRUE(file.WaitIdle(10000));
    EXPECT_EQ(readFile(path), "{\"n\":1}\n");

    // logrotate's default: moved away and a new empty file made in its place; the next
    // record goes to the new one.
    std::filesystem::rename(path, dir.file("events.jsonl.1"));
    writeFile(path, "");
    file.Append("{\"n\":2}");
    ASSERT_TRUE(file.WaitIdle(10000));
    EXPECT_EQ(readFile(path), "{\"n\":2}\n");
    EXPECT_EQ(readFile(dir.file("events.jsonl.1")), "{\"n\":1}\n");
    // copytruncate: emptied in place, written on at its new end.
    truncate(path.c_str(), 0);
    file.Append("{\"n\":3}");
    ASSERT_TRUE(file.WaitIdle(10000));
    EXPECT_EQ(readFile(path), "{\"n\":3}\n");
    file.Stop();
    EXPECT_EQ(file.Counts().written, 3);
    EXPECT_EQ(file.Counts().reopened, 1);

    qvfwd::EventsFile full("/dev/full");
    ASSERT_TRUE(full.Start(&error)) << error;
    full.Append("{}");
    full.Append("{}");
    ASSERT_TRUE(full.WaitIdle(10000));
    EXPECT_EQ(full.Counts().writeFailed, 2);

    // A writer that never started stands for one that cannot keep up.
    qvfwd::EventsFile stuck(dir.file("stuck.jsonl"), 2);
    for (int i = 0; i < 5; ++i) {
        stuck.Append("{}");
    }
    EXPECT_EQ(stuck.Counts().queueFull, 3);
}

TEST(DaemonPeerIdentityTest, TheProgramIsTheFirstLineOfItsCommFile) {
    qvtest::TempDir proc;
    std::filesystem::create_directories(proc.file("4242"));
    writeFile(proc.file("4242/comm"), "qvfwctl\n");
    EXPECT_EQ(qvfwd::ProgramNameOf(4242, proc.path()), "qvfwctl");
    EXPECT_EQ(qvfwd::ProgramNameOf(4243, proc.path()), "");
    EXPECT_EQ(qvfwd::ProgramNameOf(-1, proc.path()), "");

    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    qvfwd::PeerIdentity self = qvfwd::PeerIdentityOf(pair[0]);
    EXPECT_EQ(self.uid, static_cast<long long>(geteuid()));
    EXPECT_EQ(self.pid, static_cast<long long>(getpid()));
    EXPECT_EQ(self.program, qvfwd::ProgramNameOf(getpid(), "/proc"));
    close(pair[0]);
    close(pair[1]);
}

// The plug-in's rule lists in memory: numbers from 3100 (normal) and 2100 (exception) by
// tens, as the plug-in allocates them.
class FakePlugin {
public:
    int32_t Call(uint32_t command, const std::string& request, std::string* response) {
        const bool exception = command == QV_CMD_ADD_EXCP_RULE ||
                               command == QV_CMD_DELETE_EXCP_RULE ||
                               command == QV_CMD_GET_EXCP_RULES;
        auto& list = lists[exception ? "exception" : "normal"];
        qor::vela::FwRule rule;
        qor::vela::UIntType number;
        qor::vela::FwRuleList all;
        qor::vela::FwRuleInfoList wanted;
        qor::vela::UIntPairArray pairs;
        response->clear();
        switch (command) {
            case QV_CMD_ADD_RULE:
            case QV_CMD_ADD_EXCP_RULE:
                rule.ParseFromString(request);
                number.set_value(Add(exception ? "exception" : "normal", rule));
                *response = number.SerializeAsString();
                return 0;
            case QV_CMD_DELETE_RULE:
            case QV_CMD_DELETE_EXCP_RULE:
                number.ParseFromString(request);
                ++deletes;
                return list.erase(number.value()) == 1 ? 0 : FW_ERR_RULE_NOT_FOUND;
            case QV_CMD_GET_ALL_RULES:
            case QV_CMD_GET_EXCP_RULES:
                for (const auto& entry : list) {
                    *all.add_rules() = entry.second;
                }
                *response = all.SerializeAsString();
                return 0;
            case QV_CMD_SET_RULE_LIST:
            case QV_CMD_ADD_RULE_LIST:
                wanted.ParseFromString(request);
                if (command == QV_CMD_SET_RULE_LIST) {
                    list.clear();
                }
                for (const qor::vela::FwRuleInfo& info : wanted.rules()) {
                    qor::vela::UIntPair* pair = pairs.add_values();
                    pair->set_first(info.order());
                    pair->set_second(Add("normal", info.rule()));
                }
                *response = pairs.SerializeAsString();
                return failNextSet && command == QV_CMD_SET_RULE_LIST ? (failNextSet = false, 20704)
                                                                      : 0;
        }
        return QV_ERR_INVALID_ARG;
    }

    uint32_t Add(const std::string& list, qor::vela::FwRule rule) {
        auto& rules = lists[list];
        uint32_t number =
            rules.empty() ? (list == "normal" ? 3100 : 2100) : rules.rbegin()->first + 10;
        rule.set_rule_index(number);
        rules[number] = rule;
        return number;
    }

    std::map<std::string, std::map<uint32_t, qor::vela::FwRule>> lists;
    int deletes = 0;
    bool failNextSet = false;
};

qor::vela::FwRule DenyPort(uint32_t port) {
    qor::vela::FwRule rule;
    rule.set_action(qor::vela::ACTION_DENY);
    rule.mutable_dst_port()->set_port_type(qor::vela::PORT_LIST);
    qor::vela::Port* item = rule.mutable_dst_port()->add_ports();
    item->set_use_range(false);
    item->set_port(port);
    return rule;
}

std::string ListOf(const std::vector<uint32_t>& ports) {
    qor::vela::FwRuleInfoList list;
    for (uint32_t port : ports) {
        qor::vela::FwRuleInfo* info = list.add_rules();
        info->set_order(list.rules_size());
        *info->mutable_rule() = DenyPort(port);
    }
    return list.SerializeAsString();
}

// The daemon's timed changes over a fake plug-in and a clock the test moves, with the
// records they write kept for reading.
class DaemonTimedChangesTest : public ::testing::Test {
protected:
    qvfwd::PluginCaller Caller() {
        return [this](uint32_t command, const std::string& request, std::string* response) {
            return plugin.Call(command, request, response);
        };
    }

    std::vector<std::string> Records() {
        uint64_t next = 0;
        std::vector<std::string> texts;
        for (const qvfwd::KeptEvent& record : records.Recent(100, &next)) {
            texts.push_back(record.record);
        }
        return texts;
    }

    std::vector<uint32_t> Numbers(const std::string& list) {
        std::vector<uint32_t> numbers;
        for (const auto& [number, rule] : plugin.lists[list]) {
            numbers.push_back(number);
        }
        return numbers;
    }

    int32_t AddFor(const qor::vela::FwRule& rule, int64_t seconds) {
        std::lock_guard<std::mutex> gate(timed.gate());
        return timed.AddExpiring(QV_CMD_ADD_RULE, seconds, rule.SerializeAsString(), &response,
                                 &logLine);
    }

    int32_t Apply(const std::vector<uint32_t>& ports, int64_t confirmSeconds) {
        std::lock_guard<std::mutex> gate(timed.gate());
        return timed.Apply("normal", confirmSeconds, ListOf(ports), &response, &logLine);
    }

    // The answer and log line of the last change, which the tests do not read.
    std::string response;
    std::string logLine;
    qvtest::TempDir dir;
    FakePlugin plugin;
    FakeClock clock;
    qvfwd::EventHub records{100};
    qvfwd::RateLimiter limiter{0};
    qvfwd::Metrics metrics{0};
    qvfwd::RuleDirectory rules{Caller(), 19, 18};
    qvfwd::DeadlineStore store{dir.file("qvfwd.deadlines")};
    qvfwd::EventJournal journal{clock, records, nullptr, limiter, metrics, rules};
    qvfwd::RuleChecker words;
    std::vector<std::string> log;
    qvfwd::TimedChanges timed{
        Caller(), rules, store, journal, metrics, words, [this](const std::string& line) {
            log.push_back(line);
        }};
};

TEST_F(DaemonTimedChangesTest, ARuleGoesAtItsDeadlineOnceAndItsExpiryIsRecorded) {
    ASSERT_EQ(AddFor(DenyPort(22), 10), 0);
    plugin.Add("normal", DenyPort(80));
    EXPECT_EQ(timed.NextDeadlineMicros(), clock.now + 10 * qvfwd::kMicrosPerSecond);
    EXPECT_EQ(timed.DeadlinesText(), "normal 3100 1700000010\n");

    clock.now += 9 * qvfwd::kMicrosPerSecond;
    timed.Tick();
    EXPECT_EQ(Numbers("normal"), (std::vector<uint32_t>{3100, 3110}));
    clock.now += qvfwd::kMicrosPerSecond;
    timed.Tick();
    EXPECT_EQ(Numbers("normal"), (std::vector<uint32_t>{3110}));
    timed.Tick();
    EXPECT_EQ(plugin.deletes, 1);
    ASSERT_FALSE(Records().empty());
    EXPECT_EQ(Records().back(),
              R"({"type":"expiry","time":"2023-11-14T22:13:30.000000Z","rule":3100,"set":19,)"
              R"("list":"normal","rule_text":"deny log logamount 0 dst-port 22",)"
              R"("deadline":"2023-11-14T22:13:30.000000Z","code":0,"result":"success"})");
    EXPECT_TRUE(store.Copy().rules.empty());
}

TEST_F(DaemonTimedChangesTest, ADeadlineLastsARestartAndIsDroppedWhenItsRuleWentAnotherWay) {
    ASSERT_EQ(AddFor(DenyPort(22), 10), 0);
    ASSERT_EQ(AddFor(DenyPort(23), 10), 0);
    // As after a restart: a new store reads the file; the plug-in holds the same rules.
    qvfwd::DeadlineStore reread(dir.file("qvfwd.deadlines"));
    std::string error;
    ASSERT_TRUE(reread.Load(&error)) << error;
    EXPECT_EQ(reread.Copy().rules.size(), 2u);

    // 3100 deleted by hand, 3110 deleted and its number taken by another rule.
    plugin.lists["normal"].erase(3100);
    plugin.lists["normal"].erase(3110);
    plugin.Add("normal", DenyPort(80));  // 3100 again
    {
        std::lock_guard<std::mutex> gate(timed.gate());
        timed.AfterChange();
    }
    EXPECT_TRUE(store.Copy().rules.empty());
    clock.now += 20 * qvfwd::kMicrosPerSecond;
    timed.Tick();
    EXPECT_EQ(Numbers("normal"), (std::vector<uint32_t>{3100})) << "the new rule stays";
    EXPECT_EQ(plugin.deletes, 0);
}

TEST_F(DaemonTimedChangesTest, AnUnconfirmedListComesBackAndAConfirmedOneStays) {
    plugin.Add("normal", DenyPort(22));
    plugin.Add("normal", DenyPort(23));
    ASSERT_EQ(Apply({80}, 60), 0);
    EXPECT_EQ(plugin.lists["normal"].size(), 1u);
    EXPECT_EQ(timed.DeadlinesText(), "rollback normal 1700000060\n");

    clock.now += 60 * qvfwd::kMicrosPerSecond;
    timed.Tick();
    ASSERT_EQ(plugin.lists["normal"].size(), 2u);
    EXPECT_EQ(plugin.lists["normal"].at(3100).dst_port().ports(0).port(), 22u);
    EXPECT_EQ(plugin.lists["normal"].at(3110).dst_port().ports(0).port(), 23u);
    EXPECT_NE(Records().back().find(R"("type":"rollback")"), std::string::npos);
    EXPECT_TRUE(store.Copy().rollbacks.empty());

    ASSERT_EQ(Apply({80}, 60), 0);
    std::string why;
    EXPECT_EQ(timed.Confirm(&why), 0);
    EXPECT_EQ(timed.Confirm(&why), qvctl::kNothingToConfirm);
    clock.now += 3600 * qvfwd::kMicrosPerSecond;
    timed.Tick();
    EXPECT_EQ(plugin.lists["normal"].size(), 1u);

    // A list that failed to go in whole is put back at once.
    plugin.failNextSet = true;
    EXPECT_EQ(Apply({443, 8443}, 60), 20704);
    ASSERT_EQ(plugin.lists["normal"].size(), 1u);
    EXPECT_EQ(plugin.lists["normal"].begin()->second.dst_port().ports(0).port(), 80u);
}

TEST_F(DaemonTimedChangesTest,
       ARuleWhoseListIsReplacedUnconfirmedKeepsItsDeadlineForWhenItComesBack) {
    ASSERT_EQ(AddFor(DenyPort(22), 10), 0);
    ASSERT_EQ(Apply({80}, 30), 0);
    clock.now += 15 * qvfwd::kMicrosPerSecond;
    timed.Tick();
    EXPECT_EQ(store.Copy().rules.size(), 1u) << "waits for the list's verdict";
    clock.now += 15 * qvfwd::kMicrosPerSecond;
    timed.Tick();  // the list comes back, and its rule is past its deadline
    EXPECT_TRUE(plugin.lists["normal"].empty());
    EXPECT_TRUE(store.Copy().rules.empty());
}

TEST_F(DaemonTimedChangesTest, PacketsBecomeRecordsWithTheirSetAndFloodsAreCountedNotDropped) {
    plugin.Add("exception", DenyPort(22));
    rules.Refresh();
    qvfwd::RateLimiter two(2);
    qvfwd::EventJournal limited{clock, records, nullptr, two, metrics, rules};
    qor::vela::EventLogItemFw event;
    event.set_rule_index(2100);
    event.set_detail(std::string("2100 Deny TCP 10.0.0.9:1 10.0.0.2:22 in via en0") +
                     std::string("\n\0", 2));
    for (int i = 0; i < 5; ++i) {
        limited.OnEvent(event.SerializeAsString());
    }
    event.set_detail("limit 5 reached on entry 2100");
    limited.OnEvent(event.SerializeAsString());
    clock.now += qvfwd::kMicrosPerSecond;
    limited.FlushSuppressed();
    std::vector<std::string> written = Records();
    ASSERT_EQ(written.size(), 4u);
    EXPECT_NE(written[0].find(R"("rule":2100,"set":18,"list":"exception")"), std::string::npos)
        << written[0];
    EXPECT_NE(written[2].find(R"("type":"log")"), std::string::npos) << written[2];
    EXPECT_NE(written[3].find(R"("type":"suppressed")"), std::string::npos);
    EXPECT_NE(written[3].find(R"("count":3)"), std::string::npos) << written[3];
    qvfwd::MetricsSnapshot counted = metrics.Snapshot();
    EXPECT_EQ((counted.events[{"deny", "18"}]), 5);
    EXPECT_EQ(counted.recordsSuppressed, 3);
}

}  // namespace
