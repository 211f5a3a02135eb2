// libQvLog: line format, level filtering, whole lines under concurrency, null contexts.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "DbgLog.h"
#include "LogLine.h"
#include "QvLog.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace {

using qvtest::readFile;
using qvtest::splitLines;
using qvtest::TempDir;

qvlog::LogStamp FixedStamp() {
    qvlog::LogStamp stamp{};
    stamp.localTime = tm{7, 5, 9, 22, 10, 2026 - 1900, 0, 0, 0, 0, nullptr};  // 09:05:07
    stamp.milliseconds = 23;
    stamp.pid = 1234;
    stamp.tid = 1240;
    return stamp;
}

std::string Format(const char* name, const char* text, int level = 3) {
    char line[qvlog::kMaxLineBytes];
    size_t length = qvlog::FormatLogLine(line, sizeof line, FixedStamp(), level, name, text);
    return std::string(line, length);
}

TEST(LogLineTest, LaysOutTimeLevelIdsNameAndTextCuttingWhatIsTooLong) {
    const std::string prefix = "2026-11-22 09:05:07.023 <3> 1234:1240 ";
    const std::string longName(500, 'N');
    const std::string longText(9000, 'x');
    const struct {
        std::string name;
        std::string text;
        std::string line;  // after the prefix
    } rows[] = {
        {"QvFw", "RuleMgr::DoCmd failed", "QvFw RuleMgr::DoCmd failed\n"},
        // Exactly one trailing newline is dropped.
        {"n", "text\n", "n text\n"},
        {"n", "text\n\n", "n text\n\n"},
        {"n", "", "n \n"},
        {longName, longText,
         std::string(qvlog::kMaxNameBytes, 'N') + " " + std::string(qvlog::kMaxTextBytes, 'x') +
             "\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Format(row.name.c_str(), row.text.c_str()), prefix + row.line)
            << row.line.substr(0, 40);
    }
}

// A context on a file in a fresh directory, released at scope end.
class LogFileTest : public ::testing::Test {
protected:
    void TearDown() override { QvrnReleaseDbgLog(m_context); }
    void* Open(int level) {
        m_context = QvrnCreateDbgLog("QvFw", path().c_str(), level);
        return m_context;
    }
    std::string path() const { return m_dir.file("QvFw.log"); }

    TempDir m_dir;
    void* m_context = nullptr;
};

TEST_F(LogFileTest, WritesLevelsUpToTheContextLevelWithLocalTimeAndIds) {
    ASSERT_NE(Open(4), nullptr);
    EXPECT_TRUE(QvrnIsEnableLog(m_context, 4));
    EXPECT_FALSE(QvrnIsEnableLog(m_context, 5));
    time_t before = time(nullptr);
    for (int level = 0; level <= 7; ++level) {
        QvrnWriteDbgLog(m_context, level, "%s %d\n", "level", level);
    }
    QvrnSetDbgLogLevel(m_context, 1);
    QvrnWriteDbgLog(m_context, 2, "dropped after lowering");
    QvrnWriteDbgLog(m_context, 1, "kept after lowering");

    std::vector<std::string> lines = splitLines(readFile(path()));
    ASSERT_EQ(lines.size(), 6u);
    std::regex layout(
        R"(^(\d{4}-\d\d-\d\d \d\d:\d\d):\d\d\.\d{3} <(\d)> (\d+):(\d+) QvFw level (\d)$)");
    for (int level = 0; level <= 4; ++level) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(lines[level], match, layout)) << lines[level];
        EXPECT_EQ(match[2], std::to_string(level));
        EXPECT_EQ(match[5], std::to_string(level));
        EXPECT_EQ(std::stol(match[3]), static_cast<long>(getpid()));
        EXPECT_EQ(std::stol(match[4]), static_cast<long>(syscall(SYS_gettid)));
        struct tm local {};
        localtime_r(&before, &local);
        char expected[32];
        strftime(expected, sizeof expected, "%Y-%m-%d %H:%M", &local);
        EXPECT_EQ(match[1].str(), expected);
    }
    EXPECT_NE(lines[5].find("kept after lowering"), std::string::npos);

    // Levels outside 0..7 are clamped.
    QvrnSetDbgLogLevel(m_context, 99);
    EXPECT_TRUE(QvrnIsEnableLog(m_context, 7));
    EXPECT_FALSE(QvrnIsEnableLog(m_context, 8));
    QvrnSetDbgLogLevel(m_context, -5);
    EXPECT_TRUE(QvrnIsEnableLog(m_context, 0));
    EXPECT_FALSE(QvrnIsEnableLog(m_context, 1));
}

