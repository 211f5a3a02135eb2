// qvfwd and qvfwctl end to end, as a person runs them: real processes, real sockets, a
// temporary state directory and the simulated ipfw.
#include <endian.h>
#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DaemonJson.h"
#include "FrameChannel.h"
#include "IpfwListing.h"
#include "QvControl.h"
#include "QvControlErrors.h"
#include "QvFirewall.h"
#include "QvFrame.h"

namespace qvdaemontest {
namespace {

using ::testing::HasSubstr;

using google::protobuf::Value;
using qvtest::readFile;
using qvtest::writeFile;

const char kSshDeny[] =
    R"({"action":"ACTION_DENY","protocol":{"type":"PROTO_SPECIFIED","protocol":"PROTO_VALUE_TCP"},)"
    R"("dst_port":{"port_type":"PORT_LIST","ports":[{"use_range":false,"port":22}]}})";
const char kWebReset[] =
    R"({"action":"ACTION_RESET","protocol":{"type":"PROTO_SPECIFIED","protocol":"PROTO_VALUE_TCP"},)"
    R"("dst_port":{"port_type":"PORT_LIST","ports":[{"use_range":false,"port":80}]}})";
const char kAdminAllow[] = R"({"action":"ACTION_ALLOW","src_ip":{"ip_type":"IP_LIST",)"
                           R"("ips":[{"use_host_name":true,"host":"admin.example"}]}})";
const char kUdpAllow[] =
    R"({"action":"ACTION_ALLOW","protocol":{"type":"PROTO_SPECIFIED","protocol":"PROTO_VALUE_UDP"}})";

std::string JsonText(const Value& value) {
    std::string text;
    google::protobuf::util::MessageToJsonString(value, &text);
    return text;
}

int StatusNumber(const DaemonSandbox& sandbox, const std::string& name) {
    Value status = ParseJson(sandbox.Run("qvfwctl status --json").out);
    return static_cast<int>(Field(Field(status, "daemon"), name).number_value());
}

// Starts qvfwd with `arguments` where it must refuse to run; its log, once it exited 1.
std::string RefusedStartLog(const DaemonSandbox& sandbox, const std::string& arguments) {
    const std::string log = sandbox.file("refused.log");
    std::filesystem::remove(log);
    EXPECT_EQ(DaemonSandbox::WaitExit(sandbox.SpawnDaemon(arguments, log), 30), 1) << arguments;
    return readFile(log);
}

class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(sandbox.StartDaemon()) << sandbox.daemonLog(); }

    std::string Ctl(const std::string& arguments, const std::string& input = "") {
        return qvdaemontest::Ctl(sandbox, arguments, input);
    }

    std::string IpfwShow() { return sandbox.Run("ipfw -S show").out; }
    // The numbers of the normal set's rules in ipfw whose text holds `part`.
    std::vector<int> Installed(const std::string& part) {
        std::vector<int> numbers;
        for (const qvtest::IpfwRuleLine& rule : qvtest::parseIpfwListing(IpfwShow())) {
            if (rule.set == 19 && rule.body.find(part) != std::string::npos) {
                numbers.push_back(rule.number);
            }
        }
        return numbers;
    }

    DaemonSandbox sandbox;
};

