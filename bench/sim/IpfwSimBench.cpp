// Cost of one invocation of the simulated ipfw (process start included) with an empty
// rule set and with 10,000 rules stored, for the commands the plug-in runs most: the
// number probe "show N", and "add". After the runs, the ratio 10,000 : empty of each.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ipfwsim/StateFile.h"

extern char** environ;

namespace {

using namespace ipfwsim;

constexpr int kLargeRuleCount = 10000;

std::string temporaryDirectory() {
    static std::string path = [] {
        char pattern[] = "/tmp/ipfw-sim-bench-XXXXXX";
        return std::string(mkdtemp(pattern));
    }();
    return path;
}

StoredRule typicalRule(uint32_t number) {
    StoredRule stored;
    Rule& rule = stored.rule;
    rule.number = number;
    rule.set = 19;
    rule.optionsOnly = true;
    Match proto;
    proto.kind = MatchKind::Proto;
    proto.value = kProtoTcp;
    Match src;
    src.kind = MatchKind::SrcMe;
    Match dst;
    dst.kind = MatchKind::DstAddr;
    dst.addresses = {{0xc0a80100, 0xffffff00}, {0x7f000001, 0xffffffff}};
    Match ports;
    ports.kind = MatchKind::DstPort;
    ports.ports = {{80, 80}, {8000, 8080}};
    Match out;
    out.kind = MatchKind::In;
    out.negated = true;
    Match keep;
    keep.kind = MatchKind::KeepState;
    rule.matches = {proto, src, dst, ports, out, keep};
    return stored;
}

// Rules 1000, 1005, ... as the plug-in's two sets would leave them, rule 3100 included.
std::string stateWithRules(int count) {
    std::vector<StoredRule> rules;
    for (int i = 0; i < count; ++i) {
        rules.push_back(typicalRule(static_cast<uint32_t>(1000 + 5 * i)));
    }
    return StateFile::format(StateHeader{}, rules);
}

const std::string& preparedState(int count) {
    static std::map<int, std::string> states;
    auto found = states.find(count);
    if (found == states.end()) {
        found = states.emplace(count, stateWithRules(count)).first;
    }
    return found->second;
}

std::string statePath() {
    return temporaryDirectory() + "/rules";
}

void installState(const std::string& content) {
    std::ofstream(statePath(), std::ios::binary | std::ios::trunc) << content;
}

// Runs build/sim/ipfw directly (no shell), output discarded; returns its exit code.
int runIpfw(const std::vector<std::string>& arguments) {
    static const std::string binary = std::string(QV_SIM_DIR) + "/ipfw";
    static std::string stateVariable = "IPFW_SIM_STATE=" + statePath();
    static std::string hostsVariable = "IPFW_SIM_HOSTS=/dev/null";
    std::vector<std::string> argv{"ipfw"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::vector<char*> args;
    for (std::string& word : argv) {
        args.push_back(word.data());
    }
    args.push_back(nullptr);
    char* envp[] = {stateVariable.data(), hostsVariable.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int status = -1;
    if (posix_spawn(&pid, binary.c_str(), &actions, nullptr, args.data(), envp) == 0) {
        waitpid(pid, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

const std::vector<std::string> kAddBody = {
    "set",           "19",       "allow",        "proto", "tcp",       "src-ip", "me", "dst-ip",
    "3232235777/24", "dst-port", "80,8000-8080", "out",   "keep-state"};

// The plug-in's probe of a free number: "ipfw show N" answering "does not exist".
void BM_ShowFreeNumber(benchmark::State& state) {
    installState(preparedState(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        if (runIpfw({"show", "3102"}) != 69) {
            state.SkipWithError("unexpected exit code");
        }
    }
}

// "ipfw show N" of a stored rule (an empty rule set then holds only that rule).
void BM_ShowStoredRule(benchmark::State& state) {
    const int count = std::max(1, static_cast<int>(state.range(0)));
    installState(preparedState(count));
    const std::string number = count == 1 ? "1000" : "26000";
    for (auto _ : state) {
        if (runIpfw({"show", number}) != 0) {
            state.SkipWithError("unexpected exit code");
        }
    }
}

// "ipfw -q add N set 19 BODY" with N after every stored rule: an append.
void BM_AddAtTheEnd(benchmark::State& state) {
    const std::string& initial = preparedState(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        installState(initial);
        state.ResumeTiming();
        std::vector<std::string> args{"-q", "add", "60000"};
        args.insert(args.end(), kAddBody.begin(), kAddBody.end());
        if (runIpfw(args) != 0) {
            state.SkipWithError("add failed");
        }
    }
}

// "ipfw -q add N ..." with N among the stored rules, as for the exception set's 2100s.
void BM_AddAmongRules(benchmark::State& state) {
    const std::string& initial = preparedState(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        installState(initial);
        state.ResumeTiming();
        std::vector<std::string> args{"-q", "add", "2102"};
        args.insert(args.end(), kAddBody.begin(), kAddBody.end());
        if (runIpfw(args) != 0) {
            state.SkipWithError("add failed");
        }
    }
}

// Many adds among the stored rules without reset: includes the periodic merge of the
// overflow, so this is the amortised cost.
void BM_AddAmongRulesSustained(benchmark::State& state) {
    installState(preparedState(static_cast<int>(state.range(0))));
    uint32_t number = 2101;
    for (auto _ : state) {
        std::vector<std::string> args{"-q", "add", std::to_string(number)};
        number = number % 5 == 4 ? number + 2 : number + 1;  // skip the stored numbers
        args.insert(args.end(), kAddBody.begin(), kAddBody.end());
        if (runIpfw(args) != 0) {
            state.SkipWithError("add failed");
        }
    }
}

BENCHMARK(BM_ShowFreeNumber)->Arg(0)->Arg(kLargeRuleCount)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ShowStoredRule)->Arg(0)->Arg(kLargeRuleCount)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AddAtTheEnd)->Arg(0)->Arg(kLargeRuleCount)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AddAmongRules)->Arg(0)->Arg(kLargeRuleCount)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AddAmongRulesSustained)
    ->Arg(0)
    ->Arg(kLargeRuleCount)
    ->Iterations(1024)
    ->Unit(benchmark::kMicrosecond);

// Prints the usual table, then "name: 10000 rules / empty = ratio" per benchmark.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (!run.error_occurred && run.run_type == Run::RT_Iteration) {
                times_[run.run_name.function_name][run.run_name.args] = run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        const std::string large = std::to_string(kLargeRuleCount);
        for (const auto& entry : times_) {
            auto empty = entry.second.find("0");
            auto full = entry.second.find(large);
            if (empty != entry.second.end() && full != entry.second.end() && empty->second > 0) {
                std::printf("%-28s %s rules / empty = %.2f\n", entry.first.c_str(), large.c_str(),
                            full->second / empty->second);
            }
        }
        std::system(("rm -rf '" + temporaryDirectory() + "'").c_str());
    }

private:
    std::map<std::string, std::map<std::string, double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
