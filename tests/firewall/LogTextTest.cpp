// The two texts the plug-in reads besides its messages: lines of the firewall log, which
// become events, and the system logger's configuration, which must route ipfw's lines
// into that log.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "FwLogParser.h"
#include "FwMgr.h"
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

}  // namespace
