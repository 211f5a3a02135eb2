// ipfw-logd's part that works on strings: NFLOG packets and their prefixes into the
// kernel's log lines, logamount counted in the rule state, verbose honoured, a batch
// written at the cost of one packet, and the packets NFLOG numbered but never delivered
// counted in one line.

#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwnft/KernelLogWriter.h"
#include "ipfwnft/LogTag.h"

namespace {

using namespace simtest;
using ipfwnft::LoggedPacket;

const std::string kStamp = "Nov 14 22:13:20 myhost kernel: ";

// An IPv4 header from 10.0.0.9 to 10.0.0.2 and the first bytes after it.
std::vector<uint8_t> Ipv4(uint8_t proto, std::vector<uint8_t> transport) {
    std::vector<uint8_t> bytes = {0x45, 0, 0,  40, 0, 0, 0,  0, 64, proto,
                                  0,    0, 10, 0,  0, 9, 10, 0, 0,  2};
    for (uint8_t byte : transport) {
        bytes.push_back(byte);
    }
    return bytes;
}

// A TCP packet to port 22 from the given source port, so that lines can be told apart.
LoggedPacket Tcp(const std::string& prefix, uint16_t srcPort, std::optional<uint32_t> sequence) {
    return LoggedPacket{prefix, Ipv4(6, {uint8_t(srcPort >> 8), uint8_t(srcPort), 0, 22}), "eth0",
                        "eth1", sequence};
}

std::string TcpLine(uint32_t rule, uint16_t srcPort) {
    return kStamp + "ipfw: " + std::to_string(rule) +
           " Deny TCP 10.0.0.9:" + std::to_string(srcPort) + " 10.0.0.2:22 in via eth0\n";
}

std::string LostLine(uint64_t count) {
    return kStamp + "ipfw: lost " + std::to_string(count) + " logged packets\n";
}

// Counts what a batch costs: reads of the syslog configuration and appends per file.
class CountingEnvironment : public FakeEnvironment {
public:
    mutable int configurationReads = 0;
    std::map<std::string, int> appends;

    std::string syslogConfiguration() const override {
        ++configurationReads;
        return FakeEnvironment::syslogConfiguration();
    }
    Status appendToFile(const std::string& path, std::string_view text) override {
        ++appends[path];
        return FakeEnvironment::appendToFile(path, text);
    }
};

class CountingStore : public MemoryStore {
public:
    int reads = 0;
    Status readFailure = Status::success();

    Status read(std::string_view& content) override {
        ++reads;
        return readFailure.ok() ? MemoryStore::read(content) : readFailure;
    }
};

class KernelLogWriterTest : public ::testing::Test {
protected:
    void Ipfw(const std::string& line) {
        ASSERT_EQ(Simulator(env, store, console).run(splitAtBlanks(line)), 0) << console.errors;
    }
    // Writes the batch with the long-lived writer; the lines it appended to ipfw.log.
    std::string Write(const std::vector<LoggedPacket>& batch) {
        EXPECT_TRUE(writer.write(batch, store).ok());
        std::string text = env.files["/var/log/ipfw.log"];
        env.files.clear();
        return text;
    }
    std::string Log(const std::string& prefix, const std::vector<uint8_t>& payload) {
        return Write({LoggedPacket{prefix, payload, "eth0", "eth1", std::nullopt}});
    }

