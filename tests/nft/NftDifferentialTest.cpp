// The compiled tables mean what the rules mean: random rule lists, built by random adds,
// deletes and set switches through the enforcing ipfw into the model kernel, and random
// packets through both the simulator's packet matcher and the tables; every packet must
// end at the same rule with the same action.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

#include "ModelKernel.h"
#include "ModelPacketPath.h"
#include "SimFakes.h"
#include "ipfwnft/EnforcingIpfw.h"
#include "ipfwnft/RuleKey.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/PacketMatcher.h"
#include "ipfwsim/RuleCodec.h"

namespace {

using namespace simtest;

constexpr int kLists = 200;
constexpr int kPacketsPerList = 600;
constexpr uint32_t kMe = 0x0a000002;  // the host's one address, for "me"

class RandomWords {
public:
    explicit RandomWords(uint32_t seed) : random_(seed) {}

    uint32_t below(uint32_t n) { return static_cast<uint32_t>(random_() % n); }

    template <size_t N>
    const char* pick(const char* const (&choices)[N]) {
        return choices[below(N)];
    }

    // A body with the words the plug-in writes, in its order, plus ipfw's other stateless
    // forms; small pools of values so that rules overlap and packets hit them.
    std::string body() {
        static const char* const kActions[] = {"allow",     "deny",      "reset",
                                               "unreach 3", "unreach 1", "count"};
        static const char* const kAddresses[] = {"10.0.0.1",
                                                 "10.0.0.0/24",
                                                 "10.0.1.0/24",
                                                 "10.0.0.0/16",
                                                 "192.168.1.5",
                                                 "10.0.0.1,10.0.2.0/24",
                                                 "10.0.0.7:255.255.0.255",
                                                 "me"};
        static const char* const kPorts[] = {"22", "80", "1000-1010", "22,80,443", "8000-8080,22"};
        static const char* const kProtocols[] = {"tcp", "udp", "icmp", "all", "ip"};
        static const char* const kDirections[] = {"", " in", " out"};
        static const char* const kInterfaces[] = {" via lo",  " via eth0",  " not via lo",
                                                  " via en*", " recv eth0", " xmit lo"};
        std::string text = pick(kActions);
        text += below(4) == 0 ? " log logamount 0" : "";
        const std::string proto = pick(kProtocols);
        text += below(8) == 0 ? " not proto udp" : " proto " + proto;
        const std::string source = below(2) == 0 ? "any" : pick(kAddresses);
        // "not" before "any" would negate the next option instead.
        text += std::string(below(6) == 0 && source != "any" ? " not" : "") + " src-ip " + source;
        if (below(4) == 0) {
            text += std::string(" src-port ") + pick(kPorts);
        }
        text += std::string(" dst-ip ") + (below(2) == 0 ? "any" : pick(kAddresses));
        if (below(2) == 0) {
            text += std::string(" dst-port ") + pick(kPorts);
        }
        if (proto == "icmp" && below(2) == 0) {
            text += below(2) == 0 ? " icmptypes 8,0" : " icmptypes 3";
        }
        if (proto == "tcp" && below(4) == 0) {
            text += below(2) == 0 ? " tcpflags syn,!ack" : " established";
        }
        if (proto == "tcp" && below(6) == 0) {
            text += below(2) == 0 ? " tcpoptions mss,!sack" : " tcpoptions ts";
        }
        if (below(10) == 0) {
            text += below(2) == 0 ? " ipoptions rr,!lsrr" : " iptos lowdelay,!mincost";
        }
        return text + pick(kDirections) + (below(4) == 0 ? pick(kInterfaces) : "");
    }

    ipfwsim::Packet packet() {
        static const uint32_t kAddresses[] = {0x0a000001, 0x0a000007, 0x0a000103,
                                              0x0a000209, 0xc0a80105, kMe};
        static const uint16_t kPorts[] = {22, 80, 443, 1005, 8080, 5000};
        static const uint8_t kProtocols[] = {6, 6, 17, 17, 1, 47};
        static const char* const kInterfaces[] = {"lo", "eth0", "en1"};
        ipfwsim::Packet packet;
        packet.flow.proto = kProtocols[below(6)];
        packet.flow.srcAddress = kAddresses[below(6)];
        packet.flow.dstAddress = kAddresses[below(6)];
        if (packet.flow.proto == 6 || packet.flow.proto == 17) {
            packet.flow.srcPort = kPorts[below(6)];
            packet.flow.dstPort = kPorts[below(6)];
        }
        packet.tcpFlags = packet.flow.proto == 6 ? static_cast<uint8_t>(below(64)) : 0;
        packet.icmpType = packet.flow.proto == 1 ? static_cast<uint8_t>(below(10)) : 0;
        packet.tcpOptions = packet.flow.proto == 6 ? static_cast<uint8_t>(below(16)) : 0;
        packet.ipOptions = static_cast<uint8_t>(below(8));
        packet.ipTos = static_cast<uint8_t>(below(2) == 0 ? 0 : below(256));
        packet.outbound = below(2) == 0;
        packet.iface = kInterfaces[below(3)];
        packet.length = 60;
        return packet;
    }

private:
    std::mt19937 random_;
};

class NftDifferentialTest : public ::testing::Test {
protected:
    int ipfw(const std::string& line) {
        console.errors.clear();
        return ipfwnft::EnforcingIpfw(env, store, console, kernel).run(words(line));
    }

