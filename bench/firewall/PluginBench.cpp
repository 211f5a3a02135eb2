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
#include <vector>

#include "PluginSession.h"
#include "QvUtil.h"
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
    static RuleGenerator* generator = [] {
        auto* made = new RuleGenerator;
        made->InitFuncTab();
        return made;
    }();
    std::string text;
    generator->CreateRule(rule, text);
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
    const qvbench::PluginApi* api = qvbench::PluginApi::instance();
    if (api == nullptr) {
        state.SkipWithError("plug-in not loaded");
        return;
    }
    PluginWorld world(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const int code = api->initialize(nullptr);
        state.PauseTiming();
        api->finalize();
        if (code != 0) {
            state.SkipWithError("start-up failed");
            break;
        }
        state.ResumeTiming();
    }
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
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
