// Where the host's configuration is found (QvGetFilePath), the debug level it gives
// (QvInitDebugByConfig, with real files and log directories), and libQvUtil's own
// diagnostics log, which goes into a temporary directory for the whole binary, set
// before main so that no test can make the library open its log elsewhere first.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>

#include "QvLog.h"
#include "QvUtil.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace {

const std::string& UtilLogDir() {
    static qvtest::TempDir dir;
    return dir.path();
}
[[maybe_unused]] const bool g_utilLogDirSet = setenv("QV_LOG_DIR", UtilLogDir().c_str(), 1) == 0;

using qvtest::readFile;
using qvtest::ScopedEnv;
using qvtest::TempDir;

// The configuration directory joined with the name, or a refusal that leaves the buffer
// alone (emptied when the path did not fit).
TEST(QvGetFilePathTest, JoinsTheConfigurationDirectoryAndName) {
    TempDir dir;
    qvtest::writeFile(dir.file("file"), "");
    const std::string fits = dir.file("name");
    const struct {
        const char* why;
        std::string confDir;
        size_t size;
        const char* name;
        bool found;
        std::string buffer;
    } rows[] = {
        {"plain", dir.path(), 512, "QvFw.conf.plist", true, dir.file("QvFw.conf.plist")},
        {"trailing slashes", dir.path() + "//", 512, "x", true, dir.file("x")},
        {"exact fit", dir.path(), fits.size() + 1, "name", true, fits},
        {"no room for the NUL", dir.path(), fits.size(), "name", false, ""},
        {"missing directory", dir.file("absent"), 512, "a.plist", false, "unchanged"},
        {"not a directory", dir.file("file"), 512, "a.plist", false, "unchanged"},
        {"null name", dir.path(), 512, nullptr, false, "unchanged"},
        {"empty name", dir.path(), 512, "", false, "unchanged"},
        {"size 0", dir.path(), 0, "a", false, "unchanged"},
    };
    for (const auto& row : rows) {
        ScopedEnv conf("QV_CONF_DIR", row.confDir);
        char buffer[512] = "unchanged";
        EXPECT_EQ(QvGetFilePath(buffer, row.size, row.name) != 0, row.found) << row.why;
        EXPECT_EQ(std::string(buffer), row.buffer) << row.why;
    }
    EXPECT_EQ(QvGetFilePath(nullptr, 64, "a"), 0);
}

TEST(QvGetFilePathTest, DefaultsToTheHostConfigurationDirectory) {
    ScopedEnv unset("QV_CONF_DIR", nullptr);
    char buffer[512];
    struct stat info {};
    bool present = stat("/etc/Quorvane/QvrnCore", &info) == 0 && S_ISDIR(info.st_mode);
    int found = QvGetFilePath(buffer, sizeof buffer, "QvFw.conf.plist");
    EXPECT_EQ(found != 0, present);
    if (found) {
        EXPECT_STREQ(buffer, "/etc/Quorvane/QvrnCore/QvFw.conf.plist");
    }
}

TEST(UtilLogTest, DiagnosticsGoToTheLogDirectoryAtTheSetLevel) {
    std::string logPath = UtilLogDir() + "/QvUtil.log";
    const std::string line = "<3> ";
    const std::string message = " QvUtil QvGetFilePath invalid argument";
    char buffer[16];
    size_t before = qvtest::countOf(readFile(logPath), message);

    QvSetUtilDebugLevel(2);
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, nullptr), 0);  // reported at level 3
    EXPECT_EQ(qvtest::countOf(readFile(logPath), message), before);

    QvSetUtilDebugLevel(3);
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, nullptr), 0);
    QvSetUtilDebugLevel(4);
    std::string log = readFile(logPath);
    EXPECT_EQ(qvtest::countOf(log, message), before + 1) << log;
    EXPECT_NE(log.find(line), std::string::npos) << log;
}

std::string XmlPlist(const std::string& debugLevelValue) {
    return qvtest::plistDocument("<dict>\n\t<key>FwOptions</key>\n\t<dict/>\n" + debugLevelValue +
                                 "</dict>\n");
}

std::string XmlWithLevel(const std::string& element) {
    return XmlPlist("\t<key>DebugLevel</key>\n\t" + element + "\n");
}

// A configuration directory and a log directory, with the environment pointing at both.
class DebugConfigTest : public ::testing::Test {
protected:
    DebugConfigTest()
        : m_confEnv("QV_CONF_DIR", m_conf.path()),
          m_logEnv("QV_LOG_DIR", m_logs.file("QvrnCore")) {}
    void TearDown() override { QvrnReleaseDbgLog(m_context); }

