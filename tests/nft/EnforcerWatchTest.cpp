// What ipfw-enforcer makes of the kernel's announcements, on events: the handles it lists
// for a delete, and which transactions it takes for someone else's change of its tables.
#include <gtest/gtest.h>

#include "ipfwnft/HandleCache.h"
#include "ipfwnft/TamperWatch.h"

namespace {

using ipfwnft::KernelRule;
using ipfwnft::RulesetEvent;
using Kind = RulesetEvent::Kind;

RulesetEvent Event(Kind kind, const std::string& table, const std::string& chain = "",
                   uint64_t handle = 0, const std::string& text = "") {
    RulesetEvent event;
    event.kind = kind;
    event.table = table;
    event.chain = chain;
    event.handle = handle;
    event.text = text;
    return event;
}

RulesetEvent Generation(uint32_t port, int64_t pid, const std::string& process) {
    RulesetEvent event;
    event.kind = Kind::Generation;
    event.port = port;
    event.pid = pid;
    event.process = process;
    return event;
}

// "HANDLE TEXT" of each listed rule, or "unknown".
std::string Listed(const ipfwnft::HandleCache& cache, const std::string& chain) {
    std::vector<KernelRule> rules;
    if (!cache.listChain("inet ipfw_s0", chain, rules)) {
        return "unknown";
    }
    std::string text;
    for (const KernelRule& rule : rules) {
        text += std::to_string(rule.handle) + " " + rule.text + ";";
    }
    return text;
}

TEST(HandleCache, ListsOnlyChainsWhoseWholeLifeWasAnnounced) {
    ipfwnft::HandleCache cache;
    // A chain of a table that was there before the watch began may hold rules never seen.
    cache.take(Event(Kind::ChainAdded, "inet ipfw_s0", "rules_in"));
    cache.take(Event(Kind::RuleAdded, "inet ipfw_s0", "rules_in", 4, "jump rules_in_b12"));
    EXPECT_EQ(Listed(cache, "rules_in"), "unknown");

    cache.take(Event(Kind::TableAdded, "inet ipfw_s0"));
    cache.take(Event(Kind::ChainAdded, "inet ipfw_s0", "rules_in"));
    cache.take(Event(Kind::ChainAdded, "inet ipfw_s0", "rules_in_b12"));
    cache.take(Event(Kind::RuleAdded, "inet ipfw_s0", "rules_in", 7, "jump rules_in_b12"));
    cache.take(Event(Kind::RuleAdded, "inet ipfw_s0", "rules_in_b12", 8, "comment \"3100\""));
    cache.take(Event(Kind::RuleAdded, "inet ipfw_s0", "rules_in_b12", 9, "comment \"3110\""));
    // Another family's table of the same name, and tables of others, are not ours.
    cache.take(Event(Kind::RuleDeleted, "ip ipfw_s0", "rules_in_b12", 8));
    cache.take(Event(Kind::TableAdded, "inet other"));
    EXPECT_EQ(Listed(cache, "rules_in"), "7 jump rules_in_b12;");
    EXPECT_EQ(Listed(cache, "rules_in_b12"), "8 comment \"3100\";9 comment \"3110\";");

    // Announced again, a table or chain was only changed and keeps what it holds.
    cache.take(Event(Kind::TableAdded, "inet ipfw_s0"));
    cache.take(Event(Kind::ChainAdded, "inet ipfw_s0", "rules_in_b12"));
    cache.take(Event(Kind::RuleDeleted, "inet ipfw_s0", "rules_in_b12", 8));
    EXPECT_EQ(Listed(cache, "rules_in_b12"), "9 comment \"3110\";");

    cache.take(Event(Kind::ChainDeleted, "inet ipfw_s0", "rules_in_b12"));
    EXPECT_EQ(Listed(cache, "rules_in_b12"), "unknown");
    cache.take(Event(Kind::ChainAdded, "inet ipfw_s0", "rules_in_b12"));
    EXPECT_EQ(Listed(cache, "rules_in_b12"), "") << "created anew, empty";

    cache.forget();
    EXPECT_EQ(Listed(cache, "rules_in"), "unknown");
    cache.take(Event(Kind::TableAdded, "inet ipfw_s0"));
    cache.take(Event(Kind::TableDeleted, "inet ipfw_s0"));
    cache.take(Event(Kind::ChainAdded, "inet ipfw_s0", "rules_in"));
    EXPECT_EQ(Listed(cache, "rules_in"), "unknown") << "its table is gone";
}

TEST(TamperWatch, ReportsOthersTransactionsThatTouchedTheTables) {
    ipfwnft::TamperWatch watch([](uint32_t port) { return port == 77; });
    ipfwnft::Tampering found;
    // The enforcer's own rebuild.
    EXPECT_FALSE(watch.take(Event(Kind::TableDeleted, "inet ipfw"), found));
    EXPECT_FALSE(watch.take(Event(Kind::TableAdded, "inet ipfw"), found));
    EXPECT_FALSE(watch.take(Generation(77, 4100, "ipfw-enforcer"), found));
    // Someone else's, of other tables only.
    EXPECT_FALSE(watch.take(Event(Kind::RuleAdded, "inet filter", "input", 3), found));
    EXPECT_FALSE(watch.take(Generation(9000, 9000, "nft"), found));
    // nft flush ruleset.
    EXPECT_FALSE(watch.take(Event(Kind::RuleDeleted, "inet ipfw_s0", "rules_in", 3), found));
    EXPECT_FALSE(watch.take(Event(Kind::TableDeleted, "inet ipfw_s0"), found));
    EXPECT_FALSE(watch.take(Event(Kind::OtherChange, "inet ipfw"), found));
    EXPECT_FALSE(watch.take(Event(Kind::TableDeleted, "inet filter"), found));
    ASSERT_TRUE(watch.take(Generation(9001, 9001, "nft"), found));
    EXPECT_EQ(found.describe(),
              "process 9001 (nft) changed table inet ipfw, deleted table inet ipfw_s0");
    // A transaction whose beginning was lost is not pinned on whoever commits next.
    EXPECT_FALSE(watch.take(Event(Kind::RuleDeleted, "inet ipfw_s1", "rules_out", 5), found));
    watch.reset();
    EXPECT_FALSE(watch.take(Generation(9002, 9002, "nft"), found));
}

}  // namespace
