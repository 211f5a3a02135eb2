// What a change costs the ipfw on nftables, inside a network namespace of the benchmark's
// own: add, delete and the set switches with 10,000 rules installed against the same with
// none, and the plug-in's list replacement and start-up on it against the same on the
// simulated ipfw. Without root or nftables it measures nothing and says why.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "NetnsWorld.h"
#include "PluginSession.h"
#include "QvUtil.h"
#include "ScopedEnv.h"
#include "SimFakes.h"
#include "VelaFwInternalMsg.pb.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/RuleParser.h"

using qvbench::PluginWorld;

namespace {

constexpr unsigned int kFirstRule = 3100;
constexpr unsigned int kSpacing = 6;  // 10,000 rules end below ipfw's last number
constexpr unsigned int kChanged = 65000;
// The long figures (a list replacement, a start-up) are one sample each, so a slow
// minute on the machine moved their ratio by a third: each is taken this many times,
// interleaved with its floor's rounds (scripts/bench asks for random interleaving), and
// the table reads the median.
constexpr int kPairedRounds = 3;

bool quick() {
    return getenv("QV_BENCH_QUICK") != nullptr;
}

int installed() {
    return quick() ? 1000 : 10000;
}

// A transaction that removed anything leaves the kernel a grace period of releasing to do
// after the command returned, which the next transaction waits for. Untimed undoing
// settles before the next timed command, so that each figure is its own command's cost.
void settle() {
    usleep(50 * 1000);
}

bool run(const std::string& command) {
    char output[4096];
    std::memset(output, 0, sizeof output);
    return QvSystem(command.c_str(), output, sizeof output, 10);
}

// A rule state of `count` rules shaped like the plug-in's, written directly (the
// simulator's own code lays it out), and the kernel's table built from it once.
class InstalledRules {
public:
    explicit InstalledRules(int count)
        : m_state("IPFW_SIM_STATE", m_dir.file("rules")),
          m_path("PATH", std::string(QV_NFT_DIR) + ":" + getenv("PATH")) {
        simtest::FakeNames names;
        ipfwsim::Diagnostics ignored;
        ipfwsim::FirewallState state;
        for (int i = 0; i < count; ++i) {
            const unsigned int number = kFirstRule + kSpacing * static_cast<unsigned int>(i);
            const std::string body = "deny proto tcp src-ip 10.0." + std::to_string(i / 250) + "." +
                                     std::to_string(i % 250) + " dst-ip me dst-port " +
                                     std::to_string(1024 + i) + " in";
            ipfwsim::StoredRule stored;
            uint64_t ignoredNumber = 0;
            std::istringstream text(body);
            const std::vector<std::string> words{std::istream_iterator<std::string>(text),
                                                 std::istream_iterator<std::string>()};
            ipfwsim::RuleParser(names, ignored).parse(words, stored.rule, ignoredNumber);
            stored.rule.number = number;
            stored.rule.set = 19;
            state.insert(stored);
        }
        qvbench::writeWhole(m_dir.file("rules"), state.serialize());
        // Any change builds the table from a state that never had one.
        m_ok = run("ipfw -q set disable 30");
    }
    bool ok() const { return m_ok; }

private:
    qvbench::ScratchDir m_dir;
    qvtest::ScopedEnv m_state;
    qvtest::ScopedEnv m_path;
    bool m_ok = false;
};

const std::string kAdd =
    "ipfw -q add " + std::to_string(kChanged) + " set 19 deny proto tcp dst-port 7";
const std::string kDelete = "ipfw -q delete " + std::to_string(kChanged);

// With state.range(0) rules installed and `setup` run once: each round times `timed`,
// then undoes it untimed with `undo` and lets the kernel settle.
void timedAndUndone(benchmark::State& state, const std::string& timed, const std::string& undo,
                    const std::string& setup = "") {
    InstalledRules rules(static_cast<int>(state.range(0)));
    if (!rules.ok() || (!setup.empty() && !run(setup))) {
        state.SkipWithError("ipfw failed");
        return;
    }
    settle();
    for (auto _ : state) {
        const bool done = run(timed);
        state.PauseTiming();
        if (!done || !run(undo)) {
            state.SkipWithError("ipfw failed");
            break;
        }
        settle();
        state.ResumeTiming();
    }
}

void BM_EnforcedAdd(benchmark::State& state) {
    timedAndUndone(state, kAdd, kDelete);
}

void BM_EnforcedDelete(benchmark::State& state) {
    timedAndUndone(state, kDelete, kAdd, kAdd);
}

void BM_EnforcedSetDisable(benchmark::State& state) {
    timedAndUndone(state, "ipfw -q set disable 19", "ipfw -q set enable 19");
}

void BM_EnforcedSetEnable(benchmark::State& state) {
    timedAndUndone(state, "ipfw -q set enable 19", "ipfw -q set disable 19",
                   "ipfw -q set disable 19");
}

qor::vela::FwRuleInfoList ruleList(int count) {
    qor::vela::FwRuleInfoList list;
    for (int i = 0; i < count; ++i) {
        qor::vela::FwRuleInfo* entry = list.add_rules();
        entry->set_order(static_cast<uint32_t>(i));
        entry->mutable_rule()->CopyFrom(qvbench::benchRule(0));
    }
    return list;
}

// The plug-in started on an empty configuration with `ipfwDir` first in PATH, then one
// list replacement of state.range(0) rules.
void setRuleList(benchmark::State& state, const std::string& ipfwDir) {
    const qvbench::PluginApi* api = qvbench::PluginApi::instance();
    PluginWorld world(0, ipfwDir);
    if (api == nullptr || api->initialize(nullptr) != 0) {
        state.SkipWithError("plug-in did not start");
        return;
    }
    const std::string request = ruleList(static_cast<int>(state.range(0))).SerializeAsString();
    for (auto _ : state) {
        if (PluginWorld::call(QV_CMD_SET_RULE_LIST, request) != 0) {
            state.SkipWithError("SetRuleList failed");
            break;
        }
    }
    api->finalize();
}

void BM_SetRuleListEnforced(benchmark::State& state) {
    setRuleList(state, QV_NFT_DIR);
}

void BM_SetRuleListSimulated(benchmark::State& state) {
    setRuleList(state, QV_SIM_DIR);
}

void startup(benchmark::State& state, const std::string& ipfwDir) {
    PluginWorld world(static_cast<int>(state.range(0)), ipfwDir, kSpacing);
    qvbench::timeStartups(state);
}

void BM_StartupEnforced(benchmark::State& state) {
    startup(state, QV_NFT_DIR);
}

void BM_StartupSimulated(benchmark::State& state) {
    startup(state, QV_SIM_DIR);
}

benchmark::internal::Benchmark* inMilliseconds(benchmark::internal::Benchmark* figure) {
    return figure->Unit(benchmark::kMillisecond)->UseRealTime();
}

void registerAll() {
    for (int count : {0, installed()}) {
        inMilliseconds(benchmark::RegisterBenchmark("BM_EnforcedAdd", BM_EnforcedAdd))->Arg(count);
        inMilliseconds(benchmark::RegisterBenchmark("BM_EnforcedDelete", BM_EnforcedDelete))
            ->Arg(count);
    }
    inMilliseconds(benchmark::RegisterBenchmark("BM_EnforcedSetDisable", BM_EnforcedSetDisable))
        ->Arg(installed());
    inMilliseconds(benchmark::RegisterBenchmark("BM_EnforcedSetEnable", BM_EnforcedSetEnable))
        ->Arg(installed());
    const int list = quick() ? 100 : 1000;
    for (auto figure : {BM_SetRuleListEnforced, BM_SetRuleListSimulated}) {
        inMilliseconds(benchmark::RegisterBenchmark(figure == BM_SetRuleListEnforced
                                                        ? "BM_SetRuleListEnforced"
                                                        : "BM_SetRuleListSimulated",
                                                    figure))
            ->Arg(list)
            ->Iterations(1)
            ->Repetitions(kPairedRounds)
            ->ReportAggregatesOnly(true);
    }
    for (auto figure : {BM_StartupEnforced, BM_StartupSimulated}) {
        inMilliseconds(benchmark::RegisterBenchmark(figure == BM_StartupEnforced
                                                        ? "BM_StartupEnforced"
                                                        : "BM_StartupSimulated",
                                                    figure))
            ->Arg(installed())
            ->Iterations(1)
            ->Repetitions(kPairedRounds)
            ->ReportAggregatesOnly(true);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string whyNot;
    if (!nfttest::EnterPrivateNetwork(whyNot)) {
        fprintf(stderr, "EnforcementBench: not measured: %s\n", whyNot.c_str());
        return 0;
    }
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
