// The daemon's and the tool's parsers on plain strings: command lines, the status
// record, the stored options, rule JSON and event text.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <string>
#include <vector>

#include "CtlArguments.h"
#include "DaemonOptions.h"
#include "EventLine.h"
#include "MessageJson.h"
#include "QvControl.h"
#include "QvControlStatus.h"
#include "StoredOptions.h"

namespace {

TEST(CtlArgumentsTest, OptionsMayStandAnywhereAndEverythingElseIsPositional) {
    struct Case {
        std::vector<std::string> arguments;
        bool ok;
        std::string command;
        std::vector<std::string> positional;
        bool json;
        long count;
        std::string control;
    };
    const Case cases[] = {
        {{"list", "--json"}, true, "list", {}, true, -1, "/env.sock"},
        {{"--control", "/c.sock", "swap", "1", "2"},
         true,
         "swap",
         {"1", "2"},
         false,
         -1,
         "/c.sock"},
        {{"watch", "--count=7"}, true, "watch", {}, false, 7, "/env.sock"},
        {{"add", "-"}, true, "add", {"-"}, false, -1, "/env.sock"},
        {{"add", "{\"action\":\"ACTION_DENY\"}"},
         true,
         "add",
         {"{\"action\":\"ACTION_DENY\"}"},
         false,
         -1,
         "/env.sock"},
        {{"watch", "--count", "x"}, false, "", {}, false, -1, ""},
        {{"list", "--bogus"}, false, "", {}, false, -1, ""},
        {{"--control"}, false, "", {}, false, -1, ""},
    };
    for (const Case& c : cases) {
        qvctl::CtlArguments parsed;
        std::string error;
        ASSERT_EQ(qvctl::ParseCtlArguments(c.arguments, "/env.sock", &parsed, &error), c.ok)
            << c.arguments[0] << " " << error;
        if (!c.ok) {
            EXPECT_FALSE(error.empty());
            continue;
        }
        EXPECT_EQ(parsed.command, c.command);
        EXPECT_EQ(parsed.positional, c.positional);
        EXPECT_EQ(parsed.json, c.json);
        EXPECT_EQ(parsed.count, c.count);
        EXPECT_EQ(parsed.controlSocket, c.control);
    }
    qvctl::CtlArguments defaults;
    std::string error;
    ASSERT_TRUE(qvctl::ParseCtlArguments({"status"}, nullptr, &defaults, &error));
    EXPECT_EQ(defaults.controlSocket, qvctl::kDefaultControlSocket);
}

TEST(DaemonOptionsTest, SocketsComeFromOptionsThenTheEnvironmentThenTheDefaults) {
    qvfwd::DaemonOptions options;
    std::string error;
    qvfwd::DaemonEnvironment environment;
    environment.serviceSocket = "/svc";
    environment.controlSocket = "/ctl-env";
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({"--foreground", "--plugin=/p.so", "--control", "/c"},
                                          environment, &options, &error));
    EXPECT_EQ(options.pluginPath, "/p.so");
    EXPECT_EQ(options.controlSocket, "/c");
    EXPECT_EQ(options.serviceSocket, "/svc");
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({}, environment, &options, &error));
    EXPECT_EQ(options.controlSocket, "/ctl-env");

    qvfwd::DaemonOptions defaults;
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({}, {}, &defaults, &error));
    EXPECT_EQ(defaults.controlSocket, qvctl::kDefaultControlSocket);
    EXPECT_EQ(defaults.serviceSocket, "/var/run/Quorvane/QvrnCore.sock");

    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"--plugin"}, std::vector<std::string>{"--daemonize"}}) {
        qvfwd::DaemonOptions refused;
        std::string reason;
        EXPECT_FALSE(qvfwd::ParseDaemonOptions(wrong, {}, &refused, &reason));
        EXPECT_NE(reason.find(wrong[0]), std::string::npos);
    }
}

