// The daemon's parsers on plain strings: its command line, the status record it writes
// and the stored options it reads.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "DaemonOptions.h"
#include "EventHub.h"
#include "IpfwProbe.h"
#include "QvControl.h"
#include "QvControlStatus.h"
#include "ServiceNotice.h"
#include "StoredOptions.h"
#include "TempDir.h"
#include "VelaEventLogMsg.pb.h"

namespace {

// Sockets come from the options, then the environment, then the defaults; the client cap
// and the frame time-out are whole numbers within their bounds.
TEST(DaemonOptionsTest, OptionsThenTheEnvironmentThenTheDefaultsAndNumbersWithinBounds) {
    qvfwd::DaemonOptions options;
    std::string error;
    qvfwd::DaemonEnvironment environment;
    environment.serviceSocket = "/svc";
    environment.controlSocket = "/ctl-env";
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({"--foreground", "--plugin=/p.so", "--control", "/c",
                                           "--max-clients=65536", "--frame-timeout", "1"},
                                          environment, &options, &error))
        << error;
    EXPECT_EQ(options.pluginPath, "/p.so");
    EXPECT_EQ(options.controlSocket, "/c");
    EXPECT_EQ(options.serviceSocket, "/svc");
    EXPECT_EQ(options.maxClients, 65536);
    EXPECT_EQ(options.frameTimeoutSeconds, 1);
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({}, environment, &options, &error));
    EXPECT_EQ(options.controlSocket, "/ctl-env");

    qvfwd::DaemonOptions defaults;
    ASSERT_TRUE(qvfwd::ParseDaemonOptions({}, {}, &defaults, &error));
    EXPECT_EQ(defaults.controlSocket, qvctl::kDefaultControlSocket);
    EXPECT_EQ(defaults.serviceSocket, "/var/run/Quorvane/QvrnCore.sock");
    EXPECT_EQ(defaults.maxClients, 1024);
    EXPECT_EQ(defaults.frameTimeoutSeconds, 10);

    // A refusal names the option, and for a number its value too.
    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{"--plugin"}, "--plugin"},
        {{"--daemonize"}, "--daemonize"},
        {{"--max-clients", "0"}, "--max-clients needs a number"},
        {{"--max-clients", "65537"}, "--max-clients needs a number"},
        {{"--max-clients", "-5"}, "--max-clients needs a number"},
        {{"--frame-timeout", "0"}, "--frame-timeout needs a number"},
        {{"--frame-timeout", "3601"}, "--frame-timeout needs a number"},
        {{"--frame-timeout", "1.5"}, "--frame-timeout needs a number"},
    };
    for (const auto& [arguments, said] : refused) {
        qvfwd::DaemonOptions unused;
        std::string reason;
        EXPECT_FALSE(qvfwd::ParseDaemonOptions(arguments, {}, &unused, &reason)) << said;
        EXPECT_NE(reason.find(said), std::string::npos) << reason;
        if (arguments.size() > 1) {
            EXPECT_NE(reason.find("'" + arguments[1] + "'"), std::string::npos) << reason;
        }
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

// ipfw's answer as the shell gives it: what it printed, then the status line the probe
// asks the shell to add.
class AnsweringRunner : public qor::vela::CommandRunner {
public:
    AnsweringRunner(std::string output, bool ran) : m_output(std::move(output)), m_ran(ran) {}

    qor::vela::Result<std::string> Run(const std::string& command, unsigned int) override {
        EXPECT_EQ(command.rfind("ipfw set show", 0), 0u) << command;
        return m_ran ? qor::vela::Result<std::string>::Success(m_output)
                     : qor::vela::Result<std::string>::Failure(kCannotRun);
    }

private:
    std::string m_output;
    bool m_ran;
};

std::unique_ptr<qor::vela::CommandRunner> Answering(const std::string& output, bool ran = true) {
    return std::make_unique<AnsweringRunner>(output, ran);
}

TEST(IpfwProbeTest, OnlyAnIpfwThatExitsZeroAnswersAndAFailureIsSaidInItsOwnWords) {
    std::string why;
    EXPECT_TRUE(qvfwd::IpfwProbe(Answering("enable 0 1 2\nipfw exit status 0\n")).Answers(&why));

    EXPECT_FALSE(qvfwd::IpfwProbe(Answering("sh: 1: ipfw: not found\n\nipfw exit status 127\n"))
                     .Answers(&why));
    EXPECT_EQ(why, "ipfw exited with status 127: sh: 1: ipfw: not found");

    EXPECT_FALSE(qvfwd::IpfwProbe(Answering("\nipfw exit status 74\n")).Answers(&why));
    EXPECT_EQ(why, "ipfw exited with status 74");

    // Killed at its time-out, or an answer cut off before the shell's status line.
    EXPECT_FALSE(qvfwd::IpfwProbe(Answering("", false)).Answers(&why));
    EXPECT_NE(why.find("did not answer in time"), std::string::npos);
    EXPECT_FALSE(qvfwd::IpfwProbe(Answering("enable 0 1 2\n")).Answers(&why));
    EXPECT_EQ(why, "ipfw gave no answer");
}

TEST(ServiceNoticeTest,
     TheStateReachesTheManagersSocketByPathOrAbstractNameAndNobodyIsToldOtherwise) {
    qvtest::TempDir dir;
    const std::string path = dir.file("notify");
    for (const std::string& name :
         {path, std::string("@qvfwd-notice-test-") + std::to_string(getpid())}) {
        int listener = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, name.data(), name.size());
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address),
                       static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size())),
                  0)
            << name;
        EXPECT_TRUE(qvfwd::ServiceNotice(name).Send("READY=1"));
        char received[64] = {};
        EXPECT_EQ(recv(listener, received, sizeof received - 1, MSG_DONTWAIT), 7) << name;
        EXPECT_STREQ(received, "READY=1");
        close(listener);
    }
    EXPECT_TRUE(qvfwd::ServiceNotice("").Send("READY=1"));
    EXPECT_FALSE(qvfwd::ServiceNotice("relative/notify").Send("READY=1"));
    EXPECT_FALSE(qvfwd::ServiceNotice(dir.file("nobody-listens")).Send("READY=1"));
}

