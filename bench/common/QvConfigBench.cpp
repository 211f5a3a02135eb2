// What one rule change costs the configuration store as the list grows: the conversion
// of the whole list to a dictionary and back, and a full save (backup copy, serialisation,
// in-place write, fsync).
#include <benchmark/benchmark.h>

#include "ConfigTestSupport.h"
#include "QvConfig.h"
#include "TempDir.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;

namespace {

FwRuleList fullRules(int count) {
    FwRuleList list;
    for (int i = 0; i < count; ++i) {
        list.add_rules()->CopyFrom(qvtest::fullRule(3100 + 10 * i));
    }
    return list;
}

void BM_ConvertRuleList(benchmark::State& state) {
    const FwRuleList list = fullRules(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        CFMutableDictionaryRef dict = createMutableDictionary();
        FwRuleList back;
        benchmark::DoNotOptimize(convert(list, dict) && convert(dict, back));
        CFRelease(dict);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ConvertRuleList)->Arg(1)->Arg(100)->Arg(1000);

void BM_SetAndSave(benchmark::State& state) {
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
    QvConfig<Mutex> store(path.c_str());
    const FwRuleList list = fullRules(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.set(list, "FwRuleCfg") && store.save());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["file_bytes"] = static_cast<double>(qvtest::readFile(path).size());
}
BENCHMARK(BM_SetAndSave)->Arg(1)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_Load(benchmark::State& state) {
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
    {
        QvConfig<Mutex> writer(path.c_str());
        writer.set(fullRules(static_cast<int>(state.range(0))), "FwRuleCfg");
        writer.save();
    }
    for (auto _ : state) {
        QvConfig<Mutex> store(path.c_str());
        FwRuleList list;
        benchmark::DoNotOptimize(store.get(list, "FwRuleCfg"));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Load)->Arg(1)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