TEST_F(LogFileTest, CreatesTheFileOnItsFirstLineAndAppendsAndRefusesNulls) {
    qvtest::writeFile(path(), "earlier content\n");
    ASSERT_NE(Open(7), nullptr);
    QvrnWriteDbgLog(m_context, 6, "appended");
    std::vector<std::string> lines = splitLines(readFile(path()));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "earlier content");

    void* other = QvrnCreateDbgLog("Other", (m_dir.file("new.log")).c_str(), 99);
    EXPECT_TRUE(QvrnIsEnableLog(other, 7) && !QvrnIsEnableLog(other, 8)) << "level clamped to 7";
    struct stat info {};
    EXPECT_NE(stat((m_dir.file("new.log")).c_str(), &info), 0) << "created before any line";
    QvrnWriteDbgLog(other, 6, "first");
    ASSERT_EQ(stat((m_dir.file("new.log")).c_str(), &info), 0);
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(info.st_mode & 0777, 0644 & ~mask);
    QvrnReleaseDbgLog(other);
    // Without a name or path there is no context, and a null one does nothing.
    EXPECT_EQ(QvrnCreateDbgLog(nullptr, "/tmp/x", 3), nullptr);
    EXPECT_EQ(QvrnCreateDbgLog("n", nullptr, 3), nullptr);
    EXPECT_EQ(QvrnIsEnableLog(nullptr, 0), 0);
    QvrnWriteDbgLog(nullptr, 0, "%s", "ignored");
    QvrnSetDbgLogLevel(nullptr, 7);
    QvrnReleaseDbgLog(nullptr);

    // A line for a directory that does not exist yet is lost; later ones are kept.
    std::string dir = m_dir.file("later");
    void* later = QvrnCreateDbgLog("QvFw", (dir + "/x.log").c_str(), 7);
    ASSERT_NE(later, nullptr);
    QvrnWriteDbgLog(later, 3, "lost: no directory yet");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    QvrnWriteDbgLog(later, 3, "kept");
    QvrnReleaseDbgLog(later);
    lines = splitLines(readFile(dir + "/x.log"));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("kept"), std::string::npos);
}

// The payload of each line names its writer and sequence number and carries filler long
// enough that interleaved writes would show.
std::string Payload(int writer, int sequence) {
    return "w" + std::to_string(writer) + " s" + std::to_string(sequence) + " " +
           std::string(300 + (sequence % 7) * 100, static_cast<char>('a' + writer % 26));
}

// Every line is one of the expected payloads, whole, and each appears exactly once.
void ExpectWholeLines(const std::string& content, int writers, int count) {
    std::vector<std::string> lines = splitLines(content);
    ASSERT_EQ(lines.size(), static_cast<size_t>(writers * count));
    std::vector<std::vector<int>> seen(writers, std::vector<int>(count, 0));
    std::regex layout(R"(^\S+ \S+ <6> \d+:\d+ Conc w(\d+) s(\d+) .*$)");
    for (const std::string& line : lines) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, layout)) << line.substr(0, 120);
        int writer = std::stoi(match[1]);
        int sequence = std::stoi(match[2]);
        ASSERT_LT(writer, writers);
        ASSERT_LT(sequence, count);
        size_t textStart = line.find(" w" + std::to_string(writer) + " ") + 1;
        ASSERT_EQ(line.substr(textStart), Payload(writer, sequence));
        ++seen[writer][sequence];
    }
    for (const auto& writer : seen) {
        for (int times : writer) {
            EXPECT_EQ(times, 1);
        }
    }
}

// Four processes, each with its own context, and eight threads of this one sharing a
// context, all writing to one file at once.
TEST(LogConcurrencyTest, ProcessesAndThreadsOnOneFileWriteWholeLines) {
    TempDir dir;
    std::string path = dir.file("shared.log");
    constexpr int kProcesses = 4;
    constexpr int kThreads = 8;
    constexpr int kLines = 300;
    auto writeLines = [](void* context, int writer) {
        for (int i = 0; i < kLines; ++i) {
            QvrnWriteDbgLog(context, 6, "%s", Payload(writer, i).c_str());
        }
    };
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        pid_t child = fork();  // before any thread starts
        ASSERT_GE(child, 0);
        if (child == 0) {
            void* context = QvrnCreateDbgLog("Conc", path.c_str(), 7);
            writeLines(context, kThreads + p);
            QvrnReleaseDbgLog(context);
            _exit(0);
        }
        children.push_back(child);
    }
    void* context = QvrnCreateDbgLog("Conc", path.c_str(), 7);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back(writeLines, context, t);
    }
    qvtest::joinAll(threads);
    QvrnReleaseDbgLog(context);
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    ExpectWholeLines(readFile(path), kThreads + kProcesses, kLines);
}

}  // namespace