// The list's fields and the rule in words are the next test's; here each sub-command once.
TEST_F(DaemonTest, RulesOfBothSetsGoThroughTheirWholeLifecycleFromJson) {
    // Added from an argument, with --json, from a file and from standard input.
    EXPECT_EQ(Ctl(std::string("add '") + kSshDeny + "'"), "added rule 3100 to the normal set\n");
    Value added = ParseJson(Ctl(std::string("add --json '") + kWebReset + "'"));
    EXPECT_EQ(Field(added, "rule_index").number_value(), 3110);
    writeFile(sandbox.file("admin.json"), kAdminAllow);
    EXPECT_EQ(Ctl("add-exception " + sandbox.file("admin.json")),
              "added rule 2100 to the exception set\n");
    EXPECT_EQ(Ctl("add-rules -", std::string("[{\"order\":7,\"rule\":") + kUdpAllow + "}]"),
              "order 7 -> rule 3120\n");
    EXPECT_EQ(ListedNumbers(sandbox, "list"), (std::vector<int>{3100, 3110, 3120}));
    // What the daemon wrote is its user's alone, whatever umask it was started with.
    struct stat backup {};
    ASSERT_EQ(stat(sandbox.file("conf/backup/QvFw.conf.plist").c_str(), &backup), 0);
    EXPECT_EQ(backup.st_mode & 0777, 0600u);

    // The rule read back is a rule qvfwctl accepts again.
    Value listed = ParseJson(Ctl("list --json"));
    EXPECT_EQ(Field(listed, "set").number_value(), 19);
    const Value& first = Field(listed, "rules").list_value().values(0);
    EXPECT_EQ(Field(first, "ipfw").string_value(), "deny log logamount 0 proto tcp dst-port 22");
    EXPECT_THAT(Ctl("check '" + JsonText(Field(first, "rule")) + "'"),
                HasSubstr("ipfw accepts it"));

    Ctl("swap 3100 3110");
    Ctl(std::string("modify 3120 '") + kSshDeny + "'");
    const std::string installed = IpfwShow();
    for (const char* rule :
         {"03100 0 0 set 19 reset", "03110 0 0 set 19 deny",
          "03120 0 0 set 19 deny log ip from any to any proto tcp dst-port 22"}) {
        EXPECT_THAT(installed, HasSubstr(rule));
    }
    Ctl("delete 3100");
    Ctl("delete-exception 2100");
    EXPECT_EQ(ListedNumbers(sandbox, "list"), (std::vector<int>{3110, 3120}));
    EXPECT_TRUE(ListedNumbers(sandbox, "list-exceptions").empty());

    Value replaced =
        ParseJson(Ctl(std::string("set-exception-rules --json '[{\"order\":1,\"rule\":") +
                      kAdminAllow + "},{\"order\":2,\"rule\":" + kUdpAllow + "}]'"));
    ASSERT_EQ(replaced.list_value().values_size(), 2);
    EXPECT_EQ(ListedNumbers(sandbox, "list-exceptions"), (std::vector<int>{2100, 2110}));
    Ctl("flush-normal");
    Ctl("flush-exceptions");
    EXPECT_TRUE(ListedNumbers(sandbox, "list").empty());
    EXPECT_TRUE(ListedNumbers(sandbox, "list-exceptions").empty());

    EXPECT_EQ(sandbox.StopDaemon(SIGTERM), 0);
    EXPECT_THAT(sandbox.daemonLog(), HasSubstr("qvfwd: stopped"));
}

TEST_F(DaemonTest, RulesInWordsAreTheRulesOfTheirJsonAndListWithDottedAddressesAndCounters) {
    EXPECT_EQ(Ctl("add deny proto tcp src-ip 10.1.2.3 dst-port 2222 in"),
              "added rule 3100 to the normal set\n");
    Ctl(R"(add '{"action":"ACTION_DENY","protocol":{"type":"PROTO_SPECIFIED","protocol":)"
        R"("PROTO_VALUE_TCP"},"src_ip":{"ip_type":"IP_LIST","ips":[{"use_host_name":false,"ip":)"
        R"(167838211}]},"dst_port":{"port_type":"PORT_LIST","ports":[{"use_range":false,"port":)"
        R"(2222}]},"direction":"DIRECT_IN"}')");
    sandbox.Run("ipfw packet tcp 10.1.2.3:1234 10.0.0.2:2222 in via en0");

    const Value listed = ParseJson(Ctl("list --json"));
    const Value& words = Field(listed, "rules").list_value().values(0);
    const Value& json = Field(listed, "rules").list_value().values(1);
    EXPECT_EQ(Field(words, "packets").number_value(), 1);
    EXPECT_EQ(Field(json, "packets").number_value(), 0);
    // The same rule but for its number.
    Value rule = Field(words, "rule");
    (*rule.mutable_struct_value()->mutable_fields())["rule_index"] =
        Field(Field(json, "rule"), "rule_index");
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(rule, Field(json, "rule")))
        << JsonText(rule);
    EXPECT_THAT(Ctl("list"),
                HasSubstr("3100   19  deny   1        40       deny log logamount 0 proto tcp "
                          "src-ip 10.1.2.3 dst-port 2222 in"));

    // A list in words: one rule per line of standard input, comments skipped.
    EXPECT_EQ(Ctl("add-rules -", "# web\nallow proto tcp dst-port 80\n\nreset proto udp\n"),
              "order 1 -> rule 3120\norder 2 -> rule 3130\n");
    RunResult badList = sandbox.Run("qvfwctl add-rules 'allow proto udp' 'deny proto icmpp'");
    EXPECT_EQ(badList.exitCode, 2);
    EXPECT_THAT(badList.err, HasSubstr("rule 2: word 3 'icmpp'"));
}

