// The plug-in's figures through its exported entry points, each beside its floor run in
// the same process: AddRule with 0 and 1,000 rules stored, SetRuleList of a whole list,
// start-up with stored rules, and the event path (latency and throughput from a line
// appended to the firewall log to the notification callback and the host service).
//
// Floors are the unavoidable work done with plain calls: the ipfw command lines the
// operation must run, each run alone through QvSystem, plus the plain save of the bytes it
// must write (SaveFloor.h); for events, a bare kqueue wake-up on the same kind of append
// and plain request/reply frames over one connection to the same service.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/event.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "PluginSession.h"
#include "QvUtil.h"
#include "RuleFieldsReader.h"
#include "RuleGenerator.h"
#include "SaveFloor.h"
#include "VelaCommonMsg.pb.h"
#include "VelaEventLogMsg.pb.h"
#include "VelaFwMsg.pb.h"

using namespace qor::vela;
using qvbench::PluginWorld;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kNormalSet = 19;
constexpr int kExceptionSet = 18;
constexpr unsigned int kExceptionFirstRule = 2100;

bool quick() {
    return getenv("QV_BENCH_QUICK") != nullptr;
}

// ---- the plug-in running in its world, shared by a figure and its floor --------------

class Session {
public:
    // The running plug-in with `count` stored rules, started anew when `count` changes.
    static Session* with(int count) {
        static std::unique_ptr<Session> current;
        if (current == nullptr || current->m_count != count) {
            current.reset();
            current.reset(new Session(count));
        }
        return current->m_started ? current.get() : nullptr;
    }
    ~Session() {
        if (m_started) {
            qvbench::PluginApi::instance()->finalize();
        }
    }
    PluginWorld& world() { return m_world; }

private:
    explicit Session(int count) : m_count(count), m_world(count) {
        const qvbench::PluginApi* api = qvbench::PluginApi::instance();
        m_started = api != nullptr && api->initialize(nullptr) == 0;
    }
    int m_count;
    PluginWorld m_world;
    bool m_started = false;
};

bool runCommand(const std::string& command, unsigned int timeout) {
    char output[4096];
    std::memset(output, 0, sizeof output);
    return QvSystem(command.c_str(), output, sizeof output, timeout);
}

std::string ruleText(const FwRule& rule) {
    static const RuleGenerator generator;
    std::string text;
    generator.CreateRule(ReadRuleFields(rule), text);
    return text;
}

std::string probeCommand(unsigned int number) {
    return "ipfw show " + std::to_string(number) + " 2>/dev/stdout";
}

std::string addCommand(unsigned int number, int set, const FwRule& rule) {
    return "ipfw -q add " + std::to_string(number) + " set " + std::to_string(set) + " " +
           ruleText(rule) + " 2>/dev/stdout";
}

std::string deleteCommand(unsigned int number) {
    return "ipfw -q delete " + std::to_string(number);
}

unsigned int numberAfter(int count) {
    return qvbench::kFirstNormalRule + qvbench::kRuleSpacing * static_cast<unsigned int>(count);
}

// ---- AddRule ----------------------------------------------------------------------------