    CountingEnvironment env;
    CountingStore store;
    FakeConsole console;
    ipfwnft::KernelLogWriter writer{env};
};

TEST_F(KernelLogWriterTest, WritesTheKernelLineForEachProtocolAndDirection) {
    EXPECT_EQ(Log("3100 0 in Deny", Ipv4(6, {0x9c, 0x40, 0, 22})),
              kStamp + "ipfw: 3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via eth0\n");
    EXPECT_EQ(Log("3110 0 out Unreach 3", Ipv4(17, {0, 53, 0x9c, 0x40})),
              kStamp + "ipfw: 3110 Unreach 3 UDP 10.0.0.9:53 10.0.0.2:40000 out via eth1\n");
    EXPECT_EQ(Log("3120 0 in Reset", Ipv4(1, {8, 0})),
              kStamp + "ipfw: 3120 Reset ICMP:8.0 10.0.0.9 10.0.0.2 in via eth0\n");
    EXPECT_EQ(Log("3130 0 in Deny", Ipv4(47, {})),
              kStamp + "ipfw: 3130 Deny P:47 10.0.0.9 10.0.0.2 in via eth0\n");
    EXPECT_EQ(Log("some other prefix", Ipv4(6, {0, 1, 0, 2})), "");
    EXPECT_EQ(Log("3100 0 in Deny", {0x60, 0, 0, 0}), "") << "not IPv4";
}

TEST_F(KernelLogWriterTest, ReadsOnlyWellFormedTags) {
    ipfwnft::LogTag tag{3100, 2, true, "Unreach 3"};
    ipfwnft::LogTag read;
    ASSERT_TRUE(ipfwnft::LogTag::parse(tag.format(), read));
    EXPECT_EQ(read.number, 3100u);
    EXPECT_EQ(read.ordinal, 2u);
    EXPECT_TRUE(read.outbound);
    EXPECT_EQ(read.action, "Unreach 3");
    for (const char* bad :
         {"", "3100", "3100 0", "3100 0 in", "3100 0 sideways Deny", "x 0 in Deny",
          "3100 -1 in Deny", "99999999999 0 in Deny", "3100x 0 in Deny"}) {
        EXPECT_FALSE(ipfwnft::LogTag::parse(bad, read)) << bad;
    }
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

// A batch says in one go what its packets one by one would have said, limit line
// included, and costs one state read, one configuration read, one append per file and
// one state rewrite.
TEST_F(KernelLogWriterTest, ABatchCountsLogamountAsSinglePacketsWouldAndCostsOnePacket) {
    env.syslogConf = "!ipfw\n*.*\t/var/log/ipfw.log\n*.notice\t/var/log/alerts.log\n!*\n";
    Ipfw("-q add 3100 set 19 deny log logamount 2 proto tcp");
    Ipfw("-q add 3200 set 19 deny log proto tcp");
    const int replacesBefore = store.replaces;
    store.reads = 0;
    const std::vector<LoggedPacket> batch = {
        Tcp("3100 0 in Deny", 1, std::nullopt), Tcp("3200 0 in Deny", 2, std::nullopt),
        Tcp("3100 0 in Deny", 3, std::nullopt), Tcp("3100 0 in Deny", 4, std::nullopt),
        Tcp("3200 0 in Deny", 5, std::nullopt)};
    ASSERT_TRUE(writer.write(batch, store).ok());

    const std::string limit = kStamp + "ipfw: limit 2 reached on entry 3100\n";
    EXPECT_EQ(env.files["/var/log/ipfw.log"],
              TcpLine(3100, 1) + TcpLine(3200, 2) + TcpLine(3100, 3) + limit + TcpLine(3200, 5));
    EXPECT_EQ(env.files["/var/log/alerts.log"], limit);
    EXPECT_EQ(store.reads, 1);
    EXPECT_EQ(env.configurationReads, 1);
    EXPECT_EQ(env.appends,
              (std::map<std::string, int>{{"/var/log/alerts.log", 1}, {"/var/log/ipfw.log", 1}}));
    EXPECT_EQ(store.replaces, replacesBefore + 1);

    // The count was stored: the next batch finds the limit reached.
    env.files.clear();
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 6, std::nullopt)}), "");
    EXPECT_EQ(store.replaces, replacesBefore + 1) << "nothing counted, nothing rewritten";
}