TEST_F(DaemonTest, RefusalsPrintTheirCodeAndMeaningAndExitNonZero) {
    struct Case {
        std::string arguments;
        int exitCode;
        std::string message;
    };
    const Case cases[] = {
        {R"(add '{"action":"ACTION_DENY","actoin":1}')", 2, "actoin"},
        {R"(add '{"action":"ACTION_DENY"}')", 1, "error 20704: ipfw refused the rule"},
        {R"(check '{"action":"ACTION_UNREACH","unreach_code":999,"keep_state":true}')", 1,
         "unknown ICMP unreachable code"},
        {R"(add '{"action":"ACTION_ALLOW","src_ip":{"ip_type":"IP_LIST","ips":[{"use_host_name":true,"host":"a;touch x"}]}}')",
         1, "error 20706"},
        {"delete three", 2, "not a rule number"},
        {"debug-level 8", 2, "0 to 7"},
        {"frobnicate", 2, "unknown command"},
        {"--control " + sandbox.file("nobody.sock") + " status", 3, "qvfwd is not running"},
    };
    for (const Case& c : cases) {
        RunResult result = sandbox.Run("qvfwctl " + c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.arguments << "\n" << result.err;
        EXPECT_THAT(result.err, HasSubstr(c.message)) << c.arguments;
    }
    EXPECT_TRUE(ListedNumbers(sandbox, "list").empty());
    EXPECT_EQ(Ctl("debug-level 7"), "ok\n");
}

TEST_F(DaemonTest, ADeniedPacketsEventReachesWatchAndIsKept) {
    Ctl(std::string("add '") + kSshDeny + "'");
    const std::string watchFile = sandbox.file("watch.txt");
    pid_t watch = sandbox.Spawn("qvfwctl watch", watchFile);
    ASSERT_TRUE(WaitFor([&] { return StatusNumber(sandbox, "stream_clients") == 1; }, 20));

    EXPECT_EQ(sandbox.Run("ipfw packet tcp 10.0.0.9:40000 10.0.0.2:22 in via en0").out,
              "3100 Deny\n");
    const std::string expected = "  3100  Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0\n";
    EXPECT_TRUE(
        WaitFor([&] { return readFile(watchFile).find(expected) != std::string::npos; }, 20))
        << readFile(watchFile);
    kill(watch, SIGTERM);
    DaemonSandbox::WaitExit(watch, 10);

    // Kept: once through the host service, and once through the callback while notify is on.
    RunResult kept = sandbox.Run("qvfwctl events --all");
    ASSERT_EQ(kept.exitCode, 0) << kept.err;
    EXPECT_THAT(kept.out,
                HasSubstr("(callback)  3100  Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0\n"));
    EXPECT_THAT(kept.out,
                HasSubstr("(service)  3100  Deny TCP 10.0.0.9:40000 10.0.0.2:22 in via en0\n"));
    // As JSON, the daemon's records: the packet once, after the change that added its rule.
    // A record kept is the record written to the events file, whose packet fields are
    // OperationsEndToEndTest's.
    RunResult records = sandbox.Run("qvfwctl events --json");
    ASSERT_EQ(records.exitCode, 0) << records.err;
    std::vector<std::string> types;
    for (const std::string& line : qvtest::splitLines(records.out)) {
        types.push_back(Field(ParseJson(line), "type").string_value());
    }
    EXPECT_EQ(types, (std::vector<std::string>{"change", "packet"}));

    // With notify off the host service still hears of every packet, the callback not.
    Ctl("notify off");
    sandbox.Run("ipfw packet tcp 10.0.0.9:40001 10.0.0.2:22 in via en0");
    ASSERT_TRUE(WaitFor([&] { return StatusNumber(sandbox, "events_from_service") == 2; }, 20));
    EXPECT_EQ(StatusNumber(sandbox, "events_from_callback"), 1);
    Value status = ParseJson(Ctl("status --json"));
    EXPECT_FALSE(Field(status, "notify").bool_value());
    EXPECT_TRUE(Field(status, "enabled").bool_value());
    EXPECT_TRUE(Field(status, "enforced").bool_value());
    EXPECT_EQ(Field(status, "ipfw").string_value(), "answers");
    EXPECT_EQ(Field(status, "normal_rules").number_value(), 1);
}

// Killed while it replaces the normal set with a long list, at a different moment each
// time: after the restart the stored list and ipfw hold the same rules. The list's reader
// waits for a replacement to finish, so the moment is read off ipfw: each round's rules
// deny a port of their own.
TEST_F(DaemonTest, ADaemonKilledDuringSetRulesComesBackWithStoreAndIpfwAgreeing) {
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const std::string port = "dst-port " + std::to_string(1000 + round);
        std::string list;
        for (int i = 0; i < 40; ++i) {
            list += "deny proto tcp " + port + "\n";
        }
        writeFile(sandbox.file("list.txt"), list);
        const pid_t setter = sandbox.Spawn("qvfwctl set-rules " + sandbox.file("list.txt"),
                                           sandbox.file("set-rules.out"));
        // Some rules in: each round waits for a different number of this round's rules.
        ASSERT_TRUE(WaitFor([&] { return Installed(port).size() >= size_t(3 + 9 * round); }, 60));
        ASSERT_EQ(sandbox.StopDaemon(SIGKILL), -1);
        DaemonSandbox::WaitExit(setter, 30);
        ASSERT_TRUE(sandbox.StartDaemon()) << sandbox.daemonLog();

        const std::vector<int> stored = ListedNumbers(sandbox, "list");
        EXPECT_FALSE(stored.empty());
        EXPECT_EQ(stored, Installed(""));
    }
}