TEST(DaemonStatusTest, TheRecordReadsBackFieldForFieldAndSkipsUnknownKeys) {
    qvctl::DaemonStatus status;
    status.pid = 42;
    status.uptimeSeconds = 7;
    status.pluginId = 128;
    status.pluginPath = "/lib/libQvFw.so";
    status.eventsFromService = 3;
    status.eventsFromCallback = 2;
    status.streamClients = 1;
    status.fwLogPath = "/log/ipfw.log";
    status.normalSet = 19;
    std::string text = qvctl::FormatStatus(status) + "from_a_newer_daemon=1\n";
    qvctl::DaemonStatus read = qvctl::ParseStatus(text);
    EXPECT_EQ(qvctl::FormatStatus(read), qvctl::FormatStatus(status));
}

TEST(StoredOptionsTest, OptionsComeFromTheFileAndMissingOnesKeepTheirDefaults) {
    const std::string plist =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        "<key>FwOptions</key>\n<dict>\n<key>default_set_num</key>\n<integer>7</integer>\n"
        "<key>fw_log_path</key>\n<string>/x/ipfw.log</string>\n</dict>\n</dict>\n</plist>\n";
    qvfwd::StoredOptions options;
    ASSERT_TRUE(qvfwd::ParseStoredOptions(plist, &options));
    EXPECT_EQ(options.normalSet, 7);
    EXPECT_EQ(options.exceptionSet, 18);
    EXPECT_EQ(options.fwLogPath, "/x/ipfw.log");
    EXPECT_EQ(options.syslogConf, "/etc/syslog.conf");

    qvfwd::StoredOptions untouched;
    EXPECT_FALSE(qvfwd::ParseStoredOptions("not a property list", &untouched));
    EXPECT_EQ(untouched.normalSet, 19);
}

TEST(MessageJsonTest, BadJsonNamesTheFieldAndTheReason) {
    struct Case {
        std::string json;
        std::string mentioned;
    };
    const Case cases[] = {
        {R"({"actoin":"ACTION_DENY"})", "actoin"},
        {R"({"action":"ACTION_MAYBE"})", "ACTION_MAYBE"},
        {R"({"protocol":{"protocol":"PROTO_VALUE_TCP"}})", "type"},
        {R"([{"action":"ACTION_DENY"}])", "JSON object"},
        {R"({"action":)", "FwRule"},
    };
    for (const Case& c : cases) {
        qor::vela::FwRule rule;
        std::string error;
        EXPECT_FALSE(qvctl::ParseRuleJson(c.json, &rule, &error)) << c.json;
        EXPECT_NE(error.find(c.mentioned), std::string::npos) << c.json << " -> " << error;
    }
    qor::vela::FwRuleInfoList list;
    std::string error;
    ASSERT_TRUE(qvctl::ParseRuleListJson(
        R"([{"order":2,"rule":{"rule_index":5,"action":"ACTION_RESET"}},{"order":1}])", &list,
        &error))
        << error;
    ASSERT_EQ(list.rules_size(), 2);
    EXPECT_EQ(list.rules(0).rule().action(), qor::vela::ACTION_RESET);
    EXPECT_EQ(qvctl::MessageToJson(list.rules(0)),
              R"({"order":2,"rule":{"rule_index":5,"action":"ACTION_RESET"}})");
    EXPECT_FALSE(qvctl::ParseRuleListJson(R"([{"rule":{}}])", &list, &error));
}

TEST(EventLineTest, ThePacketTextLosesTheRuleNumberAndTheWatchersLineEnd) {
    const std::pair<std::string, std::string> cases[] = {
        {std::string("3100 Deny TCP 10.0.0.9:1 10.0.0.2:22 in via en0\n\0", 50),
         "Deny TCP 10.0.0.9:1 10.0.0.2:22 in via en0"},
        {"100 Accept UDP", "Accept UDP"},
        {"no number here", "no number here"},
        {std::string("\n\0", 2), ""},
    };
    for (const auto& [detail, packet] : cases) {
        EXPECT_EQ(qvctl::PacketText(detail), packet);
    }
    // Local time, made predictable.
    setenv("TZ", "UTC", 1);
    tzset();
    qor::vela::EventLogItemFw event;
    event.set_time(0);
    event.set_rule_index(3100);
    event.set_detail(cases[0].first);
    EXPECT_EQ(qvctl::FormatEventLine(event, qvctl::kFromCallback, true),
              "1970-01-01 00:00:00 (callback)  3100  Deny TCP 10.0.0.9:1 10.0.0.2:22 in via en0");
}

}  // namespace
