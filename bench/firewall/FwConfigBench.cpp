// The firewall configuration's own figures, each beside its floor measured in the same
// run: saving one more rule (FwConfig::AddNormalRule) with 10, 1,000 and 10,000 rules
// stored against the plain backup copy and in-place write of the same bytes; loading
// (FwConfig construction and Init) against python's plistlib reading the same file.
#include <benchmark/benchmark.h>
#include <stdio.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "BenchFiles.h"
#include "BenchRules.h"
#include "Config.h"
#include "QvConfig.h"
#include "SaveFloor.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;

namespace {

constexpr char kFileName[] = "QvFw.conf.plist";

// A configuration directory holding options and `count` normal rules, with
// $QV_CONF_DIR pointing at it for the life of the object.
class ConfigWorld {
public:
    explicit ConfigWorld(int count) : m_env("QV_CONF_DIR", m_dir.path()) {
        qvbench::writeWhole(path(), "<plist version=\"1.0\"><dict/></plist>");
        QvConfig<Mutex> store(path().c_str());
        FwOptions options;
        options.set_enable_fw(true);
        options.set_enable_notify(true);
        options.set_default_set_num(19);
        options.set_exception_set_num(18);
        options.set_fw_log_path("/var/log/Quorvane/QvrnCore/ipfw.log");
        options.set_syslog_conf("/etc/syslog.conf");
        if (!store.set(options, "FwOptions").ok() ||
            !store.set(qvbench::benchRules(count), "FwRuleCfg").ok() || !store.save().ok()) {
            std::abort();
        }
    }
    std::string path() const { return m_dir.file(kFileName); }
    std::string backup() const { return m_dir.file(std::string("backup/") + kFileName); }

private:
    qvbench::ScratchDir m_dir;
    qvbench::ScopedEnv m_env;
};

unsigned int numberAfter(int count) {
    return qvbench::kFirstNormalRule + qvbench::kRuleSpacing * static_cast<unsigned int>(count);
}

// One more rule saved; the rule is taken out again untimed, so every save sees `count`.
void BM_SaveRule(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    ConfigWorld world(count);
    FwConfig config;
    if (!config.IsReady()) {
        state.SkipWithError("configuration did not load");
        return;
    }
    const FwRule rule = qvbench::benchRule(numberAfter(count));
    // The first save after loading converts every rule; the figure is every save after.
    const auto start = std::chrono::steady_clock::now();
    if (!config.AddNormalRule(rule).ok()) {
        state.SkipWithError("the configuration could not be saved");
        return;
    }
    state.counters["first_save_ms"] =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    (void)config.DeleteNormalRule(rule.rule_index());
    for (auto _ : state) {
        (void)config.AddNormalRule(rule);
        state.PauseTiming();
        (void)config.DeleteNormalRule(rule.rule_index());
        state.ResumeTiming();
    }
    state.counters["file_bytes"] = static_cast<double>(qvbench::readWhole(world.path()).size());
}
BENCHMARK(BM_SaveRule)
    ->Arg(10)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_SaveRuleFloor(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    ConfigWorld world(count);
    std::string bytes;
    {
        // The exact bytes of the document with one more rule, as the store writes them.
        FwConfig config;
        (void)config.AddNormalRule(qvbench::benchRule(numberAfter(count)));
        bytes = qvbench::readWhole(world.path());
    }
    qvbench::SaveFloor floor(world.path(), world.backup());
    for (auto _ : state) {
        if (!floor.save(bytes)) {
            state.SkipWithError("plain save failed");
            return;
        }
    }
    state.counters["file_bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_SaveRuleFloor)
    ->Arg(10)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_Load(benchmark::State& state) {
    ConfigWorld world(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        FwConfig config;
        benchmark::DoNotOptimize(config.IsReady());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Load)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();

// Seconds python's plistlib takes to open and read `path`, timed inside python; negative
// when python could not be run.
double plistlibSeconds(const std::string& path) {
    const std::string command =
        "python3 -c 'import plistlib,sys,time\n"
        "t=time.perf_counter()\n"
        "with open(sys.argv[1],\"rb\") as f: plistlib.load(f)\n"
        "print(time.perf_counter()-t)' '" +
        path + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return -1;
    }
    double seconds = -1;
    if (fscanf(pipe, "%lf", &seconds) != 1) {
        seconds = -1;
    }
    return pclose(pipe) == 0 ? seconds : -1;
}

void BM_LoadFloorPlistlib(benchmark::State& state) {
    ConfigWorld world(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const double seconds = plistlibSeconds(world.path());
        if (seconds < 0) {
            state.SkipWithError("python3 plistlib could not read the file");
            return;
        }
        state.SetIterationTime(seconds);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LoadFloorPlistlib)->Arg(10000)->Unit(benchmark::kMillisecond)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