TEST_F(DaemonTest, ASecondDaemonOnTheSameSocketRefusesToStart) {
    const std::string log = RefusedStartLog(sandbox, "--service " + sandbox.file("run/other.sock"));
    EXPECT_THAT(log, HasSubstr("is already serving"));
    EXPECT_EQ(sandbox.Run("qvfwctl status").exitCode, 0);
}

TEST(DaemonStartTest, WithoutAConfigurationOrAnIpfwThatAnswersTheDaemonExitsAndSaysWhy) {
    DaemonSandbox unconfigured;
    unconfigured.RemoveConfiguration();
    std::string log = RefusedStartLog(unconfigured, "");
    EXPECT_THAT(log, HasSubstr("error 20013: the firewall manager failed"));

    DaemonSandbox withoutIpfw;
    withoutIpfw.SetEnv("PATH", "/usr/bin:/bin");
    log = RefusedStartLog(withoutIpfw, "");
    EXPECT_THAT(log, HasSubstr("cannot start: ipfw exited with status 127"));
    EXPECT_THAT(log, HasSubstr("the firewall would enforce nothing"));
}

// A raw client of the control socket, to send what qvfwctl never would.
class RawClient {
public:
    explicit RawClient(const std::string& path) : m_connected(qvtest::connectUnix(m_fd, path)) {}
    ~RawClient() { close(m_fd); }
    bool connected() const { return m_connected; }