std::string EventWithDetail(const std::string& detail) {
    qor::vela::EventLogItemFw event;
    event.set_detail(detail + std::string(1, '\0'));
    return event.SerializeAsString();
}

TEST(EventHubTest, LostLoggedPacketsAreCountedOnceFromTheHostServicesCopyOfTheLine) {
    EXPECT_EQ(qvfwd::LoggedPacketsLost(EventWithDetail("lost 16320 logged packets")), 16320);
    EXPECT_EQ(qvfwd::LoggedPacketsLost(EventWithDetail("lost 1 logged packet")), 1);
    EXPECT_EQ(qvfwd::LoggedPacketsLost(EventWithDetail("3100 Deny UDP 10.0.0.1:53 10.0.0.2:53 in")),
              0);
    EXPECT_EQ(qvfwd::LoggedPacketsLost(EventWithDetail("limit 5 reached on entry 3100")), 0);
    EXPECT_EQ(qvfwd::LoggedPacketsLost("not a record"), 0);

    qvfwd::EventHub hub(2);
    hub.Publish(qvctl::kFromHostService, EventWithDetail("lost 7 logged packets"));
    hub.Publish(qvctl::kFromCallback, EventWithDetail("lost 7 logged packets"));
    hub.Publish(qvctl::kFromHostService, EventWithDetail("lost 5 logged packets"));
    // The count outlives the kept window.
    hub.Publish(qvctl::kFromHostService,
                EventWithDetail("3100 Deny UDP 10.0.0.1:53 10.0.0.2:53 in"));
    EXPECT_EQ(hub.Counts().loggedPacketsLost, 12);
}

}  // namespace