void BM_AddRule(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    if (Session::with(count) == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    const std::string request = qvbench::benchRule(0).SerializeAsString();
    for (auto _ : state) {
        std::string response;
        const int code = PluginWorld::call(QV_CMD_ADD_RULE, request, &response);
        state.PauseTiming();
        UIntType number;
        if (code != 0 || !number.ParseFromString(response)) {
            state.SkipWithError("AddRule failed");
            break;
        }
        UIntType remove;
        remove.set_value(number.value());
        PluginWorld::call(QV_CMD_DELETE_RULE, remove.SerializeAsString());
        state.ResumeTiming();
    }
}

// The probe of the free number after the stored rules, the add under it and one plain
// save of the document with one more rule.
void BM_AddRuleFloor(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Session* session = Session::with(count);
    if (session == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    PluginWorld& world = session->world();
    std::string response;
    PluginWorld::call(QV_CMD_ADD_RULE, qvbench::benchRule(0).SerializeAsString(), &response);
    const std::string bytes = qvbench::readWhole(world.configPath());
    UIntType number;
    number.ParseFromString(response);
    PluginWorld::call(QV_CMD_DELETE_RULE, number.SerializeAsString());
    qvbench::SaveFloor floor(world.configPath(), world.backupPath());
    FwRule rule = qvbench::benchRule(number.value());
    const std::string probe = probeCommand(number.value());
    const std::string add = addCommand(number.value(), kNormalSet, rule);
    for (auto _ : state) {
        const bool ok = runCommand(probe, 1) && runCommand(add, 3) && floor.save(bytes);
        state.PauseTiming();
        runCommand(deleteCommand(number.value()), 3);
        if (!ok) {
            state.SkipWithError("plain commands failed");
            break;
        }
        state.ResumeTiming();
    }
}

// ---- SetRuleList --------------------------------------------------------------------

FwRuleInfoList infoList(int count) {
    FwRuleInfoList list;
    for (int i = 0; i < count; ++i) {
        FwRuleInfo* entry = list.add_rules();
        entry->set_order(static_cast<uint32_t>(i));
        entry->mutable_rule()->CopyFrom(qvbench::benchRule(0));
    }
    return list;
}

void BM_SetRuleList(benchmark::State& state) {
    if (Session::with(0) == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    const std::string request = infoList(static_cast<int>(state.range(0))).SerializeAsString();
    for (auto _ : state) {
        std::string response;
        if (PluginWorld::call(QV_CMD_SET_RULE_LIST, request, &response) != 0) {
            state.SkipWithError("SetRuleList failed");
            break;
        }
    }
}

// The design persists the list after every rule it adds, so its floor is: the stored
// list emptied and the set deleted, then for each rule the probe, the add and a plain
// save of a document as long as the list is by then.
void BM_SetRuleListFloor(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    Session* session = Session::with(0);
    if (session == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    PluginWorld& world = session->world();
    PluginWorld::call(QV_CMD_SET_RULE_LIST, infoList(count).SerializeAsString());
    const std::string full = qvbench::readWhole(world.configPath());
    PluginWorld::call(QV_CMD_FLUSH_NORMAL_RULES, "");
    const std::string empty = qvbench::readWhole(world.configPath());
    const size_t perRule = (full.size() - empty.size()) / static_cast<size_t>(count);
    qvbench::SaveFloor floor(world.configPath(), world.backupPath());
    for (auto _ : state) {
        bool ok = floor.save(empty) && runCommand("ipfw -q delete set 19", 1);
        for (int i = 0; ok && i < count; ++i) {
            const unsigned int number = numberAfter(i);
            const FwRule rule = qvbench::benchRule(number);
            ok = runCommand(probeCommand(number), 1) &&
                 runCommand(addCommand(number, kNormalSet, rule), 3) &&
                 floor.save(full.substr(0, empty.size() + perRule * static_cast<size_t>(i + 1)));
        }
        if (!ok) {
            state.SkipWithError("plain commands failed");
            break;
        }
    }
    runCommand("ipfw -q delete set 19", 1);
}

// ---- start-up ------------------------------------------------------------------------

void BM_Startup(benchmark::State& state) {
    PluginWorld world(static_cast<int>(state.range(0)));
    qvbench::timeStartups(state);
}

// What start-up must run: both sets enabled (the flag saved once), verbose logging on,
// both sets deleted, every stored rule added under its number.
void BM_StartupFloor(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    PluginWorld world(count);
    const std::string bytes = qvbench::readWhole(world.configPath());
    mkdir((world.configPath().substr(0, world.configPath().rfind('/')) + "/backup").c_str(), 0700);
    qvbench::SaveFloor floor(world.configPath(), world.backupPath());
    std::vector<std::string> adds;
    for (int i = 0; i < count; ++i) {
        adds.push_back(addCommand(numberAfter(i), kNormalSet, qvbench::benchRule(numberAfter(i))));
    }
    for (auto _ : state) {
        bool ok = floor.save(bytes) && runCommand("ipfw -q set enable 19", 3) &&
                  runCommand("ipfw -q set enable 18", 3) &&
                  runCommand("sysctl -w net.inet.ip.fw.verbose=1", 1) &&
                  runCommand("ipfw -q delete set 18", 1) && runCommand("ipfw -q delete set 19", 1);
        for (const std::string& add : adds) {
            ok = ok && runCommand(add, 3);
        }
        state.PauseTiming();
        runCommand("ipfw -q delete set 19", 1);
        if (!ok) {
            state.SkipWithError("plain commands failed");
            break;
        }
        state.ResumeTiming();
    }
    (void)kExceptionSet;
    (void)kExceptionFirstRule;
}

// ---- events ----------------------------------------------------------------------------

// What the notification callback saw: when each numbered line arrived, in arrival order.
class Arrivals {
public:
    static Arrivals& instance() {
        static Arrivals arrivals;
        return arrivals;
    }
    static void callback(int /*code*/, const void* data, int length) {
        const auto now = Clock::now();
        EventLogItemFw event;
        long sequence = -1;
        if (event.ParseFromArray(data, length)) {
            sequence = sequenceOf(event.detail());
        }
        Arrivals& self = instance();
        {
            std::lock_guard<std::mutex> lock(self.m_mutex);
            self.m_sequences.push_back(sequence);
            self.m_times.push_back(now);
        }
        self.m_changed.notify_all();
    }
    void clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_sequences.clear();
        m_times.clear();
    }
    // Waits until `count` events arrived; false at the deadline.
    bool waitFor(size_t count, Clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_until(lock, deadline, [&] { return m_sequences.size() >= count; });
    }
    Clock::time_point timeOf(size_t index) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_times.at(index);
    }
    std::vector<long> sequences() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_sequences;
    }
    static long sequenceOf(const std::string& detail) {
        const size_t at = detail.find("seq ");
        return at == std::string::npos ? -1 : std::strtol(detail.c_str() + at + 4, nullptr, 10);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<long> m_sequences;
    std::vector<Clock::time_point> m_times;
};

std::string logLine(long sequence) {
    return "Jan  1 00:00:00 host kernel: ipfw: 3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via "
           "en0 seq " +
           std::to_string(sequence) + "\n";
}

bool appendAll(int fd, const std::string& text) {
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

double percentile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<size_t>(fraction * values.size()))];
}