    // A header that announces `length` bytes, then `bytes`, however many they are.
    void Send(uint32_t head, uint32_t length, const std::string& bytes) {
        const uint32_t header[2] = {htole32(head), htole32(length)};
        std::string frame = std::string(reinterpret_cast<const char*>(header), 8) + bytes;
        EXPECT_EQ(send(m_fd, frame.data(), frame.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(frame.size()));
    }
    void CloseWriting() { shutdown(m_fd, SHUT_WR); }
    // False when the daemon closed the connection instead of replying.
    bool Receive(qvctl::Frame* reply) { return m_channel.Read(reply) == qvctl::FrameStatus::kOk; }

private:
    int m_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    qvctl::FrameChannel m_channel{m_fd, -1, 10000};
    bool m_connected = false;
};

TEST_F(DaemonTest, OneConnectionCarriesManyCallsAndAMalformedFrameClosesOnlyItsOwn) {
    RawClient steady(sandbox.controlSocket());
    ASSERT_TRUE(steady.connected());
    qvctl::Frame reply;
    steady.Send(0x7777, 0, "");  // not in the table: the plug-in's default handler
    ASSERT_TRUE(steady.Receive(&reply));
    EXPECT_EQ(reply.head, 0u);

    RawClient tooLong(sandbox.controlSocket());
    tooLong.Send(QV_CMD_IS_FW_ENABLE, ipc::kMaxPayload + 1, "");
    EXPECT_FALSE(tooLong.Receive(&reply));
    RawClient cutShort(sandbox.controlSocket());
    cutShort.Send(QV_CMD_ADD_RULE, 10, "abc");
    cutShort.CloseWriting();
    EXPECT_FALSE(cutShort.Receive(&reply));

    // A client that connects and never sends holds only its own thread: others are
    // served, and the daemon still stops at once on SIGTERM.
    RawClient idle(sandbox.controlSocket());
    ASSERT_TRUE(idle.connected());
    steady.Send(QV_CMD_IS_FW_ENABLE, 0, "");
    ASSERT_TRUE(steady.Receive(&reply));
    EXPECT_EQ(reply.head, 0u);
    EXPECT_EQ(reply.payload, std::string("\x08\x01", 2));  // BoolType{value: true}
    EXPECT_EQ(sandbox.Run("qvfwctl status").exitCode, 0);
    EXPECT_EQ(sandbox.StopDaemon(SIGTERM), 0);
}

// A number from /proc/PID/status ("Threads", "VmRSS" in KiB); -1 when absent.
long ProcStatus(pid_t pid, const std::string& key) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, key.size() + 1, key + ":") == 0) {
            return std::stol(line.substr(key.size() + 1));
        }
    }
    return -1;
}

// Raises this process's descriptor limit (and so the daemon's, which inherits it) to
// `wanted`; false when the hard limit does not allow it.
bool RaiseDescriptorLimit(rlim_t wanted) {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max < wanted) {
        return false;
    }
    limit.rlim_cur = std::max(limit.rlim_cur, wanted);
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

using Clients = std::vector<std::unique_ptr<RawClient>>;

// `count` clients of the control socket, every other one half-way through a frame.
Clients HoldConnections(const DaemonSandbox& sandbox, int count) {
    Clients clients;
    for (int i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<RawClient>(sandbox.controlSocket()));
        EXPECT_TRUE(clients.back()->connected()) << "client " << i;
        if (i % 2 == 1) {
            clients.back()->Send(QV_CMD_ADD_RULE, 1000, std::string(500, 'h'));
        }
    }
    return clients;
}

class DaemonLoadTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!RaiseDescriptorLimit(4096)) {
            GTEST_SKIP() << "the hard limit of descriptors is below 4096";
        }
    }
    void Start(const std::string& arguments = "") {
        ASSERT_TRUE(sandbox.StartDaemon(arguments)) << sandbox.daemonLog();
        threads = ProcStatus(sandbox.daemonPid(), "Threads");
    }
    // Waits until the daemon runs a session thread for `sessions` more clients.
    bool Served(long sessions) {
        return WaitFor(
            [&] { return ProcStatus(sandbox.daemonPid(), "Threads") >= threads + sessions; }, 30);
    }

    DaemonSandbox sandbox;
    long threads = 0;
};

TEST_F(DaemonLoadTest, StatusAnswersWithinASecondWhileSixHundredClientsHoldConnectionsOpen) {
    Start();
    Clients clients = HoldConnections(sandbox, 600);
    ASSERT_TRUE(Served(600)) << ProcStatus(sandbox.daemonPid(), "Threads") - threads;

    const auto start = std::chrono::steady_clock::now();
    RunResult status = sandbox.Run("qvfwctl status");
    const double took = qvtest::secondsSince(start);
    EXPECT_EQ(status.exitCode, 0) << status.err;
    EXPECT_LT(took, 1.0);
    RecordProperty("status_ms", std::to_string(static_cast<int>(took * 1000)));
    std::printf("qvfwctl status beside 600 held connections: %.0f ms\n", took * 1000);

    // Every one of them is served, not parked: the first and the last idle client ask too.
    for (size_t i : {size_t(0), clients.size() - 2}) {
        qvctl::Frame reply;
        clients[i]->Send(qvctl::kStatus, 0, "");
        ASSERT_TRUE(clients[i]->Receive(&reply)) << "client " << i;
        EXPECT_EQ(reply.head, 0u);
    }
    EXPECT_EQ(sandbox.daemonLog().find("refusing clients"), std::string::npos);
    EXPECT_EQ(sandbox.StopDaemon(SIGTERM), 0);
}

