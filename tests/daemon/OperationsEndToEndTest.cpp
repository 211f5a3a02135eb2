// Operating qvfwd end to end, in a DaemonSandbox: the events file as JSON lines through a
// move and SIGHUP, the change record's client, the metrics read by Prometheus's own
// parser and scraped through node exporter over loopback, rules that expire (a restart in
// between), a list put back when not confirmed, a dry run, and rsyslog shipping the file.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "DaemonJson.h"

namespace qvdaemontest {
namespace {

using google::protobuf::Value;
using qvtest::readFile;
using qvtest::writeFile;

// Prints every sample of a Prometheus text file as "NAME LABEL=VALUE,... VALUE".
const char kParseMetrics[] =
    "python3 -c 'import sys\n"
    "from prometheus_client.parser import text_string_to_metric_families as families\n"
    "for family in families(open(sys.argv[1]).read()):\n"
    "    for s in family.samples:\n"
    "        print(s.name, \",\".join(k + \"=\" + v for k, v in sorted(s.labels.items())), "
    "s.value)\n"
    "' ";

constexpr char kRsyslogd[] = "/usr/sbin/rsyslogd";
constexpr char kNodeExporter[] = "/usr/bin/prometheus-node-exporter";

std::vector<Value> Records(const std::string& path) {
    std::vector<Value> records;
    const std::string text = readFile(path);
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
        records.push_back(ParseJson(text.substr(start, end - start)));
    }
    return records;
}

// The first record of `type` in the file whose field `key` holds `value`, waiting for it.
bool WaitForRecord(const std::string& path, const std::string& type, const std::string& key,
                   const std::string& value, Value* found, double seconds = 20) {
    return WaitFor(
        [&] {
            for (const Value& record : Records(path)) {
                const Value& field = Field(record, key);
                const std::string text =
                    field.has_string_value()
                        ? field.string_value()
                        : std::to_string(static_cast<long long>(field.number_value()));
                if (Field(record, "type").string_value() == type && text == value) {
                    *found = record;
                    return true;
                }
            }
            return false;
        },
        seconds);
}

int FreeLoopbackPort() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    close(fd);
    return ntohs(address.sin_port);
}

class DaemonOperationsTest : public ::testing::Test {
protected:
    std::string Ctl(const std::string& arguments) { return qvdaemontest::Ctl(sandbox, arguments); }
    std::vector<int> Listed(const std::string& part = "") {
        return ListedNumbers(sandbox, "list", part);
    }

    // Samples of a Prometheus text, one per line, as Prometheus's own parser read them.
    std::string ParsedMetrics(const std::string& path) {
        RunResult parsed = sandbox.Run(kParseMetrics + path);
        EXPECT_EQ(parsed.exitCode, 0) << parsed.err;
        return parsed.out;
    }

    std::string Arguments() const {
        return "--events-file " + sandbox.file("events.jsonl") + " --metrics-file " +
               sandbox.file("textfile/qvfwd.prom") + " --state-dir " + sandbox.file("state");
    }

    void SetUp() override {
        std::filesystem::create_directories(sandbox.file("textfile"));
        std::filesystem::create_directories(sandbox.file("state"));
        ASSERT_TRUE(sandbox.StartDaemon(Arguments())) << sandbox.daemonLog();
    }

    DaemonSandbox sandbox;
};

