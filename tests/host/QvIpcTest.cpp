// ipc::call against real Unix-socket listeners: round trips, absent and silent services,
// broken frames, and the frame layout on plain bytes.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "HostService.h"
#include "QvFrame.h"
#include "QvIpc.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace {

using qvtest::ScopedEnv;
using qvtest::secondsSince;
using qvtest::TempDir;
using Clock = std::chrono::steady_clock;
using Bytes = std::string;

// Frames carry little-endian numbers, as this host stores them.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "frames are little-endian");
Bytes Le32(uint32_t value) {
    return Bytes(reinterpret_cast<const char*>(&value), 4);
}

// The service answers each request with the command as code and the payload as reply:
// bytes and codes, negative ones and empty replies included, pass both ways unchanged,
// and eight threads calling at once each get their own reply.
TEST(IpcCallTest, RoundTripsCommandPayloadCodeAndReply) {
    TempDir dir;
    ScopedEnv socketPath("QV_IPC_SOCKET", dir.file("svc.sock"));
    qvtest::UnixServer service(dir.file("svc.sock"), [](int fd) {
        qvtest::ServiceCall request;
        if (qvtest::HostService::readCall(fd, &request)) {
            qvtest::sendAll(fd, Le32(request.command) +
                                    Le32(static_cast<uint32_t>(request.payload.size())) +
                                    request.payload);
        }
    });
    ASSERT_TRUE(service.listening());
    const Bytes request("event\0bytes", 11);
    void* reply = nullptr;
    int replyLength = 0;
    EXPECT_EQ(
        ipc::call(65567, request.data(), static_cast<int>(request.size()), &reply, &replyLength),
        65567);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(Bytes(static_cast<char*>(reply), replyLength), request);
    ipc::free(reply, replyLength);

    reply = reinterpret_cast<void*>(0x1);
    replyLength = 99;
    EXPECT_EQ(ipc::call(-20010, nullptr, 0, &reply, &replyLength), -20010);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(replyLength, 0);
    ipc::free(nullptr, 0);
    // Invalid arguments are refused before any connection.
    EXPECT_EQ(ipc::call(1, "x", -1, &reply, &replyLength), -1);
    EXPECT_EQ(ipc::call(1, nullptr, 4, &reply, &replyLength), -1);
    EXPECT_EQ(ipc::call(1, "x", 1, nullptr, &replyLength), -1);
    EXPECT_EQ(ipc::call(1, "x", 1, &reply, nullptr), -1);

    constexpr int kThreads = 8;
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &good] {
            for (int round = 0; round < 20; ++round) {
                Bytes payload = "t" + std::to_string(t) + "r" + std::to_string(round);
                void* reply = nullptr;
                int length = 0;
                int code = ipc::call(100 + t, payload.data(), static_cast<int>(payload.size()),
                                     &reply, &length);
                if (code == 100 + t && Bytes(static_cast<char*>(reply), length) == payload) {
                    ++good;
                }
                ipc::free(reply, length);
            }
        });
    }
    qvtest::joinAll(threads);
    EXPECT_EQ(good, kThreads * 20);
}

// Answers each request with `answer`, then closes.
std::function<void(int)> Answer(const Bytes& answer) {
    return [answer](int fd) {
        qvtest::ServiceCall request;
        if (qvtest::HostService::readCall(fd, &request)) {
            qvtest::sendAll(fd, answer);
        }
    };
}

TEST(IpcCallTest, BrokenServicesFailTheCallWithoutAReply) {
    std::atomic<bool> release{false};
    const auto silent = [&release](int fd) {
        qvtest::ServiceCall request;
        qvtest::HostService::readCall(fd, &request);
        qvtest::eventually([&release] { return release.load(); });
    };
    const struct {
        const char* name;
        std::function<void(int)> service;  // none: nobody listens
        double minSeconds;
        double maxSeconds;
    } rows[] = {
        {"absent", nullptr, 0, 1.0},
        {"silent", silent, 2.5, 6.0},
        {"closes mid-frame", Answer(Le32(0) + Le32(100) + Bytes(10, 'p')), 0, 2.5},
        {"short header", Answer(Bytes("\x00\x00\x00", 3)), 0, 2.5},
        // The whole payload follows, so only the length check can refuse it.
        {"oversized reply",
         Answer(Le32(0) + Le32(ipc::kMaxPayload + 1) + Bytes(ipc::kMaxPayload + 1, 'o')), 0, 6.0},
        // Closes without reading: writing the rest of the request must raise no SIGPIPE.
        {"hangs up", [](int) {}, 0, 2.5},
    };
    const Bytes large(4 * 1024 * 1024, 'z');
    for (const auto& row : rows) {
        release = false;
        TempDir dir;
        ScopedEnv socketPath("QV_IPC_SOCKET", dir.file("svc.sock"));
        std::unique_ptr<qvtest::UnixServer> service;
        if (row.service) {
            service = std::make_unique<qvtest::UnixServer>(dir.file("svc.sock"), row.service);
            ASSERT_TRUE(service->listening());
        }
        void* reply = reinterpret_cast<void*>(0x1);
        int replyLength = 99;
        Clock::time_point start = Clock::now();
        EXPECT_EQ(ipc::call(1, large.data(), static_cast<int>(large.size()), &reply, &replyLength),
                  -1)
            << row.name;
        double elapsed = secondsSince(start);
        release = true;
        EXPECT_GE(elapsed, row.minSeconds) << row.name;
        EXPECT_LT(elapsed, row.maxSeconds) << row.name;
        EXPECT_EQ(reply, nullptr) << row.name;
        EXPECT_EQ(replyLength, 0) << row.name;
    }
}

}  // namespace