TEST_F(DaemonLoadTest, ClientsThatAnnounceTheLargestFrameAndSendLittleCostLittleMemory) {
    Start();
    const long before = ProcStatus(sandbox.daemonPid(), "VmRSS");
    Clients clients;
    for (int i = 0; i < 64; ++i) {
        clients.push_back(std::make_unique<RawClient>(sandbox.controlSocket()));
        ASSERT_TRUE(clients.back()->connected());
        clients.back()->Send(QV_CMD_ADD_RULE, ipc::kMaxPayload, std::string(4096, 'm'));
    }
    ASSERT_TRUE(Served(64));
    // The sessions are in their reads by now; a moment more for any allocation to land.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const long grown = ProcStatus(sandbox.daemonPid(), "VmRSS") - before;
    RecordProperty("rss_growth_kib", std::to_string(grown));
    std::printf("VmRSS growth with 64 announced 16 MiB frames: %ld KiB\n", grown);
    EXPECT_LT(grown, 64 * 1024) << "KiB";
    EXPECT_EQ(sandbox.Run("qvfwctl status").exitCode, 0);
}

TEST_F(DaemonLoadTest, AFrameThatStallsHalfWayIsDroppedWithALogLineAndAnIdleClientIsNot) {
    Start("--frame-timeout 1");
    RawClient idle(sandbox.controlSocket());
    RawClient stalled(sandbox.controlSocket());
    RawClient service(sandbox.file("run/host.sock"));
    ASSERT_TRUE(idle.connected() && stalled.connected() && service.connected());
    const auto start = std::chrono::steady_clock::now();
    stalled.Send(QV_CMD_ADD_RULE, 100, "half");
    service.Send(QV_IPC_FW_EVENT, 100, "half");
    qvctl::Frame reply;
    EXPECT_FALSE(stalled.Receive(&reply)) << "the daemon answered a frame it never had whole";
    EXPECT_FALSE(service.Receive(&reply));
    EXPECT_GE(qvtest::secondsSince(start), 0.9);
    EXPECT_LT(qvtest::secondsSince(start), 5.0) << "the 1 s stall limit was not kept";
    const std::string log = sandbox.daemonLog();
    EXPECT_THAT(
        log, HasSubstr("closed a client of the control socket (uid " + std::to_string(geteuid())));
    EXPECT_THAT(log, HasSubstr("closed a client of the host service socket"));
    EXPECT_EQ(qvtest::countOf(log, "its frame brought no byte for 1 s"), 2u) << log;

    // The client that sent nothing at all waited longer than the limit and is still served.
    idle.Send(qvctl::kStatus, 0, "");
    ASSERT_TRUE(idle.Receive(&reply));
    EXPECT_EQ(reply.head, 0u);
}

TEST_F(DaemonLoadTest, AClientOverTheCapIsAnsweredBusyAndTheNextOneAfterAHangUpIsServed) {
    Start("--max-clients 3");
    Clients clients = HoldConnections(sandbox, 3);
    ASSERT_TRUE(Served(3));

    RawClient over(sandbox.controlSocket());
    qvctl::Frame reply;
    ASSERT_TRUE(over.Receive(&reply)) << "refused without a word";
    EXPECT_EQ(static_cast<int32_t>(reply.head), qvctl::kDaemonBusy);
    EXPECT_THAT(reply.payload, HasSubstr("already serves 3 clients on its control socket"));
    RunResult status = sandbox.Run("qvfwctl status");
    EXPECT_NE(status.exitCode, 0);
    EXPECT_THAT(status.err, HasSubstr(qvctl::DescribeCode(qvctl::kDaemonBusy)));
    // Two refusals in a row, one line.
    EXPECT_EQ(qvtest::countOf(sandbox.daemonLog(), "refusing clients"), 1u) << sandbox.daemonLog();

    clients.pop_back();
    EXPECT_TRUE(WaitFor([&] { return sandbox.Run("qvfwctl status").exitCode == 0; }, 20));
}

