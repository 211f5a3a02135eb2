// The event watcher against a real log file: what it reports, with which notification
// flag, and that it follows the file through a rotation.
#include "EventWatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "InMemoryIpfw.h"
#include "RecordingEventSink.h"
#include "TempDir.h"

namespace {

using qor::vela::EventWatcher;

void append(const std::string& path, const std::string& line) {
    FILE* file = fopen(path.c_str(), "a");
    ASSERT_NE(file, nullptr);
    fputs(line.c_str(), file);
    fclose(file);
}

std::string denyLine(int rule) {
    return "Nov 26 03:00:00 host kernel: ipfw: " + std::to_string(rule) +
           " Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via eth0\n";
}

TEST(EventWatcherTest, ReportsNewLinesWithTheFlagAndFollowsRotation) {
    qvtest::TempDir dir;
    const std::string log = dir.file("ipfw.log");
    append(log, denyLine(2100));
    qvtest::InMemoryIpfw shell;
    qvtest::RecordingEventSink sink;
    std::atomic<bool> notify{false};
    EventWatcher watcher(
        shell, sink, [&notify] { return notify.load(); }, log);

    // The watcher reads from the end it found when it opened the file; until it reports
    // the first new line, that moment is unknown, so the line is written again.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (sink.reported().empty() && std::chrono::steady_clock::now() < deadline) {
        append(log, denyLine(3100));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    auto reported = sink.reported();
    ASSERT_FALSE(reported.empty());
    for (const auto& entry : reported) {
        EXPECT_EQ(entry.event.rule_index(), 3100) << "the line from before the start is no news";
        EXPECT_FALSE(entry.notify);
    }

    const size_t before = reported.size();
    notify = true;
    append(log, denyLine(3110));
    reported = sink.waitFor(before + 1);
    ASSERT_EQ(reported.size(), before + 1);
    EXPECT_EQ(reported.back().event.rule_index(), 3110);
    EXPECT_TRUE(reported.back().notify);

    // Rotated away: the new file under the same name is read from its beginning.
    ASSERT_EQ(rename(log.c_str(), (log + ".0").c_str()), 0);
    append(log, denyLine(3120));
    reported = sink.waitFor(before + 2);
    ASSERT_EQ(reported.size(), before + 2);
    EXPECT_EQ(reported.back().event.rule_index(), 3120);
}

}  // namespace
