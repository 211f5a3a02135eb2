// FrameChannel on a socketpair: a payload grows only as its bytes arrive, and a frame that
// stops half-way ends the read after the stall time while a peer idle between frames may
// wait for as long as the channel's own time-out allows.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <new>
#include <string>
#include <thread>

#include "FrameChannel.h"
#include "QvFrame.h"
#include "TestUtil.h"

// ThreadSanitizer's runtime brings its own operator new, which cannot be replaced; its
// builds leave the allocation test out (the test-tsan run does not select this suite).
#if defined(__SANITIZE_THREAD__)
#define QV_COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QV_COUNTS_ALLOCATIONS 0
#endif
#endif
#ifndef QV_COUNTS_ALLOCATIONS
#define QV_COUNTS_ALLOCATIONS 1
#endif

#if QV_COUNTS_ALLOCATIONS
namespace {

// The largest single allocation made while `g_recording` is set: what a read asked the
// allocator for, however briefly it held it.
std::atomic<bool> g_recording{false};
std::atomic<size_t> g_largestAllocation{0};

}  // namespace

void* operator new(size_t size) {
    if (g_recording.load(std::memory_order_relaxed)) {
        size_t seen = g_largestAllocation.load();
        while (size > seen && !g_largestAllocation.compare_exchange_weak(seen, size)) {
        }
    }
    void* memory = malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        abort();
    }
    return memory;
}

// GCC cannot see that the operator new above hands out malloc's memory.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    free(memory);
}
#pragma GCC diagnostic pop
#endif

namespace {

using Clock = std::chrono::steady_clock;

// A header announcing `length` bytes after `head`.
std::string Header(uint32_t head, uint32_t length) {
    uint8_t header[ipc::kHeaderBytes];
    ipc::EncodeHeader({head, length}, header, UINT32_MAX);
    return std::string(reinterpret_cast<char*>(header), sizeof header);
}

class SocketPair {
public:
    SocketPair() {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        reader = fds[0];
        writer = fds[1];
    }
    ~SocketPair() {
        close(reader);
        CloseWriter();
    }
    void CloseWriter() {
        if (writer >= 0) {
            close(writer);
            writer = -1;
        }
    }
    // A header announcing `length` bytes after `head`, then `bytes`.
    void Send(uint32_t head, uint32_t length, const std::string& bytes) {
        SendRaw(Header(head, length) + bytes);
    }
    void SendRaw(const std::string& bytes) { ASSERT_TRUE(qvtest::sendAll(writer, bytes)); }

