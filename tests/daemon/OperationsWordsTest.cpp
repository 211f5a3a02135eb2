// qvfwctl's words for operating the firewall, on strings: durations, the time a rule has
// left, which options go with which command, and the difference a dry run prints.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CtlArguments.h"
#include "DryRunDiff.h"
#include "DurationWords.h"

namespace {

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