    // Writes the configuration, sets up the context and returns the level it got.
    int LevelFor(const std::string& configuration) {
        qvtest::writeFile(m_conf.file("QvFw.conf.plist"), configuration);
        return Init();
    }
    int Init(const char* confName = "QvFw.conf.plist") {
        QvrnReleaseDbgLog(m_context);
        m_context = nullptr;
        EXPECT_NE(QvInitDebugByConfig(&m_context, confName, "QvFw",
                                      "/var/log/Quorvane/QvrnCore/QvFw.log"),
                  0);
        int level = -1;
        while (level < 7 && QvrnIsEnableLog(m_context, level + 1)) {
            ++level;
        }
        return level;
    }
    std::string logFile() const { return m_logs.file("QvrnCore/QvFw.log"); }

    TempDir m_conf;
    TempDir m_logs;
    ScopedEnv m_confEnv;
    ScopedEnv m_logEnv;
    void* m_context = nullptr;
};

// The level each configuration gives: its root DebugLevel when that is an integer from
// 0 to 7, else 4. Reading is the same for binary files (tests/platform reads those).
TEST_F(DebugConfigTest, LevelComesFromTheConfigurationOrIsFour) {
    const struct {
        const char* name;
        std::string configuration;
        int level;
    } rows[] = {
        {"XML 6", XmlWithLevel("<integer>6</integer>"), 6},
        {"XML 0", XmlWithLevel("<integer>0</integer>"), 0},
        {"XML 7", XmlWithLevel("<integer>7</integer>"), 7},
        {"XML 9", XmlWithLevel("<integer>9</integer>"), 4},
        {"XML -1", XmlWithLevel("<integer>-1</integer>"), 4},
        {"string", XmlWithLevel("<string>6</string>"), 4},
        {"real", XmlWithLevel("<real>6.5</real>"), 4},
        {"boolean", XmlWithLevel("<true/>"), 4},
        {"nested key only",
         XmlPlist(
             "\t<key>Nested</key>\n\t<dict><key>DebugLevel</key><integer>6</integer></dict>\n"),
         4},
        {"no DebugLevel key", XmlPlist(""), 4},
        {"empty file", "", 4},
        {"not a property list", "not a property list", 4},
        {"cut XML", XmlWithLevel("<integer>6</integer>").substr(0, 200), 4},
        {"array root",
         "<?xml version=\"1.0\"?><plist "
         "version=\"1.0\"><array><integer>6</integer></array></plist>",
         4},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(LevelFor(row.configuration), row.level) << row.name;
    }
    // Absent, unnamed, in a missing directory, or a directory.
    EXPECT_EQ(Init("Absent.plist"), 4);
    EXPECT_EQ(Init(nullptr), 4);
    ASSERT_EQ(mkdir((m_conf.file("Dir.plist")).c_str(), 0755), 0);
    EXPECT_EQ(Init("Dir.plist"), 4);
    ScopedEnv noConfDir("QV_CONF_DIR", m_conf.file("absent"));
    EXPECT_EQ(Init(), 4);
}

// The log goes into $QV_LOG_DIR (created), or without it to the given path.
TEST_F(DebugConfigTest, LogGoesIntoTheLogDirectoryOrTheGivenPath) {
    Init();
    QvrnWriteDbgLog(m_context, 3, "%s started", "FwMgr::Init");
    EXPECT_NE(readFile(logFile()).find("<3> "), std::string::npos);
    EXPECT_NE(readFile(logFile()).find(" QvFw FwMgr::Init started"), std::string::npos);

    QvrnReleaseDbgLog(m_context);
    m_context = nullptr;
    ScopedEnv noRedirect("QV_LOG_DIR", nullptr);
    std::string path = m_logs.file("deep/er/QvFw.log");
    ASSERT_NE(QvInitDebugByConfig(&m_context, "QvFw.conf.plist", "QvFw", path.c_str()), 0);
    QvrnWriteDbgLog(m_context, 2, "hello");
    EXPECT_NE(readFile(path).find(" QvFw hello"), std::string::npos);
}

TEST_F(DebugConfigTest, RefusesNullArguments) {
    EXPECT_EQ(QvInitDebugByConfig(nullptr, "a", "QvFw", "/x/QvFw.log"), 0);
    EXPECT_EQ(QvInitDebugByConfig(&m_context, "a", nullptr, "/x/QvFw.log"), 0);
    EXPECT_EQ(QvInitDebugByConfig(&m_context, "a", "QvFw", nullptr), 0);
    EXPECT_EQ(m_context, nullptr);
}

}  // namespace