TEST_F(DaemonLoadTest, OutOfDescriptorsTheAcceptLoopRestsInsteadOfSpinningAndRecovers) {
    Start();
    const pid_t daemon = sandbox.daemonPid();
    struct rlimit normal {};
    ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, nullptr, &normal), 0);
    // Room for two more connections, then every accept fails with EMFILE.
    const std::filesystem::directory_iterator fds("/proc/" + std::to_string(daemon) + "/fd");
    struct rlimit tight {};
    tight.rlim_cur = static_cast<rlim_t>(std::distance(begin(fds), end(fds))) + 2;
    tight.rlim_max = normal.rlim_max;
    ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, &tight, nullptr), 0);
    Clients clients = HoldConnections(sandbox, 8);
    ASSERT_TRUE(WaitFor(
        [&] {
            return sandbox.daemonLog().find("cannot accept on the control socket") !=
                   std::string::npos;
        },
        20))
        << sandbox.daemonLog();

    EXPECT_LT(qvtest::cpuSecondsOver(daemon, 1.0), 0.2)
        << "seconds of CPU in one second while out of descriptors";
    EXPECT_EQ(qvtest::countOf(sandbox.daemonLog(), "cannot accept on the control socket"), 1u);

    ASSERT_EQ(prlimit(daemon, RLIMIT_NOFILE, &normal, nullptr), 0);
    clients.clear();
    EXPECT_TRUE(WaitFor([&] { return sandbox.Run("qvfwctl status").exitCode == 0; }, 20));
    EXPECT_THAT(sandbox.daemonLog(), HasSubstr("accepting again on the control socket"));
}

// A session thread needs address space for its stack; with the daemon's address space
// capped just above what it uses the system makes no thread, and the client is refused
// while the daemon lives on.
TEST_F(DaemonLoadTest, AClientNoThreadCanBeMadeForIsRefusedAndTheDaemonLivesOn) {
    Start();
    // The stacks of finished threads are kept for new ones; these clients use them up.
    Clients held = HoldConnections(sandbox, 8);
    ASSERT_TRUE(Served(8));
    const pid_t daemon = sandbox.daemonPid();
    struct rlimit normal {};
    ASSERT_EQ(prlimit(daemon, RLIMIT_AS, nullptr, &normal), 0);
    struct rlimit capped = normal;
    capped.rlim_cur = static_cast<rlim_t>(ProcStatus(daemon, "VmSize") + 1024) * 1024;
    ASSERT_EQ(prlimit(daemon, RLIMIT_AS, &capped, nullptr), 0);

    RawClient refused(sandbox.controlSocket());
    qvctl::Frame reply;
    const bool answered = refused.Receive(&reply);
    ASSERT_EQ(prlimit(daemon, RLIMIT_AS, &normal, nullptr), 0);
    ASSERT_TRUE(answered) << "refused without a word";
    EXPECT_EQ(static_cast<int32_t>(reply.head), qvctl::kDaemonBusy);
    EXPECT_THAT(reply.payload, HasSubstr("cannot make a thread for another client"));
    EXPECT_TRUE(WaitFor([&] { return sandbox.Run("qvfwctl status").exitCode == 0; }, 20))
        << sandbox.daemonLog();
    EXPECT_EQ(kill(daemon, 0), 0);
}

TEST(DaemonStartTest, AControlSocketDirectoryOthersMayWriteOrOwnIsRefusedAtStart) {
    DaemonSandbox sandbox;
    const std::string shared = sandbox.file("shared");
    std::filesystem::create_directories(shared);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    std::string log = RefusedStartLog(sandbox, "--control " + shared + "/qvfw.sock");
    EXPECT_THAT(log, HasSubstr("cannot start: the directory " + shared + " of " + shared +
                               "/qvfw.sock belongs to uid " + std::to_string(geteuid()) +
                               " with mode 0777; it must belong to root or uid"));
    EXPECT_FALSE(std::filesystem::exists(shared + "/qvfw.sock"));

    if (geteuid() == 0) {
        ASSERT_EQ(chmod(shared.c_str(), 0755), 0);
        ASSERT_EQ(chown(shared.c_str(), 65534, 65534), 0);
        log = RefusedStartLog(sandbox, "--control " + shared + "/qvfw.sock");
        EXPECT_THAT(log, HasSubstr("belongs to uid 65534 with mode 0755"));
    }
    // The same directory made private is accepted.
    ASSERT_EQ(chown(shared.c_str(), geteuid(), getegid()), 0);
    ASSERT_EQ(chmod(shared.c_str(), 0755), 0);
    sandbox.SetEnv("QV_CONTROL_SOCKET", shared + "/qvfw.sock");
    ASSERT_TRUE(sandbox.StartDaemon("--control " + shared + "/qvfw.sock")) << sandbox.daemonLog();
}

