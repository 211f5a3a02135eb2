// The tool's parsers and words on plain strings: command lines, rule JSON, event text,
// durations and the time a rule has left, which options go with which command, and the
// difference a dry run prints.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <string>
#include <vector>

#include "CtlArguments.h"
#include "DryRunDiff.h"
#include "DurationWords.h"
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

TEST(CtlDurationWordsTest, DurationsAreNumbersWithUnitsWithinAYear) {
    const std::pair<std::string, int64_t> read[] = {
        {"90s", 90}, {"15m", 900}, {"2h", 7200}, {"1d", 86400}, {"1h30m", 5400}, {"366d", 31622400},
    };
    for (const auto& [text, seconds] : read) {
        int64_t value = -1;
        EXPECT_TRUE(qvctl::ParseDuration(text, &value)) << text;
        EXPECT_EQ(value, seconds) << text;
    }
    for (const char* refused :
         {"", "90", "s", "1w", "-5s", "0s", "367d", "1.5h", "1h 30m", "9999999999s", "5ss"}) {
        int64_t value = -1;
        EXPECT_FALSE(qvctl::ParseDuration(refused, &value)) << refused;
        EXPECT_EQ(value, -1) << refused;
    }
    EXPECT_EQ(qvctl::FormatTimeLeft(59), "59s");
    EXPECT_EQ(qvctl::FormatTimeLeft(245), "4m 5s");
    EXPECT_EQ(qvctl::FormatTimeLeft(5400), "1h 30m");
    EXPECT_EQ(qvctl::FormatTimeLeft(3605), "1h");
    EXPECT_EQ(qvctl::FormatTimeLeft(2 * 86400 + 3 * 3600 + 7), "2d 3h");
    EXPECT_EQ(qvctl::FormatTimeLeft(0), "0s");
    EXPECT_EQ(qvctl::FormatTimeLeft(-3), "0s");
}

TEST(CtlArgumentsTest, TimingOptionsBelongToTheirCommands) {
    struct Case {
        std::vector<std::string> arguments;
        std::string refusal;  // "" when accepted
    };
    const Case cases[] = {
        {{"add", "--for", "90s", "deny"}, ""},
        {{"add-rules", "--for=2h", "x"}, ""},
        {{"apply", "--exceptions", "--confirm", "5m", "-"}, ""},
        {{"apply", "--dry-run", "-"}, ""},
        {{"delete", "--for", "90s", "3100"}, "--for does not apply to delete"},
        {{"add", "--confirm", "5m", "deny"}, "--confirm does not apply to add"},
        {{"list", "--dry-run"}, "--dry-run does not apply to list"},
        {{"apply", "--dry-run", "--confirm", "1m", "-"}, "nothing to --confirm"},
        {{"add", "--for", "soon", "deny"}, "--for needs a duration"},
    };
    for (const Case& c : cases) {
        qvctl::CtlArguments parsed;
        std::string error;
        bool ok = qvctl::ParseCtlArguments(c.arguments, nullptr, &parsed, &error) &&
                  qvctl::CheckOptionScope(parsed, &error);
        EXPECT_EQ(ok, c.refusal.empty()) << c.arguments[0] << " " << error;
        EXPECT_NE(error.find(c.refusal), std::string::npos) << error;
    }
    qvctl::CtlArguments parsed;
    std::string error;
    ASSERT_TRUE(qvctl::ParseCtlArguments({"apply", "--confirm", "1h30m", "--exceptions", "-"},
                                         nullptr, &parsed, &error));
    EXPECT_EQ(parsed.confirmSeconds, 5400);
    EXPECT_TRUE(parsed.exceptions);
    EXPECT_EQ(parsed.positional, (std::vector<std::string>{"-"}));
}

TEST(CtlDryRunDiffTest, OnlyWhatChangesIsShownCountingRulesHeldTwice) {
    const std::vector<std::string> held = {"deny proto tcp", "allow proto udp", "deny proto tcp",
                                           "reset proto tcp dst-port 80"};
    const std::vector<std::string> wanted = {"allow proto udp", "deny proto tcp",
                                             "deny proto icmp"};
    qvctl::RuleDiff diff = qvctl::DiffRuleLists(held, wanted);
    EXPECT_EQ(diff.removed,
              (std::vector<std::string>{"deny proto tcp", "reset proto tcp dst-port 80"}));
    EXPECT_EQ(diff.added, (std::vector<std::string>{"deny proto icmp"}));
    EXPECT_EQ(qvctl::FormatRuleDiff(diff),
              "- deny proto tcp\n- reset proto tcp dst-port 80\n+ deny proto icmp\n");
    EXPECT_EQ(qvctl::FormatRuleDiff(qvctl::DiffRuleLists(held, held)), "no change\n");
    EXPECT_EQ(qvctl::FormatRuleDiff(qvctl::DiffRuleLists({}, {"allow proto udp"})),
              "+ allow proto udp\n");
}

}  // namespace
