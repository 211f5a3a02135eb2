// The two texts the plug-in reads besides its messages: lines of the firewall log, which
// become events, and the system logger's configuration, which must route ipfw's lines
// into that log; and the event watcher against a real log file: what it reports, with
// which notification flag.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "EventWatcher.h"
#include "FwLogParser.h"
#include "FwMgr.h"
#include "InMemoryIpfw.h"
#include "RecordingEventSink.h"
#include "SyslogRedirection.h"
#include "TempDir.h"

using namespace qor::vela;

namespace {

TEST(FwLogParserTest, IpfwLinesBecomeEventsWithTheirRuleNumberAndRest) {
    struct Case {
        const char* line;
        bool matches;
        int32_t rule;
        const char* detail;  // without the trailing NUL the record adds
    };
    const Case cases[] = {
        {"Nov 23 10:00:00 host kernel: ipfw: 3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0\n",
         true, 3100, "3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0\n"},
        {"Nov 23 10:00:00 mac kernel[0]: IPFW:\t 2100 Accept UDP a b out\n", true, 2100,
         "2100 Accept UDP a b out\n"},
        {"Nov 23 host kernel: ipfw: limit 5 reached on entry 3100\n", true, 0,
         "limit 5 reached on entry 3100\n"},
        {"Nov 23 host kernel: ipfw: 3100 Deny without newline", true, 3100,
         "3100 Deny without newline"},
        {"ipfw: 3100 Deny TCP with no colon before\n", false, 0, ""},
        {"Nov 23 host kernel: ipfwx: 3100\n", false, 0, ""},
        {"Nov 23 host syslogd: restart\n", false, 0, ""},
    };
    FwLogParser parser;
    ASSERT_TRUE(parser.IsValid());
    for (const Case& c : cases) {
        EventLogItemFw event;
        event.set_id(99);
        ASSERT_EQ(parser.Parse(c.line, 1700000000, event), c.matches) << c.line;
        if (!c.matches) {
            continue;
        }
        EXPECT_FALSE(event.has_id());
        EXPECT_EQ(event.time(), 1700000000);
        EXPECT_EQ(event.rule_index(), c.rule) << c.line;
        EXPECT_EQ(event.detail(), std::string(c.detail) + std::string(1, '\0')) << c.line;
    }
}

TEST(SyslogRedirectionTest, OnlyALineInsideTheBlockCountsAndTheManagerAppendsItOnce) {
    const std::string path = "/var/log/q+v/ipfw.log";
    struct Case {
        std::string configuration;
        bool redirected;
    };
    const Case cases[] = {
        {"*.notice\t/var/log/messages\n!ipfw\n*.*\t\t\t" + path + "\n", true},
        {"!IPFW  \n \\\t*.* " + path + "\n", true},
        // A later block for another program does not end the ipfw block.
        {"!ipfw\n*.err /dev/console\n!ppp\n*.*\t" + path + "\n", true},
        // The same line before any block routes every program's messages, not ipfw's.
        {"*.*\t" + path + "\n!ipfw\n*.err /dev/console\n", false},
        // The path is literal: '+' and '.' are not operators.
        {"!ipfw\n*.*\t/var/log/qqv/ipfw.log\n", false},
        {"!ipfw\n*.*\t/var/log/q+v/ipfwXlog\n", false},
        {"!ipfw\nkern.*\t" + path + "\n", false},
        {"!ipfw\n*.*" + path + "\n", false},
    };
    SyslogRedirection redirection(path);
    ASSERT_TRUE(redirection.IsValid());
    for (const Case& c : cases) {
        std::istringstream in(c.configuration);
        EXPECT_EQ(redirection.IsRedirected(in), c.redirected) << c.configuration;
    }
    EXPECT_EQ(SyslogRedirection::Block(path), "\n!ipfw\n*.*\t\t\t" + path + "\n");

    qvtest::TempDir dir;
    const std::string conf = dir.file("syslog.conf");
    const std::string log = dir.file("fw.log");
    // No configuration is found: nothing but the text work is used.
    FwMgr manager(std::make_unique<qvtest::RecordingEventSink>());

    const auto change = [&](const std::string& logPath) {
        const Result<LogRouting::Change> routed = manager.RedirectFwLog(conf, logPath);
        EXPECT_TRUE(routed.ok()) << logPath;
        return routed.ok() ? routed.value() : LogRouting::Change::None;
    };
    EXPECT_EQ(LogRouting::Change::Appended, change(log));
    EXPECT_EQ(qvtest::readFile(conf), "\n!ipfw\n*.*\t\t\t" + log + "\n");
    EXPECT_EQ(LogRouting::Change::None, change(log));
    // A path that would add a line of its own to the logger's configuration is not written.
    EXPECT_EQ(LogRouting::Change::Appended, change(log + "\n*.* /etc/passwd"));
    EXPECT_EQ(qvtest::readFile(conf), "\n!ipfw\n*.*\t\t\t" + log + "\n");

    EXPECT_TRUE(manager.MatchQvLogPath("*.*\t\t\t/var/log/Quorvane/QvrnCore/ipfw.log"));
    EXPECT_TRUE(manager.MatchQvLogPath(" *.* /VAR/log/Quorvane/QvrnCore/ipfwXlog"));
    EXPECT_FALSE(manager.MatchQvLogPath("*.*\t/var/log/ipfw.log"));
}

void append(const std::string& path, const std::string& line) {
    FILE* file = fopen(path.c_str(), "a");
    ASSERT_NE(file, nullptr);
    fputs(line.c_str(), file);
    fclose(file);
}

std::string denyLine(int rule) {
    return "Nov 26 03:00:00 host kernel: ipfw: " + std::to_string(rule) +
           " Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via eth0\n";
}

// Following the file through a rotation: the plug-in's watcher test (tests/e2e).
TEST(EventWatcherTest, ReportsNewLinesWithTheNotificationFlag) {
    qvtest::TempDir dir;
    const std::string log = dir.file("ipfw.log");
    append(log, denyLine(2100));
    qvtest::InMemoryIpfw shell;
    qvtest::RecordingEventSink sink;
    std::atomic<bool> notify{false};
    EventWatcher watcher(
        shell, sink, [&notify] { return notify.load(); }, log);

    // The watcher reads from the end it found when it opened the file; until it reports
    // the first new line, that moment is unknown, so the line is written again.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (sink.reported().empty() && std::chrono::steady_clock::now() < deadline) {
        append(log, denyLine(3100));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    auto reported = sink.reported();
    ASSERT_FALSE(reported.empty());
    for (const auto& entry : reported) {
        EXPECT_EQ(entry.event.rule_index(), 3100) << "the line from before the start is no news";
        EXPECT_FALSE(entry.notify);
    }

    const size_t before = reported.size();
    notify = true;
    append(log, denyLine(3110));
    reported = sink.waitFor(before + 1);
    ASSERT_EQ(reported.size(), before + 1);
    EXPECT_EQ(reported.back().event.rule_index(), 3110);
    EXPECT_TRUE(reported.back().notify);
}

}  // namespace