    int reader = -1;
    int writer = -1;
};

#if QV_COUNTS_ALLOCATIONS
TEST(HostFrameChannelTest, APayloadGrowsWithTheBytesThatArriveNotWithTheAnnouncedLength) {
    SocketPair pair;
    // The largest frame announced, a hundred kilobytes sent, then silence.
    pair.Send(7, ipc::kMaxPayload, std::string(100 * 1024, 'x'));
    qvctl::FrameChannel channel(pair.reader, -1, -1, ipc::kMaxPayload, 200);
    qvctl::Frame frame;
    g_largestAllocation = 0;
    g_recording = true;
    const qvctl::FrameStatus status = channel.Read(&frame);
    g_recording = false;
    EXPECT_EQ(status, qvctl::FrameStatus::kStalled);
    EXPECT_LT(g_largestAllocation.load(), size_t(1024 * 1024))
        << "a read allocated for bytes that never came";
    EXPECT_TRUE(frame.payload.empty()) << "a dropped frame is not handed out";
}
#endif

TEST(HostFrameChannelTest, FramesArrivingInUnevenPiecesAreReadWholeAndInOrder) {
    SocketPair pair;
    std::string large(ipc::kMaxPayload, '\0');
    for (size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<char>(i * 131 + i / 4099);
    }
    const std::string small = "after the large one";
    std::thread writer([&] {
        const std::string bytes = Header(1, static_cast<uint32_t>(large.size())) + large +
                                  Header(2, static_cast<uint32_t>(small.size())) + small;
        // Pieces of odd sizes, split inside headers too, with short pauses between some.
        size_t done = 0;
        for (size_t piece = 3; done < bytes.size(); piece = piece * 7 % 300007 + 1) {
            const size_t size = std::min(piece, bytes.size() - done);
            pair.SendRaw(bytes.substr(done, size));
            done += size;
            if (piece % 5 == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        }
    });
    qvctl::FrameChannel channel(pair.reader, -1, 10000, ipc::kMaxPayload, 2000);
    qvctl::Frame frame;
    ASSERT_EQ(channel.Read(&frame), qvctl::FrameStatus::kOk);
    EXPECT_EQ(frame.head, 1u);
    EXPECT_TRUE(frame.payload == large) << "the large payload differs from what was sent";
    ASSERT_EQ(channel.Read(&frame), qvctl::FrameStatus::kOk);
    EXPECT_EQ(frame.head, 2u);
    EXPECT_EQ(frame.payload, small);
    writer.join();
    pair.CloseWriter();
    EXPECT_EQ(channel.Read(&frame), qvctl::FrameStatus::kClosed);
}

TEST(HostFrameChannelTest, AFrameThatStopsHalfWayIsDroppedAfterTheStallTimeWhereverItStops) {
    struct Case {
        const char* where;
        std::string bytes;  // after which nothing more comes
    };
    const std::string whole = Header(9, 100);
    const Case cases[] = {
        {"inside the header", whole.substr(0, 3)},
        {"after the header", whole},
        {"inside the payload", whole + std::string(40, 'p')},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.where);
        SocketPair pair;
        pair.SendRaw(c.bytes);
        // No time-out between frames: only the stall limit can end this read.
        qvctl::FrameChannel channel(pair.reader, -1, -1, ipc::kMaxPayload, 300);
        qvctl::Frame frame;
        const auto start = Clock::now();
        EXPECT_EQ(channel.Read(&frame), qvctl::FrameStatus::kStalled);
        EXPECT_GE(qvtest::secondsSince(start), 0.29);
        EXPECT_LT(qvtest::secondsSince(start), 5.0);
    }
}

TEST(HostFrameChannelTest, TheStallTimeCountsFromTheLastByteAndNotFromTheFramesStart) {
    SocketPair pair;
    const std::string payload(30, 's');
    std::thread trickle([&] {
        pair.Send(4, static_cast<uint32_t>(payload.size()), "");
        // One byte every 50 ms: 1.5 s in all, five times the stall time, never a stall.
        for (char byte : payload) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            pair.SendRaw(std::string(1, byte));
        }
    });
    qvctl::FrameChannel channel(pair.reader, -1, -1, ipc::kMaxPayload, 300);
    qvctl::Frame frame;
    EXPECT_EQ(channel.Read(&frame), qvctl::FrameStatus::kOk);
    EXPECT_EQ(frame.payload, payload);
    trickle.join();
}

TEST(HostFrameChannelTest, BetweenFramesOnlyTheChannelsOwnTimeOutApplies) {
    SocketPair pair;
    qvctl::FrameChannel channel(pair.reader, -1, 600, ipc::kMaxPayload, 100);
    qvctl::Frame frame;
    auto start = Clock::now();
    EXPECT_EQ(channel.Read(&frame), qvctl::FrameStatus::kTimedOut);
    EXPECT_GE(qvtest::secondsSince(start), 0.59) << "an idle peer was cut off by the stall time";

    // Without a stall limit a frame cut short waits for the channel's time-out, as before.
    SocketPair unlimited;
    unlimited.Send(5, 10, "abc");
    qvctl::FrameChannel plain(unlimited.reader, -1, 300);
    start = Clock::now();
    EXPECT_EQ(plain.Read(&frame), qvctl::FrameStatus::kTimedOut);
    EXPECT_GE(qvtest::secondsSince(start), 0.29);

    // A peer that hangs up inside a frame is malformed, between frames closed.
    SocketPair hangsUp;
    hangsUp.Send(5, 10, "abc");
    hangsUp.CloseWriter();
    EXPECT_EQ(qvctl::FrameChannel(hangsUp.reader, -1, -1, ipc::kMaxPayload, 5000).Read(&frame),
              qvctl::FrameStatus::kMalformed);
}

}  // namespace
