// The tool's parsers on plain strings: command lines, rule JSON and event text.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <string>
#include <vector>

#include "CtlArguments.h"
#include "EventLine.h"
#include "MessageJson.h"
#include "QvControl.h"

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