TEST_F(KernelLogWriterTest, CountsTheGapsInNflogsNumbersInOneLinePerBatch) {
    // The kernel numbers from 0: the first batch already shows two lost.
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 1, 2), Tcp("3100 0 in Deny", 2, 3)}),
              LostLine(2) + TcpLine(3100, 1) + TcpLine(3100, 2));
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 3, 4)}), TcpLine(3100, 3)) << "no gap, no line";
    // Two gaps in one batch: one line, where the first gap was, counting both.
    EXPECT_EQ(
        Write({Tcp("3100 0 in Deny", 4, 5), Tcp("3100 0 in Deny", 5, 9),
               Tcp("3100 0 in Deny", 6, 10), Tcp("3100 0 in Deny", 7, 20)}),
        TcpLine(3100, 4) + LostLine(12) + TcpLine(3100, 5) + TcpLine(3100, 6) + TcpLine(3100, 7));
    // Packets that are not ours, or have no number, neither hide nor invent a gap.
    EXPECT_EQ(Write({LoggedPacket{"other", {}, "", "", 21}, Tcp("3100 0 in Deny", 8, std::nullopt),
                     Tcp("3100 0 in Deny", 9, 22)}),
              TcpLine(3100, 8) + TcpLine(3100, 9));
}

TEST_F(KernelLogWriterTest, CountsAcrossTheWrapOfTheNumbers) {
    // Walks up to the wrap in steps the counter takes as losses (below 2^31 each).
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 1, 0x7ffffff0u)}),
              LostLine(0x7ffffff0u) + TcpLine(3100, 1));
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 2, 0xfffffff0u)}),
              LostLine(0x7fffffffu) + TcpLine(3100, 2));
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 3, 0xfffffffeu)}), LostLine(13) + TcpLine(3100, 3));
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 4, 1)}), LostLine(2) + TcpLine(3100, 4))
        << "0xffffffff and 0 went missing";
    EXPECT_EQ(Write({Tcp("3100 0 in Deny", 5, 1)}), TcpLine(3100, 5))
        << "a number seen before is no loss";
}

TEST_F(KernelLogWriterTest, LossesAreRoutedAsNoticeAndSilentWithVerboseOff) {
    env.syslogConf = "!ipfw\n*.notice\t/var/log/alerts.log\n!*\n";
    ASSERT_TRUE(writer.write({Tcp("3100 0 in Deny", 1, 5)}, store).ok());
    EXPECT_EQ(env.files, (std::map<std::string, std::string>{{"/var/log/alerts.log", LostLine(5)}}))
        << "info lines stay out";

    Ipfw("-q disable verbose");
    env.files.clear();
    ASSERT_TRUE(writer.write({Tcp("3100 0 in Deny", 2, 10)}, store).ok());
    EXPECT_TRUE(env.files.empty()) << "verbose off writes nothing, losses included";
    Ipfw("-q enable verbose");
    ASSERT_TRUE(writer.write({Tcp("3100 0 in Deny", 3, 11)}, store).ok());
    EXPECT_TRUE(env.files.empty()) << "the gap was seen with verbose off; not counted again";
}

TEST_F(KernelLogWriterTest, AnUnreadableStateSaysHowManyPacketsWentUnwritten) {
    store.readFailure = Status::failure(74, "cannot open /x/rules: Permission denied");
    Status status = writer.write({Tcp("3100 0 in Deny", 1, 3), Tcp("3100 0 in Deny", 2, 4)}, store);
    EXPECT_EQ(status.code, 74);
    EXPECT_EQ(status.message,
              "cannot open /x/rules: Permission denied; 2 logged packets not written, 3 lost "
              "before them");
    EXPECT_TRUE(env.files.empty());
}

TEST_F(KernelLogWriterTest, AFailedAppendCountsNothing) {
    class FullDisk : public CountingEnvironment {
    public:
        Status appendToFile(const std::string&, std::string_view) override {
            return Status::failure(74, "cannot append to /var/log/ipfw.log: No space left");
        }
    } full;
    ipfwnft::KernelLogWriter fullWriter(full);
    Ipfw("-q add 3100 set 19 deny log logamount 1 proto tcp");
    const int replacesBefore = store.replaces;
    EXPECT_EQ(fullWriter.write({Tcp("3100 0 in Deny", 1, 0)}, store).code, 74);
    EXPECT_EQ(store.replaces, replacesBefore);
    EXPECT_NE(Write({Tcp("3100 0 in Deny", 2, std::nullopt)}).find("limit 1 reached"),
              std::string::npos)
        << "the packet that was not written did not use up the limit";
}

}  // namespace
