// ipfw-logd under a burst of 20,000 logged packets, in a network namespace of the test's
// own: every packet the kernel logged is either in the log or counted in a loss line.

#include <gtest/gtest.h>

#include "LogdWorld.h"

namespace {

using nfttest::LogdWorld;
using nfttest::LogTally;

constexpr int kBurst = 20000;

class NftLogBurstTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string whyNot;
        if (!nfttest::EnterPrivateNetwork(whyNot)) {
            GTEST_SKIP() << whyNot;
        }
    }
    void Start(const std::vector<std::string>& arguments = {}) {
        std::string whyNot;
        ASSERT_TRUE(m_world.Start(arguments, whyNot)) << whyNot;
    }
    // Once a marker is written, every packet before it is accounted for.
    LogTally TallyAfterMarkers(int sent) {
        const int markers = m_world.SendMarkersUntilOneIsWritten(30);
        EXPECT_GT(markers, 0) << m_world.LogdOutput();
        const LogTally tally = m_world.Tally();
        EXPECT_EQ(tally.written + tally.lost, sent + markers)
            << "written " << tally.written << ", lost " << tally.lost << "\n"
            << m_world.LogdOutput();
        return tally;
    }

    LogdWorld m_world{std::string(QV_BUILD_DIR) + "/nft"};
};

TEST_F(NftLogBurstTest, ABurstIsWrittenWhole) {
    Start();
    const int sent = m_world.SendBurst(kBurst);
    ASSERT_EQ(sent, kBurst);
    EXPECT_EQ(TallyAfterMarkers(sent).lost, 0);
}

// The receive buffer alone holds the burst while ipfw-logd does not read at all.
TEST_F(NftLogBurstTest, TheReceiveBufferHoldsABurstWhileTheReaderSleeps) {
    Start();
    m_world.Pause();
    const int sent = m_world.SendBurst(kBurst);
    m_world.Resume();
    EXPECT_EQ(TallyAfterMarkers(sent).lost, 0);
    EXPECT_EQ(m_world.LogdOutput().find("dropped"), std::string::npos) << m_world.LogdOutput();
}

// A buffer far too small for a burst that comes while the reader sleeps: the kernel
// drops most of it, and the log says exactly how many.
TEST_F(NftLogBurstTest, WhatTheKernelDroppedIsCountedToThePacket) {
    Start({"--receive-buffer", "100000"});
    m_world.Pause();
    const int sent = m_world.SendBurst(kBurst);
    m_world.Resume();
    const LogTally tally = TallyAfterMarkers(sent);
    EXPECT_GT(tally.lost, 0);
    EXPECT_GT(tally.written, 0);
    EXPECT_NE(m_world.LogdOutput().find("the kernel dropped logged packets"), std::string::npos)
        << m_world.LogdOutput();
}

}  // namespace
