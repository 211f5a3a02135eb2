// What one rule change costs the configuration store as the list grows, stage by stage:
// the conversion of the list to dictionaries, the XML writer, the XML reader, the
// conversion back, and a full save (backup copy, serialisation, in-place write, fsync).
// Each stage runs at 1,000 and 10,000 rules so that a step that grows faster than the
// list shows up as a per-rule rate that falls.
#include <benchmark/benchmark.h>

#include "BenchRules.h"
#include "QvConfig.h"
#include "TempDir.h"
#include "VelaFwMsgConvert.h"

using namespace qor::vela;
using qvbench::benchRules;

namespace {

void rulesProcessed(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The document the store writes: the list under its key in a root dictionary.
CFMutableDictionaryRef documentOf(const FwRuleList& list) {
    CFMutableDictionaryRef root = createMutableDictionary();
    CFMutableDictionaryRef entry = createMutableDictionary();
    convert(list, entry);
    addValue(root, "FwRuleCfg", entry);
    CFRelease(entry);
    return root;
}

CFDataRef xmlOf(CFTypeRef document) {
    return CFPropertyListCreateData(kCFAllocatorDefault, document, kCFPropertyListXMLFormat_v1_0, 0,
                                    nullptr);
}

void BM_ListToDictionary(benchmark::State& state) {
    const FwRuleList list = benchRules(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        CFMutableDictionaryRef dict = createMutableDictionary();
        benchmark::DoNotOptimize(convert(list, dict));
        CFRelease(dict);
    }
    rulesProcessed(state);
}
BENCHMARK(BM_ListToDictionary)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_DictionaryToList(benchmark::State& state) {
    CFMutableDictionaryRef dict = createMutableDictionary();
    convert(benchRules(static_cast<int>(state.range(0))), dict);
    for (auto _ : state) {
        FwRuleList back;
        benchmark::DoNotOptimize(convert(dict, back));
    }
    CFRelease(dict);
    rulesProcessed(state);
}
BENCHMARK(BM_DictionaryToList)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_WriteXml(benchmark::State& state) {
    CFMutableDictionaryRef document = documentOf(benchRules(static_cast<int>(state.range(0))));
    for (auto _ : state) {
        CFDataRef data = xmlOf(document);
        benchmark::DoNotOptimize(data);
        CFRelease(data);
    }
    CFRelease(document);
    rulesProcessed(state);
}
BENCHMARK(BM_WriteXml)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_ReadXml(benchmark::State& state) {
    CFMutableDictionaryRef document = documentOf(benchRules(static_cast<int>(state.range(0))));
    CFDataRef data = xmlOf(document);
    CFRelease(document);
    for (auto _ : state) {
        CFPropertyListRef plist = CFPropertyListCreateWithData(
            kCFAllocatorDefault, data, kCFPropertyListMutableContainers, nullptr, nullptr);
        benchmark::DoNotOptimize(plist);
        CFRelease(plist);
    }
    CFRelease(data);
    rulesProcessed(state);
}
BENCHMARK(BM_ReadXml)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_SetAndSave(benchmark::State& state) {
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
    QvConfig<Mutex> store(path.c_str());
    const FwRuleList list = benchRules(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.set(list, "FwRuleCfg").ok() && store.save().ok());
    }
    rulesProcessed(state);
    state.counters["file_bytes"] = static_cast<double>(qvtest::readFile(path).size());
}
BENCHMARK(BM_SetAndSave)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_LoadAndGet(benchmark::State& state) {
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path, "<plist version=\"1.0\"><dict/></plist>");
    {
        QvConfig<Mutex> writer(path.c_str());
        if (!writer.set(benchRules(static_cast<int>(state.range(0))), "FwRuleCfg").ok() ||
            !writer.save().ok()) {
            state.SkipWithError("the configuration could not be written");
            return;
        }
    }
    for (auto _ : state) {
        QvConfig<Mutex> store(path.c_str());
        FwRuleList list;
        benchmark::DoNotOptimize(store.get(list, "FwRuleCfg"));
    }
    rulesProcessed(state);
}
BENCHMARK(BM_LoadAndGet)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
