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
