// QvInitDebugByConfig with real configuration files and log directories.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "QvLog.h"
#include "QvUtil.h"
#include "host/HostTestSupport.h"

namespace {

using qvtest::readFile;
using qvtest::ScopedEnv;
using qvtest::TempDir;

std::string XmlPlist(const std::string& debugLevelValue) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n"
           "\t<key>FwOptions</key>\n\t<dict/>\n" +
           debugLevelValue + "</dict>\n</plist>\n";
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
