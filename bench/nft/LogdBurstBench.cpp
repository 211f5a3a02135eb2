// ipfw-logd under a burst of 20,000 logged packets sent in a raw loop (about 0.1 s), inside
// a network namespace of the benchmark's own: how many lines it wrote and how many the log
// counts lost, and how long until every packet was accounted for. Without root or
// nftables it measures nothing and says why.
#include <benchmark/benchmark.h>
#include <stdio.h>

#include <chrono>

#include "LogdWorld.h"

namespace {

constexpr int kBurst = 20000;

void BM_LogdBurst(benchmark::State& state) {
    for (auto _ : state) {
        nfttest::LogdWorld world(QV_NFT_DIR);
        std::string whyNot;
        if (!world.Start({}, whyNot)) {
            state.SkipWithError(whyNot.c_str());
            return;
        }
        const auto start = std::chrono::steady_clock::now();
        const int sent = world.SendBurst(kBurst);
        const auto sentAt = std::chrono::steady_clock::now();
        // The first marker written follows every packet of the burst into the log.
        const int markers = world.SendMarkersUntilOneIsWritten(60);
        const auto accountedAt = std::chrono::steady_clock::now();
        if (markers == 0) {
            state.SkipWithError("no marker reached the log");
            return;
        }
        const nfttest::LogTally tally = world.Tally();
        state.SetIterationTime(std::chrono::duration<double>(accountedAt - start).count());
        state.counters["sent"] = sent + markers;
        state.counters["markers"] = markers;
        state.counters["written"] = static_cast<double>(tally.written);
        state.counters["lost"] = static_cast<double>(tally.lost);
        state.counters["send_ms"] =
            std::chrono::duration<double, std::milli>(sentAt - start).count();
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string whyNot;
    if (!nfttest::EnterPrivateNetwork(whyNot)) {
        fprintf(stderr, "LogdBurstBench: not measured: %s\n", whyNot.c_str());
        return 0;
    }
    benchmark::RegisterBenchmark("BM_LogdBurst", BM_LogdBurst)
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->Iterations(1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
