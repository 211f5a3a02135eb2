// ipfw-logd's part that works on strings: an NFLOG packet and its prefix into the
// kernel's log line, logamount counted in the rule state, verbose honoured.

#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwnft/KernelLogWriter.h"

namespace {

using namespace simtest;

// An IPv4 header from 10.0.0.9 to 10.0.0.2 and the first bytes after it.
std::vector<uint8_t> Ipv4(uint8_t proto, std::vector<uint8_t> transport) {
    std::vector<uint8_t> bytes = {0x45, 0, 0,  40, 0, 0, 0,  0, 64, proto,
                                  0,    0, 10, 0,  0, 9, 10, 0, 0,  2};
    for (uint8_t byte : transport) {
        bytes.push_back(byte);
    }
    return bytes;
}

class KernelLogWriterTest : public ::testing::Test {
protected:
    void Ipfw(const std::string& line) {
        std::vector<std::string> words;
        for (size_t at = 0, next; at != std::string::npos;
             at = next == std::string::npos ? next : next + 1) {
            next = line.find(' ', at);
            words.push_back(line.substr(at, next == std::string::npos ? next : next - at));
        }
        ASSERT_EQ(Simulator(env, store, console).run(words), 0) << console.errors;
    }
    std::string Log(const std::string& prefix, const std::vector<uint8_t>& payload) {
        ipfwnft::LoggedPacket packet{prefix, payload, "eth0", "eth1"};
        EXPECT_TRUE(ipfwnft::KernelLogWriter(env, store).write(packet).ok());
        std::string text = env.files["/var/log/ipfw.log"];
        env.files.clear();
        return text;
    }

    FakeEnvironment env;
    MemoryStore store;
    FakeConsole console;
};

TEST_F(KernelLogWriterTest, WritesTheKernelLineForEachProtocolAndDirection) {
    const std::string stamp = "Nov 14 22:13:20 myhost kernel: ";
    EXPECT_EQ(Log("3100 0 in Deny", Ipv4(6, {0x9c, 0x40, 0, 22})),
              stamp + "ipfw: 3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via eth0\n");
    EXPECT_EQ(Log("3110 0 out Unreach 3", Ipv4(17, {0, 53, 0x9c, 0x40})),
              stamp + "ipfw: 3110 Unreach 3 UDP 10.0.0.9:53 10.0.0.2:40000 out via eth1\n");
    EXPECT_EQ(Log("3120 0 in Reset", Ipv4(1, {8, 0})),
              stamp + "ipfw: 3120 Reset ICMP:8.0 10.0.0.9 10.0.0.2 in via eth0\n");
    EXPECT_EQ(Log("3130 0 in Deny", Ipv4(47, {})),
              stamp + "ipfw: 3130 Deny P:47 10.0.0.9 10.0.0.2 in via eth0\n");
    EXPECT_EQ(Log("some other prefix", Ipv4(6, {0, 1, 0, 2})), "");
    EXPECT_EQ(Log("3100 0 in Deny", {0x60, 0, 0, 0}), "") << "not IPv4";
}

TEST_F(KernelLogWriterTest, HonoursLogamountAndVerbose) {
    Ipfw("-q add 3100 set 19 deny log logamount 2 proto tcp");
    Ipfw("-q add 3100 set 19 deny log proto udp");
    const std::vector<uint8_t> tcp = Ipv4(6, {0, 1, 0, 2});
    EXPECT_NE(Log("3100 0 in Deny", tcp), "");
    EXPECT_NE(Log("3100 0 in Deny", tcp).find("ipfw: limit 2 reached on entry 3100\n"),
              std::string::npos);
    EXPECT_EQ(Log("3100 0 in Deny", tcp), "");
    EXPECT_NE(Log("3100 1 in Deny", Ipv4(17, {0, 1, 0, 2})), "")
        << "the second rule 3100 has no limit";
    Ipfw("-q resetlog");
    EXPECT_NE(Log("3100 0 in Deny", tcp), "");
    Ipfw("-q disable verbose");
    EXPECT_EQ(Log("3100 1 in Deny", Ipv4(17, {0, 1, 0, 2})), "");
}

}  // namespace