    // Rules added in random number order, some deleted and some sets switched off; sets
    // 18 and 19 as the plug-in writes, and others now and then; numbers over two tables.
    void buildRandomList(RandomWords& random, std::string& history) {
        const uint32_t count = 10 + random.below(50);
        for (uint32_t i = 0; i < count; ++i) {
            const uint32_t set = random.below(6) == 0 ? random.below(31) : 18 + random.below(2);
            const std::string command = "-q add " + std::to_string(1 + random.below(20000)) +
                                        " set " + std::to_string(set) + " " + random.body();
            ASSERT_EQ(ipfw(command), 0) << command << ": " << console.errors;
            history += command + "\n";
        }
        for (uint32_t i = random.below(4); i > 0; --i) {
            const std::string command = "-q delete " + std::to_string(1 + random.below(20000)) +
                                        "-" + std::to_string(1 + random.below(20000));
            ipfw(command);
            history += command + "\n";
        }
        for (uint32_t i = random.below(3); i > 0; --i) {
            const std::string command =
                std::string(random.below(3) == 0 ? "-q set enable " : "-q set disable ") +
                std::to_string(18 + random.below(2));
            ASSERT_EQ(ipfw(command), 0) << command << ": " << console.errors;
            history += command + "\n";
        }
    }

    FakeEnvironment env;
    MemoryStore store;
    FakeConsole console;
    nfttest::ModelKernel kernel;
};

TEST_F(NftDifferentialTest, EveryPacketMeetsTheSameRuleInTheTablesAsInTheSimulator) {
    RandomWords random(20261126);
    int packets = 0;
    std::map<std::string, int> actions;  // how many packets each action decided
    int looked = 0;                      // how many an element of a verdict map decided
    int unparsed = 0;                    // rules a change would leave unparsed
    for (int list = 0; list < kLists; ++list) {
        store = MemoryStore();
        kernel = nfttest::ModelKernel();
        std::string history;
        buildRandomList(random, history);
        ipfwsim::FirewallState state;
        ASSERT_TRUE(ipfwsim::FirewallState::load(store.bytes, state).ok());
        // A change leaves a rule unparsed when its stored words show it is no key: that
        // must never hide a key.
        for (const ipfwsim::RuleEntry& entry : state.rules()) {
            const ipfwsim::Rule& rule = entry.stored.rule;
            const std::string line = "0 0 0 0 0 " + ipfwsim::encodeRule(rule);
            ipfwnft::RuleKeys keys;
            for (ipfwnft::Pass pass : {ipfwnft::Pass::In, ipfwnft::Pass::Out}) {
                ASSERT_FALSE(ipfwnft::surelyNoKey(line) && ipfwnft::lookupKeys(rule, pass, keys))
                    << line;
            }
            unparsed += ipfwnft::surelyNoKey(line) ? 1 : 0;
        }
        ipfwsim::PacketMatcher matcher(state, ipfwsim::MatchContext{{kMe}, 0, [] { return 0u; }});
        for (int i = 0; i < kPacketsPerList; ++i, ++packets) {
            const ipfwsim::Packet packet = random.packet();
            const ipfwsim::Verdict expected = matcher.evaluate(packet);
            const nfttest::PathVerdict actual = nfttest::PacketPath(kernel, packet, {kMe}).run();
            ASSERT_EQ(actual.unknown, "") << history;
            ASSERT_EQ(actual.rule, expected.ruleNumber)
                << "packet proto " << int(packet.flow.proto) << " " << std::hex
                << packet.flow.srcAddress << ":" << std::dec << packet.flow.srcPort << " -> "
                << std::hex << packet.flow.dstAddress << ":" << std::dec << packet.flow.dstPort
                << (packet.outbound ? " out" : " in") << " via " << packet.iface << " flags "
                << int(packet.tcpFlags) << " icmp " << int(packet.icmpType) << "\nrules:\n"
                << history;
            ASSERT_EQ(actual.action, expected.action) << history;
            ++actions[expected.ruleNumber == ipfwsim::kDefaultRuleNumber ? "default"
                                                                         : actual.action];
            looked += actual.looked ? 1 : 0;
        }
    }
    EXPECT_GE(packets, 100000);
    // The lists decide a good share of the packets, with every action.
    for (const char* action : {"Accept", "Deny", "Reset", "Reject", "Unreach 3"}) {
        EXPECT_GT(actions[action], packets / 100) << action;
    }
    EXPECT_LT(actions["default"], packets * 3 / 4);
    EXPECT_GT(looked, packets / 20) << "keyed rules decide their share";
    EXPECT_GT(unparsed, kLists) << "the stored words rule out keys for many";
}

}  // namespace