void reportLatencies(benchmark::State& state, const std::vector<double>& latencies) {
    state.counters["p50_ms"] = percentile(latencies, 0.50) * 1e3;
    state.counters["p99_ms"] = percentile(latencies, 0.99) * 1e3;
    state.counters["events"] = static_cast<double>(latencies.size());
}

// One line at a time: from just before its write to the callback's entry.
void BM_EventLatency(benchmark::State& state) {
    Session* session = Session::with(0);
    if (session == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    qvbench::PluginApi::instance()->setNotificationCallback(&Arrivals::callback);
    Arrivals& arrivals = Arrivals::instance();
    arrivals.clear();
    const int fd = open(session->world().fwLog().c_str(), O_WRONLY | O_APPEND);
    std::vector<double> latencies;
    long sequence = 0;
    for (auto _ : state) {
        const std::string line = logLine(sequence);
        const auto start = Clock::now();
        if (!appendAll(fd, line) || !arrivals.waitFor(static_cast<size_t>(sequence) + 1,
                                                      start + std::chrono::seconds(10))) {
            state.SkipWithError("event did not arrive within 10 s");
            break;
        }
        const double seconds =
            std::chrono::duration<double>(arrivals.timeOf(static_cast<size_t>(sequence)) - start)
                .count();
        latencies.push_back(seconds);
        state.SetIterationTime(seconds);
        ++sequence;
    }
    close(fd);
    reportLatencies(state, latencies);
}

// A bare kqueue watcher on a file of its own: wake on the append, read the line.
void BM_EventLatencyFloor(benchmark::State& state) {
    qvbench::ScratchDir dir;
    const std::string path = dir.file("plain.log");
    qvbench::writeWhole(path, "");
    const int writer = open(path.c_str(), O_WRONLY | O_APPEND);
    const int reader = open(path.c_str(), O_RDONLY);
    const int queue = kqueue();
    struct kevent change;
    EV_SET(&change, reader, EVFILT_READ, EV_ADD | EV_ENABLE | EV_CLEAR, 0, 0, nullptr);
    kevent(queue, &change, 1, nullptr, 0, nullptr);
    std::vector<double> latencies;
    for (auto _ : state) {
        const std::string line = logLine(0);
        const auto start = Clock::now();
        appendAll(writer, line);
        struct kevent event;
        const struct timespec wait = {10, 0};
        char buffer[4096];
        if (kevent(queue, nullptr, 0, &event, 1, &wait) != 1 ||
            read(reader, buffer, sizeof buffer) <= 0) {
            state.SkipWithError("no wake-up");
            break;
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        latencies.push_back(seconds);
        state.SetIterationTime(seconds);
    }
    close(queue);
    close(reader);
    close(writer);
    reportLatencies(state, latencies);
}

// Counts the distinct numbered lines in `sequences`; `lost` and `duplicated` against 0..n-1.
void countDelivery(const std::vector<long>& sequences, long n, long& lost, long& duplicated) {
    std::set<long> seen(sequences.begin(), sequences.end());
    duplicated = static_cast<long>(sequences.size()) - static_cast<long>(seen.size());
    lost = 0;
    for (long i = 0; i < n; ++i) {
        lost += seen.count(i) == 0 ? 1 : 0;
    }
}

std::vector<long> serviceSequences(const qvtest::HostService& service) {
    std::vector<long> sequences;
    for (const qvtest::ServiceCall& call : service.calls()) {
        const std::string& payload = call.payload;
        EventLogItemFw event;
        sequences.push_back(event.ParseFromString(payload) ? Arrivals::sequenceOf(event.detail())
                                                           : -1);
    }
    return sequences;
}

// `range(0)` lines appended at once; the time until every one reached both the callback
// and the host service. Lost and duplicated events are counted on both sides.
void BM_EventThroughput(benchmark::State& state) {
    Session* session = Session::with(0);
    if (session == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    const long lines = state.range(0);
    qvbench::PluginApi::instance()->setNotificationCallback(&Arrivals::callback);
    Arrivals& arrivals = Arrivals::instance();
    qvtest::HostService& service = session->world().service();
    const int fd = open(session->world().fwLog().c_str(), O_WRONLY | O_APPEND);
    long lost = 0;
    long duplicated = 0;
    for (auto _ : state) {
        arrivals.clear();
        service.clear();
        std::string text;
        for (long i = 0; i < lines; ++i) {
            text += logLine(i);
        }
        const auto start = Clock::now();
        const auto deadline = start + std::chrono::seconds(120);
        appendAll(fd, text);
        bool arrived = arrivals.waitFor(static_cast<size_t>(lines), deadline);
        while (arrived && service.callCount() < static_cast<size_t>(lines)) {
            arrived = Clock::now() < deadline;
            std::this_thread::yield();
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        long lostHere = 0;
        long duplicatedHere = 0;
        countDelivery(arrivals.sequences(), lines, lostHere, duplicatedHere);
        lost += lostHere;
        duplicated += duplicatedHere;
        countDelivery(serviceSequences(service), lines, lostHere, duplicatedHere);
        lost += lostHere;
        duplicated += duplicatedHere;
        if (!arrived) {
            state.SkipWithError("events missing after 120 s");
            break;
        }
    }
    close(fd);
    state.SetItemsProcessed(state.iterations() * lines);
    state.counters["lost"] = static_cast<double>(lost);
    state.counters["duplicated"] = static_cast<double>(duplicated);
    state.counters["connections"] = static_cast<double>(service.connections());
}

// The same number of request/reply frames over one connection to the same service.
void BM_EventThroughputFloor(benchmark::State& state) {
    Session* session = Session::with(0);
    if (session == nullptr) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    const long lines = state.range(0);
    EventLogItemFw event;
    event.set_time(0);
    event.set_rule_index(3100);
    event.set_detail(logLine(0));
    const std::string payload = event.SerializeAsString();
    std::string frame(8, '\0');
    for (int i = 0; i < 4; ++i) {
        frame[i] = static_cast<char>((65567u >> (8 * i)) & 0xff);
        frame[4 + i] = static_cast<char>((payload.size() >> (8 * i)) & 0xff);
    }
    frame += payload;
    const char* path = getenv("QV_IPC_SOCKET");
    for (auto _ : state) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
        bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        char reply[8];
        for (long i = 0; ok && i < lines; ++i) {
            ok = send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) ==
                     static_cast<ssize_t>(frame.size()) &&
                 recv(fd, reply, sizeof reply, MSG_WAITALL) == sizeof reply;
        }
        close(fd);
        if (!ok) {
            state.SkipWithError("plain frames failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * lines);
}

}  // namespace

int main(int argc, char** argv) {
    const int stored = quick() ? 200 : 1000;
    const int listLength = quick() ? 100 : 1000;
    for (int count : {0, stored}) {
        benchmark::RegisterBenchmark("BM_AddRule", BM_AddRule)
            ->Arg(count)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark("BM_AddRuleFloor", BM_AddRuleFloor)
            ->Arg(count)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark("BM_SetRuleList", BM_SetRuleList)
        ->Arg(listLength)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(1);
    benchmark::RegisterBenchmark("BM_SetRuleListFloor", BM_SetRuleListFloor)
        ->Arg(listLength)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(1);
    benchmark::RegisterBenchmark("BM_Startup", BM_Startup)
        ->Arg(stored)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(quick() ? 1 : 2);
    benchmark::RegisterBenchmark("BM_StartupFloor", BM_StartupFloor)
        ->Arg(stored)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(quick() ? 1 : 2);
    benchmark::RegisterBenchmark("BM_EventLatency", BM_EventLatency)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(1000);
    benchmark::RegisterBenchmark("BM_EventLatencyFloor", BM_EventLatencyFloor)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(1000);
    const int burst = quick() ? 5000 : 20000;
    benchmark::RegisterBenchmark("BM_EventThroughput", BM_EventThroughput)
        ->Arg(burst)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(quick() ? 1 : 3);
    benchmark::RegisterBenchmark("BM_EventThroughputFloor", BM_EventThroughputFloor)
        ->Arg(burst)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(quick() ? 1 : 3);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
