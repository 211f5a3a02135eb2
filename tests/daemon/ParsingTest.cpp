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

// What a parse gave, on one line: the command, its positional arguments, --json,
// --count and the control socket.
std::string Described(const qvctl::CtlArguments& parsed) {
    std::string text = parsed.command + " [";
    for (const std::string& word : parsed.positional) {
        text += word + ";";
    }
    return text + "] json=" + std::to_string(parsed.json) +
           " count=" + std::to_string(parsed.count) + " " + parsed.controlSocket;
}

TEST(CtlArgumentsTest, OptionsMayStandAnywhereAndEverythingElseIsPositional) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"list", "--json"}, "list [] json=1 count=-1 /env.sock"},
        {{"--control", "/c.sock", "swap", "1", "2"}, "swap [1;2;] json=0 count=-1 /c.sock"},
        {{"watch", "--count=7"}, "watch [] json=0 count=7 /env.sock"},
        {{"add", "-"}, "add [-;] json=0 count=-1 /env.sock"},
        {{"add", "{\"action\":1}"}, "add [{\"action\":1};] json=0 count=-1 /env.sock"},
        {{"watch", "--count", "x"}, ""},
        {{"list", "--bogus"}, ""},
        {{"--control"}, ""},
    };
    for (const auto& [arguments, described] : cases) {
        qvctl::CtlArguments parsed;
        std::string error;
        ASSERT_EQ(qvctl::ParseCtlArguments(arguments, "/env.sock", &parsed, &error),
                  !described.empty())
            << arguments[0] << " " << error;
        // A refusal says why; an acceptance says nothing.
        EXPECT_EQ(error.empty() ? Described(parsed) : "", described) << error;
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