TEST_F(DaemonOperationsTest, EventsMetricsExpiryAndUndoneChangesAsAnOperatorMeetsThem) {
    const std::string events = sandbox.file("events.jsonl");
    EXPECT_EQ(Ctl("add deny proto tcp dst-port 22 in"), "added rule 3100 to the normal set\n");
    sandbox.Run("ipfw packet tcp 10.0.0.9:40000 10.0.0.2:22 in via en0");
    Value packet;
    ASSERT_TRUE(WaitForRecord(events, "packet", "src_port", "40000", &packet)) << readFile(events);
    // The fields read from this very line are DaemonEventRecordTest's; here where the
    // running daemon puts the rule and when it saw the packet.
    EXPECT_EQ(Field(packet, "line").string_value(),
              "3100 Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0");
    EXPECT_EQ(Field(packet, "rule").number_value(), 3100);
    EXPECT_EQ(Field(packet, "set").number_value(), 19);
    EXPECT_EQ(Field(packet, "list").string_value(), "normal");
    EXPECT_TRUE(std::regex_match(Field(packet, "time").string_value(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z)")))
        << Field(packet, "time").string_value();

    // Who added the rule: this process's user, through qvfwctl; in qvfwd's log too.
    Value change;
    ASSERT_TRUE(WaitForRecord(events, "change", "command", "add", &change));
    EXPECT_EQ(Field(change, "uid").number_value(), static_cast<double>(geteuid()));
    EXPECT_EQ(Field(change, "program").string_value(), "qvfwctl");
    EXPECT_GT(Field(change, "pid").number_value(), 0);
    EXPECT_EQ(Field(change, "rule_text").string_value(),
              "deny log logamount 0 proto tcp dst-port 22 in");
    EXPECT_EQ(Field(change, "code").number_value(), 0);
    EXPECT_NE(sandbox.daemonLog().find("change by uid " + std::to_string(geteuid())),
              std::string::npos)
        << sandbox.daemonLog();

    // logrotate's default: the file moved away, then SIGHUP; new records in a new file.
    std::filesystem::rename(events, events + ".1");
    kill(sandbox.daemonPid(), SIGHUP);
    ASSERT_TRUE(WaitFor([&] { return std::filesystem::exists(events); }, 20));
    sandbox.Run("ipfw packet tcp 10.0.0.9:40001 10.0.0.2:22 in via en0");
    ASSERT_TRUE(WaitForRecord(events, "packet", "src_port", "40001", &packet)) << readFile(events);
    EXPECT_EQ(readFile(events + ".1").find("40001"), std::string::npos);

    // The metrics, as the control socket and the file give them, read by Prometheus's parser.
    writeFile(sandbox.file("metrics.txt"), Ctl("metrics"));
    const std::string parsed = ParsedMetrics(sandbox.file("metrics.txt"));
    for (const char* sample :
         {"qvfwd_rules list=normal,set=19 1.0\n", "qvfwd_events_total action=deny,set=19 2.0\n",
          "qvfwd_handler_calls_total code=0,command=add 1.0\n",
          "qvfwd_handler_duration_seconds_count command=add 1.0\n"}) {
        EXPECT_NE(parsed.find(sample), std::string::npos) << sample << "\n" << parsed;
    }
    ASSERT_TRUE(WaitFor(
        [&] {
            return ParsedMetrics(sandbox.file("textfile/qvfwd.prom"))
                       .find("qvfwd_events_total action=deny,set=19 2.0\n") != std::string::npos;
        },
        20));

    // A rule for 3 seconds is gone within 4, and its expiry is recorded.
    EXPECT_NE(Ctl("add --for 3s deny proto udp dst-port 53").find("expires in 3s"),
              std::string::npos);
    EXPECT_EQ(Listed("dst-port 53"), std::vector<int>{3110});
    EXPECT_NE(Ctl("list").find("LEFT"), std::string::npos);
    EXPECT_TRUE(WaitFor([&] { return Listed("dst-port 53").empty(); }, 4)) << Ctl("list");
    Value expiry;
    ASSERT_TRUE(WaitForRecord(events, "expiry", "rule", "3110", &expiry));
    EXPECT_EQ(Field(expiry, "code").number_value(), 0);

    // A rule for 6 seconds outlives a restart, and is deleted after it.
    Ctl("add --for 6s deny proto tcp dst-port 8080");
    ASSERT_EQ(sandbox.StopDaemon(SIGTERM), 0);
    ASSERT_TRUE(sandbox.StartDaemon(Arguments())) << sandbox.daemonLog();
    EXPECT_EQ(Listed("dst-port 8080").size(), 1u) << "back after the restart, until its deadline";
    EXPECT_TRUE(WaitFor([&] { return Listed("dst-port 8080").empty(); }, 10)) << Ctl("list");

    // A dry run says what would change, and changes nothing.
    const std::vector<int> before = Listed();
    EXPECT_EQ(Ctl("apply --dry-run 'deny proto tcp dst-port 22 in' 'allow proto udp'"),
              "+ allow proto udp\n");
    EXPECT_EQ(Listed(), before);

    // Applied with --confirm and never confirmed: the list as it was comes back.
    Ctl("apply --confirm 2s 'reset proto tcp dst-port 80'");
    EXPECT_EQ(Listed("dst-port 22").size(), 0u);
    EXPECT_TRUE(WaitFor([&] { return Listed() == before; }, 6)) << Ctl("list");
    Value rollback;
    ASSERT_TRUE(WaitForRecord(events, "rollback", "list", "normal", &rollback));
    EXPECT_EQ(Field(rollback, "rules").number_value(), static_cast<double>(before.size()));
    // Confirmed in time, it stays.
    Ctl("apply --confirm 2s 'reset proto tcp dst-port 80'");
    Ctl("confirm");
    EXPECT_EQ(sandbox.Run("qvfwctl confirm").exitCode, 1);
    EXPECT_EQ(Listed("dst-port 80").size(), 1u);
}

TEST_F(DaemonOperationsTest, NodeExporterServesTheMetricsFileOverLoopback) {
    if (access(kNodeExporter, X_OK) != 0) {
        GTEST_SKIP() << kNodeExporter
                     << " is missing: scripts/setup installs Debian's prometheus-node-exporter";
    }
    const int port = FreeLoopbackPort();
    const std::string address = "127.0.0.1:" + std::to_string(port);
    pid_t exporter = sandbox.Spawn(std::string(kNodeExporter) + " --web.listen-address=" + address +
                                       " --collector.disable-defaults --collector.textfile"
                                       " --collector.textfile.directory=" +
                                       sandbox.file("textfile"),
                                   sandbox.file("exporter.log"));
    ASSERT_GT(exporter, 0);
    Ctl("add deny proto tcp dst-port 22");
    const std::string scrape =
        "python3 -c 'import urllib.request,sys; "
        "sys.stdout.write(urllib.request.urlopen(\"http://" +
        address + "/metrics\").read().decode())'";
    std::string scraped;
    EXPECT_TRUE(WaitFor(
        [&] {
            scraped = sandbox.Run(scrape).out;
            return scraped.find("qvfwd_rules{list=\"normal\",set=\"19\"} 1\n") != std::string::npos;
        },
        20))
        << scraped << readFile(sandbox.file("exporter.log.err"));
    EXPECT_NE(scraped.find("qvfwd_start_time_seconds "), std::string::npos);
    EXPECT_NE(scraped.find("node_textfile_scrape_error 0"), std::string::npos);
    kill(exporter, SIGTERM);
    DaemonSandbox::WaitExit(exporter, 10);
}

TEST_F(DaemonOperationsTest, RsyslogShipsTheEventsFileAcrossARotation) {
    const std::string events = sandbox.file("events.jsonl");
    std::filesystem::create_directories(sandbox.file("rsyslog"));
    writeFile(sandbox.file("rsyslog.conf"),
              "global(workDirectory=\"" + sandbox.file("rsyslog") +
                  "\")\n"
                  "module(load=\"imfile\" mode=\"inotify\")\n"
                  "input(type=\"imfile\" file=\"" +
                  events +
                  "\" tag=\"qvfwd\" ruleset=\"ship\"\n"
                  "      reopenOnTruncate=\"on\")\n"
                  "template(name=\"line\" type=\"string\" string=\"%msg%\\n\")\n"
                  "ruleset(name=\"ship\") {\n"
                  "  action(type=\"omfile\" file=\"" +
                  sandbox.file("shipped.jsonl") +
                  "\" template=\"line\")\n"
                  "}\n");
    if (access(kRsyslogd, X_OK) != 0) {
        GTEST_SKIP() << kRsyslogd << " is missing: scripts/setup installs Debian's rsyslog";
    }
    pid_t rsyslog =
        sandbox.Spawn(std::string(kRsyslogd) + " -n -f " + sandbox.file("rsyslog.conf") + " -i " +
                          sandbox.file("rsyslog.pid"),
                      sandbox.file("rsyslog.log"));
    ASSERT_GT(rsyslog, 0);
    Ctl("add deny proto tcp dst-port 22 in");
    sandbox.Run("ipfw packet tcp 10.0.0.9:40000 10.0.0.2:22 in via en0");
    Value shipped;
    EXPECT_TRUE(
        WaitForRecord(sandbox.file("shipped.jsonl"), "packet", "src_port", "40000", &shipped))
        << readFile(sandbox.file("rsyslog.log.err"));
    std::filesystem::rename(events, events + ".1");
    kill(sandbox.daemonPid(), SIGHUP);
    ASSERT_TRUE(WaitFor([&] { return std::filesystem::exists(events); }, 20));
    sandbox.Run("ipfw packet tcp 10.0.0.9:40001 10.0.0.2:22 in via en0");
    EXPECT_TRUE(
        WaitForRecord(sandbox.file("shipped.jsonl"), "packet", "src_port", "40001", &shipped))
        << readFile(sandbox.file("shipped.jsonl"));
    kill(rsyslog, SIGTERM);
    DaemonSandbox::WaitExit(rsyslog, 10);
}

}  // namespace
}  // namespace qvdaemontest
