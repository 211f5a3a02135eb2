// The daemon's parsers on plain strings: its command line, the status record it writes
// and the stored options it reads.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DaemonOptions.h"
#include "QvControl.h"
#include "QvControlStatus.h"
#include "StoredOptions.h"

namespace {

TEST(DaemonOptionsTest, SocketsComeFromOptionsThenTheEnvironmentThenTheDefaults) {
    qvfwd::DaemonOptions options;
    std::string error;
    qvfwd::DaemonEnvironment environment;
    environment.serviceSocket = "/svc";
    environment.controlSocket = "/ctl-env";
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({"--foreground", "--plugin=/p.so", "--control", "/c"},
                                          environment, &options, &error));
    EXPECT_EQ(options.pluginPath, "/p.so");
    EXPECT_EQ(options.controlSocket, "/c");
    EXPECT_EQ(options.serviceSocket, "/svc");
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({}, environment, &options, &error));
    EXPECT_EQ(options.controlSocket, "/ctl-env");

    qvfwd::DaemonOptions defaults;
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({}, {}, &defaults, &error));
    EXPECT_EQ(defaults.controlSocket, qvctl::kDefaultControlSocket);
    EXPECT_EQ(defaults.serviceSocket, "/var/run/Quorvane/QvrnCore.sock");

    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"--plugin"}, std::vector<std::string>{"--daemonize"}}) {
        qvfwd::DaemonOptions refused;
        std::string reason;
        EXPECT_FALSE(qvfwd::ParseDaemonOptions(wrong, {}, &refused, &reason));
        EXPECT_NE(reason.find(wrong[0]), std::string::npos);
    }
}

TEST(DaemonStatusTest, TheRecordReadsBackFieldForFieldAndSkipsUnknownKeys) {
    qvctl::DaemonStatus status;
    status.pid = 42;
    status.uptimeSeconds = 7;
    status.pluginId = 128;
    status.pluginPath = "/lib/libQvFw.so";
    status.eventsFromService = 3;
    status.eventsFromCallback = 2;
    status.streamClients = 1;
    status.fwLogPath = "/log/ipfw.log";
    status.normalSet = 19;
    std::string text = qvctl::FormatStatus(status) + "from_a_newer_daemon=1\n";
    qvctl::DaemonStatus read = qvctl::ParseStatus(text);
    EXPECT_EQ(qvctl::FormatStatus(read), qvctl::FormatStatus(status));
}

TEST(StoredOptionsTest, OptionsComeFromTheFileAndMissingOnesKeepTheirDefaults) {
    const std::string plist =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        "<key>FwOptions</key>\n<dict>\n<key>default_set_num</key>\n<integer>7</integer>\n"
        "<key>fw_log_path</key>\n<string>/x/ipfw.log</string>\n</dict>\n</dict>\n</plist>\n";
    qvfwd::StoredOptions options;
    ASSERT_TRUE(qvfwd::ParseStoredOptions(plist, &options));
    EXPECT_EQ(options.normalSet, 7);
    EXPECT_EQ(options.exceptionSet, 18);
    EXPECT_EQ(options.fwLogPath, "/x/ipfw.log");
    EXPECT_EQ(options.syslogConf, "/etc/syslog.conf");

    qvfwd::StoredOptions untouched;
    EXPECT_FALSE(qvfwd::ParseStoredOptions("not a property list", &untouched));
    EXPECT_EQ(untouched.normalSet, 19);
}

}  // namespace
