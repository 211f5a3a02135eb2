// QvGetFilePath and libQvUtil's own diagnostics log.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "QvUtil.h"
#include "host/HostTestSupport.h"

namespace qvtest {
const std::string& UtilLogDir();
}

namespace {

using qvtest::ScopedEnv;
using qvtest::TempDir;

TEST(QvGetFilePathTest, JoinsTheConfigurationDirectoryAndName) {
    TempDir dir;
    ScopedEnv conf("QV_CONF_DIR", dir.path());
    char buffer[512];
    ASSERT_NE(QvGetFilePath(buffer, sizeof buffer, "QvFw.conf.plist"), 0);
    EXPECT_EQ(std::string(buffer), dir.file("QvFw.conf.plist"));

    ScopedEnv slashed("QV_CONF_DIR", dir.path() + "//");
    ASSERT_NE(QvGetFilePath(buffer, sizeof buffer, "x"), 0);
    EXPECT_EQ(std::string(buffer), dir.file("x"));
}

TEST(QvGetFilePathTest, FailsWhenTheDirectoryIsMissingOrNotADirectory) {
    TempDir dir;
    char buffer[512] = "unchanged";
    ScopedEnv missing("QV_CONF_DIR", dir.file("absent"));
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, "a.plist"), 0);

    qvtest::writeFile(dir.file("file"), "");
    ScopedEnv file("QV_CONF_DIR", dir.file("file"));
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, "a.plist"), 0);
}

TEST(QvGetFilePathTest, FailsWhenThePathDoesNotFit) {
    TempDir dir;
    ScopedEnv conf("QV_CONF_DIR", dir.path());
    std::string expected = dir.file("name");
    char buffer[512];
    EXPECT_EQ(QvGetFilePath(buffer, expected.size(), "name"), 0) << "no room for the NUL";
    EXPECT_STREQ(buffer, "");
    EXPECT_NE(QvGetFilePath(buffer, expected.size() + 1, "name"), 0);
    EXPECT_EQ(std::string(buffer), expected);
}

TEST(QvGetFilePathTest, RefusesNullArguments) {
    char buffer[64];
    EXPECT_EQ(QvGetFilePath(nullptr, sizeof buffer, "a"), 0);
    EXPECT_EQ(QvGetFilePath(buffer, 0, "a"), 0);
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, nullptr), 0);
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

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST(UtilLogTest, DiagnosticsGoToTheLogDirectoryAtTheSetLevel) {
    std::string logPath = qvtest::UtilLogDir() + "/QvUtil.log";
    const std::string line = "<3> ";
    const std::string message = " QvUtil QvGetFilePath invalid argument";
    char buffer[16];
    size_t before = CountOf(qvtest::readFile(logPath), message);

    QvSetUtilDebugLevel(2);
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, nullptr), 0);  // reported at level 3
    EXPECT_EQ(CountOf(qvtest::readFile(logPath), message), before);

    QvSetUtilDebugLevel(3);
    EXPECT_EQ(QvGetFilePath(buffer, sizeof buffer, nullptr), 0);
    QvSetUtilDebugLevel(4);
    std::string log = qvtest::readFile(logPath);
    EXPECT_EQ(CountOf(log, message), before + 1) << log;
    EXPECT_NE(log.find(line), std::string::npos) << log;
}

}  // namespace
