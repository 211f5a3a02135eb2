// The cost of QvSystem("true") (process start-up through reaping, reported as the median
// of 200 single calls) and of debug-log lines written and dropped.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "QvLog.h"
#include "QvUtil.h"

namespace {

void BM_QvSystemTrue(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(QvSystem("true", nullptr, 0, 5));
    }
}
BENCHMARK(BM_QvSystemTrue)
    ->Iterations(1)
    ->Repetitions(200)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

// Baseline: the C library's system(3), which forks the caller and offers no time-out.
void BM_LibcSystemTrue(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(system("true"));
    }
}
BENCHMARK(BM_LibcSystemTrue)
    ->Iterations(1)
    ->Repetitions(200)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

void BM_QvSystemCaptureEcho(benchmark::State& state) {
    char buffer[4096];
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            QvSystem("echo 65535 allow ip from any to any", buffer, sizeof buffer, 5));
    }
}
BENCHMARK(BM_QvSystemCaptureEcho)
    ->Iterations(1)
    ->Repetitions(200)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);

// A log in a fresh temporary directory, removed afterwards.
class ScratchLog {
public:
    ScratchLog() {
        char pattern[] = "/tmp/qvbench.XXXXXX";
        m_dir = mkdtemp(pattern) ? pattern : "/tmp";
        m_path = m_dir + "/bench.log";
        m_context = QvrnCreateDbgLog("Bench", m_path.c_str(), 6);
    }
    ~ScratchLog() {
        QvrnReleaseDbgLog(m_context);
        unlink(m_path.c_str());
        rmdir(m_dir.c_str());
    }
    void* context() const { return m_context; }

private:
    std::string m_dir;
    std::string m_path;
    void* m_context;
};

void BM_LogLineWritten(benchmark::State& state) {
    ScratchLog log;
    for (auto _ : state) {
        QvrnWriteDbgLog(log.context(), 3, "%s failed to excute the cmd %s, ret is %d",
                        "RuleMgr::DoCmd", "ipfw -q add 3100 set 2 deny ip from any to any", 0);
    }
}
BENCHMARK(BM_LogLineWritten);

// Baseline: one appending write(2) of a line of the same length, without formatting.
void BM_RawAppendWrite(benchmark::State& state) {
    char pattern[] = "/tmp/qvbench.XXXXXX";
    int fd = mkstemp(pattern);
    fcntl(fd, F_SETFL, O_APPEND);
    const std::string line(130, 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
    }
    close(fd);
    unlink(pattern);
}
BENCHMARK(BM_RawAppendWrite);

void BM_LogLineDropped(benchmark::State& state) {
    ScratchLog log;
    for (auto _ : state) {
        if (QvrnIsEnableLog(log.context(), 7)) {
            QvrnWriteDbgLog(log.context(), 7, "%s detail", "RuleMgr::DoCmd");
        }
    }
}
BENCHMARK(BM_LogLineDropped);

}  // namespace

BENCHMARK_MAIN();