// A listener of another user where qvfwd's socket should be: qvfwctl says so and sends
// it nothing. The impostor's exit status: 0 when it got no byte, 1 when it got some.
TEST(DaemonStartTest, QvfwctlRefusesASocketServedByAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to listen as another user";
    }
    DaemonSandbox sandbox;
    const std::string dir = sandbox.file("impostor");
    std::filesystem::create_directories(dir);
    ASSERT_EQ(chown(dir.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(sandbox.file("").c_str(), 0755), 0);
    const std::string path = dir + "/qvfw.sock";
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t impostor = fork();
    if (impostor == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            _exit(3);
        }
        const int listener = qvtest::listenUnix(path, 4);
        if (listener < 0) {
            _exit(3);
        }
        (void)!write(ready[1], "r", 1);
        int client = accept(listener, nullptr, nullptr);
        char byte;
        _exit(client >= 0 && recv(client, &byte, 1, 0) == 0 ? 0 : 1);
    }
    close(ready[1]);
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the impostor could not listen";
    close(ready[0]);
    RunResult status = sandbox.Run("qvfwctl --control " + path + " status");
    EXPECT_EQ(status.exitCode, 3);
    EXPECT_THAT(status.err,
                HasSubstr("refusing to talk to " + path + ": it is served by uid 65534"));
    EXPECT_EQ(DaemonSandbox::WaitExit(impostor, 10), 0) << "the impostor was sent a request";
}

// In a child that has become `uid`: connects and asks for the status. The exit status
// says what happened: 0 refused with kPeerRefused, 1 answered, 2 connect failed with
// EACCES, 3 anything else.
int ConnectAs(uid_t uid, const std::string& path) {
    pid_t child = fork();
    if (child == 0) {
        if (setgid(uid) != 0 || setuid(uid) != 0) {
            _exit(3);
        }
        RawClient client(path);
        if (!client.connected()) {
            _exit(errno == EACCES ? 2 : 3);
        }
        client.Send(qvctl::kStatus, 0, "");
        qvctl::Frame reply;
        _exit(client.Receive(&reply) && reply.head == qvctl::kPeerRefused && reply.payload.empty()
                  ? 0
                  : 1);
    }
    return DaemonSandbox::WaitExit(child, 30);
}

TEST_F(DaemonTest, OnlyRootOrTheDaemonsOwnUserMayConnect) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to connect as another user";
    }
    const uid_t nobody = 65534;
    struct stat socketFile;
    ASSERT_EQ(stat(sandbox.controlSocket().c_str(), &socketFile), 0);
    EXPECT_EQ(socketFile.st_mode & 0777, 0600u);
    // The other user must get through the sandbox's own directories to reach the socket at
    // all; the ones above it (the system's temporary directory) are left as they are.
    for (const std::string& dir : {sandbox.file(""), sandbox.file("run")}) {
        ASSERT_EQ(chmod(dir.c_str(), 0755), 0) << dir;
    }
    EXPECT_EQ(ConnectAs(nobody, sandbox.controlSocket()), 2) << "mode 0600 keeps others out";

    // Should the mode ever be loosened, the daemon still refuses the peer itself.
    ASSERT_EQ(chmod(sandbox.controlSocket().c_str(), 0666), 0);
    EXPECT_EQ(ConnectAs(nobody, sandbox.controlSocket()), 0);
    EXPECT_EQ(sandbox.Run("qvfwctl status").exitCode, 0);
}

}  // namespace
}  // namespace qvdaemontest
