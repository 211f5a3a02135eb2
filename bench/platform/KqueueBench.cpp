// What one pass of the log watcher costs: a kevent() poll over its two registrations,
// and the wake-up latency from an append to the event.
#include <benchmark/benchmark.h>
#include <sys/event.h>

#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>
#include <string>

namespace {

// A temporary log file followed as the watcher follows it.
class Followed {
public:
    Followed() {
        char pattern[] = "/tmp/qvbench.XXXXXX";
        dir_ = mkdtemp(pattern) != nullptr ? pattern : "";
        path_ = dir_ + "/ipfw.log";
        writer_ = open(path_.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
        reader_ = open(path_.c_str(), O_RDONLY);
        queue_ = kqueue();
        struct kevent changes[2];
        EV_SET(&changes[0], reader_, EVFILT_VNODE, EV_ADD | EV_ENABLE | EV_CLEAR,
               NOTE_DELETE | NOTE_RENAME, 0, nullptr);
        EV_SET(&changes[1], reader_, EVFILT_READ, EV_ADD | EV_ENABLE | EV_CLEAR, 0, 0, nullptr);
        const timespec zero{0, 0};
        kevent(queue_, changes, 2, nullptr, 0, &zero);
    }
    ~Followed() {
        close(queue_);
        close(reader_);
        close(writer_);
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }

    int queue() const { return queue_; }
    int reader() const { return reader_; }
    void append() const { benchmark::DoNotOptimize(write(writer_, "ipfw: 3100 Deny\n", 16)); }

private:
    std::string dir_;
    std::string path_;
    int writer_ = -1;
    int reader_ = -1;
    int queue_ = -1;
};

void BM_KeventPollIdle(benchmark::State& state) {
    Followed file;
    struct kevent event {};
    const timespec zero{0, 0};
    for (auto _ : state) {
        benchmark::DoNotOptimize(kevent(file.queue(), nullptr, 0, &event, 1, &zero));
    }
}
BENCHMARK(BM_KeventPollIdle);

void BM_AppendToEvent(benchmark::State& state) {
    Followed file;
    struct kevent event {};
    const timespec second{1, 0};
    char buffer[64];
    for (auto _ : state) {
        file.append();
        if (kevent(file.queue(), nullptr, 0, &event, 1, &second) != 1) {
            state.SkipWithError("no event within a second");
            break;
        }
        benchmark::DoNotOptimize(read(file.reader(), buffer, sizeof buffer));
    }
}
BENCHMARK(BM_AppendToEvent);

}  // namespace

BENCHMARK_MAIN();
