// Random input, fixed seed: rule bodies built from the grammar's own words, and state
// files with damage. Nothing may crash; whatever is accepted must survive storage
// unchanged; whatever is refused must be refused with one of the real exit codes.

#include <gtest/gtest.h>

#include <random>

#include "SimFakes.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/RuleCodec.h"
#include "ipfwsim/RuleLister.h"
#include "ipfwsim/RuleParser.h"

namespace simtest {
namespace {

// `text` cut at every `separator`, empty pieces included.
std::vector<std::string> split(const std::string& text, char separator = ' ') {
    std::vector<std::string> pieces;
    for (size_t start = 0, end = 0; end != text.size(); start = end + 1) {
        end = std::min(text.find(separator, start), text.size());
        pieces.push_back(text.substr(start, end - start));
    }
    return pieces;
}

// Words of the grammar and some that are not (the double blank is the empty word).
const std::vector<std::string> kVocabulary = split(
    "allow deny reset unreach check-state count skipto prob 0.5 set 19 log logamount 3 not ! "
    "proto tcp udp icmp ip all from to any me src-ip dst-ip 10.0.0.0/8 1.2.3.4,localhost "
    "3232235777, 1.2.3.4:255.0.255.0 fileserver src-port dst-port 80,8000-8080 0-0 http "
    "icmptypes 8,0 tcpflags syn,!ack ! tcpoptions mss,!sack ipoptions rr iptos lowdelay mac "
    "any 00:1A:2b:3c:4d:5e 00:11:22:33:44:55/24 in out via en0 en* 3232235777 recv xmit "
    "keep-state setup established bogus  , /33 -1 65536 4000");

// Mostly whole options, now and then a stray word, so that both sides get exercised.
const std::vector<std::string> kFragments = split(
    "proto tcp|proto udp|not proto ip|src-ip me|dst-ip 10.0.0.0/8,localhost|"
    "src-ip 1.2.3.4:255.0.255.0|dst-port 80,8000-8080|src-port http|src-port any|"
    "icmptypes 8,0|tcpflags syn,!ack|tcpoptions mss,!sack|ipoptions rr,!ts|iptos lowdelay|"
    "mac any 00:1A:2b:3c:4d:5e|MAC 00:11:22:33:44:55/24 any|in|out|not in|via en0|"
    "not via en*|recv 10.0.0.1|xmit any|keep-state|setup|established|tcp from any to me 22|"
    "udp from not 10.0.0.1 53 to any",
    '|');

std::vector<std::string> randomBody(std::mt19937& random) {
    const std::vector<std::string> heads = {
        "allow",           "deny log",    "reset log logamount 2", "unreach 3",
        "prob 0.25 count", "skipto 4000", "check-state",           "set 19 allow"};
    std::vector<std::string> words = split(heads[random() % heads.size()]);
    for (size_t n = random() % 6; n > 0; --n) {
        const std::string piece = random() % 10 == 0 ? kVocabulary[random() % kVocabulary.size()]
                                                     : kFragments[random() % kFragments.size()];
        for (const std::string& word : split(piece)) {
            words.push_back(word);
        }
    }
    return words;
}

TEST(Robustness, RandomBodiesAreStoredExactlyOrRefusedProperly) {
    std::mt19937 random(20241122);
    FakeNames names;
    RuleLister lister(names);
    size_t accepted = 0;
    for (int i = 0; i < 20000; ++i) {
        std::vector<std::string> body = randomBody(random);
        Diagnostics diagnostics;
        StoredRule stored;
        uint64_t number = 0;
        Status status = RuleParser(names, diagnostics).parse(body, stored.rule, number);
        if (!status.ok()) {
            EXPECT_TRUE(status.code == kExitUsage || status.code == kExitDataErr ||
                        status.code == kExitNoHost)
                << status.code;
            EXPECT_FALSE(status.message.empty());
            continue;
        }
        ++accepted;
        stored.rule.number = 100;
        std::string line = StateFile::formatRuleLine(stored);
        line.pop_back();  // the newline
        StoredRule reread;
        ASSERT_TRUE(StateFile::parseRuleLine(line, reread)) << line;
        EXPECT_EQ(lister.body(reread.rule), lister.body(stored.rule));
        EXPECT_EQ(encodeRule(reread.rule), encodeRule(stored.rule));
    }
    EXPECT_GT(accepted, 4000u);
}

std::string damaged(const std::string& original, std::mt19937& random) {
    std::string text = original;
    std::uniform_int_distribution<size_t> at(0, text.size() - 1);
    switch (random() % 4) {
        case 0:
            text[at(random)] = static_cast<char>(random() % 256);
            break;
        case 1:
            text.resize(at(random));
            break;
        case 2:
            text.insert(at(random), "\n");
            break;
        default:
            text.erase(at(random), 1 + random() % 20);
            break;
    }
    return text;
}

TEST(Robustness, DamagedStateFilesNeverCrashAnyCommand) {
    Session session;
    session.run("-q add 3100 set 19 allow proto tcp src-ip me dst-ip 10.0.0.0/8 keep-state");
    session.run("-q add 3200 deny log logamount 2 proto udp dst-port 53");
    session.run("-q add 2100 reset proto tcp via en0");
    session.run("packet udp 1.1.1.1:1 2.2.2.2:53");
    session.run("packet tcp 10.0.0.2:5 10.1.1.1:80");
    const std::string original = session.store.bytes;
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i) {
        Session s;
        s.store.bytes = damaged(original, random);
        FirewallState state;
        Status load = FirewallState::load(s.store.bytes, state);
        EXPECT_TRUE(load.ok() || load.code == kExitDataErr);
        for (const char* command : {"show 3100", "show", "-q add 3300 allow proto tcp",
                                    "packet tcp 10.0.0.2:5 10.1.1.1:80"}) {
            s.run(command);
            EXPECT_TRUE(s.exitCode == kExitOk || s.exitCode == kExitDataErr ||
                        s.exitCode == kExitUnavailable)
                << command << " " << s.exitCode;
        }
    }
}

}  // namespace
}  // namespace simtest
