// What the rules cost a packet, inside a network namespace of the benchmark's own, on
// loopback at MTU 1500: TCP connect/close and bulk TCP throughput with no rules, with
// 1,000 and 10,000 plug-in-shaped rules that the traffic does not match (through ipfw on
// nftables), and with the same 10,000 as plain nftables rules, one line each. Without
// root or nftables it measures nothing and says why.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BenchFiles.h"
#include "NetnsWorld.h"
#include "QvUtil.h"
#include "ScopedEnv.h"
#include "SimFakes.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/RuleParser.h"

namespace {

constexpr unsigned int kFirstRule = 3100;
constexpr unsigned int kSpacing = 6;  // 10,000 rules end below ipfw's last number
constexpr int kConnectPort = 20800;
constexpr int kBulkPort = 20801;
constexpr size_t kBulkChunk = 64 * 1024;
constexpr size_t kBulkPerRound = 32 * 1024 * 1024;

bool quick() {
    return getenv("QV_BENCH_QUICK") != nullptr;
}

bool run(const std::string& command) {
    char output[4096];
    std::memset(output, 0, sizeof output);
    return QvSystem(command.c_str(), output, sizeof output, 60);
}

void writeProc(const std::string& path, const std::string& value) {
    std::ofstream(path) << value;
}

// The address 10.A.B.C of rule `i`, which the loopback traffic never carries.
std::string sourceOf(int i, int offset = 0) {
    const int n = i * 3 + offset;
    return "10." + std::to_string(1 + n / 62500) + "." + std::to_string(n / 250 % 250) + "." +
           std::to_string(n % 250);
}

// Which rules a figure installs: the plug-in's usual shapes, which are exact keys, or the
// same with a two-address prefix for a source, which no key holds, so that each is a line.
enum class Shapes { Keyed, Lines };

// The source of rule `i`: one address, or the prefix of two that holds it.
std::string sourceIn(Shapes shapes, int i, int offset = 0) {
    return sourceOf(i, offset) + (shapes == Shapes::Lines ? "/31" : "");
}

// The plug-in's usual shapes, interleaved: every tenth logged and for the in direction
// only, every tenth UDP over an address list, the rest TCP with one address and one port;
// sets 18 and 19 in stretches of a hundred.
std::string pluginBody(Shapes shapes, int i) {
    const std::string port = std::to_string(1024 + i % 60000);
    if (i % 10 == 0) {
        return "deny log logamount 0 proto tcp src-ip " + sourceIn(shapes, i) + " dst-port " +
               port + " in";
    }
    if (i % 10 == 5) {
        return "deny proto udp src-ip " + sourceIn(shapes, i) + "," + sourceIn(shapes, i, 1) + "," +
               sourceIn(shapes, i, 2) + " dst-port " + port;
    }
    return "deny proto tcp src-ip " + sourceIn(shapes, i) + " dst-port " + port;
}

// The same rule as a plain nftables line in the in pass or the out pass; empty when it
// has none there.
std::string plainLine(Shapes shapes, int i, bool inbound) {
    const std::string port = std::to_string(1024 + i % 60000);
    if (i % 10 == 0) {
        return inbound ? "ip saddr " + sourceIn(shapes, i) + " tcp dport " + port +
                             " log group 65 prefix \"" + std::to_string(i) + "\" drop\n"
                       : "";
    }
    if (i % 10 == 5) {
        return "ip saddr { " + sourceIn(shapes, i) + ", " + sourceIn(shapes, i, 1) + ", " +
               sourceIn(shapes, i, 2) + " } udp dport " + port + " drop\n";
    }
    return "ip saddr " + sourceIn(shapes, i) + " tcp dport " + port + " drop\n";
}

// What the namespace's tables hold: ipfw's tables with `count` rules, or plain
// nftables rules. Installed once and kept while the figures that want them run.
class InstalledRules {
public:
    static InstalledRules& instance() {
        static InstalledRules rules;
        return rules;
    }

    bool ensure(int count, bool plain, Shapes shapes) {
        if (count == m_count && plain == m_plain && shapes == m_shapes) {
            return m_ok;
        }
        // A running enforcer would put its tables back after the flush.
        run("ipfw-enforcer --stop");
        m_ok = run("nft flush ruleset") &&
               (plain ? installPlain(count, shapes) : installIpfw(count, shapes));
        m_count = count;
        m_plain = plain;
        m_shapes = shapes;
        return m_ok;
    }

private:
    InstalledRules()
        : m_state("IPFW_SIM_STATE", m_dir.file("rules")),
          m_path("PATH", std::string(QV_NFT_DIR) + ":" + getenv("PATH")) {}

    bool installIpfw(int count, Shapes shapes) {
        if (count == 0) {
            return true;  // no tables at all
        }
        simtest::FakeNames names;
        ipfwsim::Diagnostics ignored;
        ipfwsim::FirewallState state;
        for (int i = 0; i < count; ++i) {
            std::istringstream text(pluginBody(shapes, i));
            const std::vector<std::string> words{std::istream_iterator<std::string>(text),
                                                 std::istream_iterator<std::string>()};
            ipfwsim::StoredRule stored;
            uint64_t ignoredNumber = 0;
            ipfwsim::RuleParser(names, ignored).parse(words, stored.rule, ignoredNumber);
            stored.rule.number = kFirstRule + kSpacing * static_cast<unsigned int>(i);
            stored.rule.set = (i / 100) % 2 == 0 ? 18 : 19;
            state.insert(stored);
        }
        qvbench::writeWhole(m_dir.file("rules"), state.serialize());
        // Any change builds the tables from a state that never had them.
        return run("ipfw -q set disable 30");
    }

    bool installPlain(int count, Shapes shapes) {
        std::string script = "table inet plain {\n";
        for (const bool inbound : {true, false}) {
            script += std::string("chain ") + (inbound ? "in" : "out") + " {\ntype filter hook " +
                      (inbound ? "prerouting" : "output") + " priority 0; policy accept;\n";
            for (int i = 0; i < count; ++i) {
                script += plainLine(shapes, i, inbound);
            }
            script += "}\n";
        }
        qvbench::writeWhole(m_dir.file("plain.nft"), script + "}\n");
        return run("nft -f " + m_dir.file("plain.nft"));
    }

    qvbench::ScratchDir m_dir;
    qvtest::ScopedEnv m_state;
    qvtest::ScopedEnv m_path;
    int m_count = -1;
    bool m_plain = false;
    Shapes m_shapes = Shapes::Keyed;
    bool m_ok = false;
};

int listenOn(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd, 512) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int connectTo(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// Takes each connection and closes it, until the listening socket shuts.
void closeEach(int listener) {
    for (int client; (client = accept(listener, nullptr, nullptr)) >= 0;) {
        close(client);
    }
}

// Reads one connection to its end.
void drainOne(int listener) {
    const int client = accept(listener, nullptr, nullptr);
    std::vector<char> buffer(kBulkChunk);
    while (client >= 0 && read(client, buffer.data(), buffer.size()) > 0) {
    }
    if (client >= 0) {
        close(client);
    }
}

// A listener on a loopback port, served by `serve` on a thread of its own until it goes.
class LoopbackServer {
public:
    LoopbackServer(int port, void (*serve)(int))
        : m_fd(listenOn(port)), m_thread([this, serve] {
              if (m_fd >= 0) {
                  serve(m_fd);
              }
          }) {}
    ~LoopbackServer() {
        shutdown(m_fd, SHUT_RDWR);
        m_thread.join();
        close(m_fd);
    }
    bool ok() const { return m_fd >= 0; }

private:
    int m_fd;
    std::thread m_thread;
};

void connectClose(benchmark::State& state, bool plain, Shapes shapes = Shapes::Keyed) {
    if (!InstalledRules::instance().ensure(static_cast<int>(state.range(0)), plain, shapes)) {
        state.SkipWithError("installing the rules failed");
        return;
    }
    LoopbackServer server(kConnectPort, closeEach);
    for (auto _ : state) {
        const int fd = server.ok() ? connectTo(kConnectPort) : -1;
        if (fd < 0) {
            state.SkipWithError("connect failed");
            break;
        }
        // Waiting for the server's close paces the rounds: a client that ran ahead would
        // fill the accept queue, and a dropped SYN costs a second.
        char byte;
        while (read(fd, &byte, 1) > 0) {
        }
        close(fd);
    }
}

void bulk(benchmark::State& state, bool plain) {
    if (!InstalledRules::instance().ensure(static_cast<int>(state.range(0)), plain,
                                           Shapes::Keyed)) {
        state.SkipWithError("installing the rules failed");
        return;
    }
    LoopbackServer server(kBulkPort, drainOne);
    const int fd = server.ok() ? connectTo(kBulkPort) : -1;
    const std::vector<char> chunk(kBulkChunk, 'x');
    for (auto _ : state) {
        for (size_t sent = 0; fd >= 0 && sent < kBulkPerRound;) {
            const ssize_t n = write(fd, chunk.data(), chunk.size());
            if (n <= 0) {
                break;
            }
            sent += static_cast<size_t>(n);
        }
    }
    if (fd < 0) {
        state.SkipWithError("connect failed");
        return;
    }
    close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBulkPerRound));
}

void BM_DataPathConnect(benchmark::State& state) {
    connectClose(state, false);
}
void BM_DataPathBulk(benchmark::State& state) {
    bulk(state, false);
}
void BM_PlainNftConnect(benchmark::State& state) {
    connectClose(state, true);
}
void BM_PlainNftBulk(benchmark::State& state) {
    bulk(state, true);
}
// Rules that are no keys, as lines, against the same lines as plain nftables rules.
void BM_DataPathConnectLines(benchmark::State& state) {
    connectClose(state, false, Shapes::Lines);
}
void BM_PlainNftConnectLines(benchmark::State& state) {
    connectClose(state, true, Shapes::Lines);
}

void registerAll() {
    const int large = quick() ? 1000 : 10000;
    for (int count : {0, 1000, large}) {
        benchmark::RegisterBenchmark("BM_DataPathConnect", BM_DataPathConnect)
            ->Arg(count)
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark("BM_DataPathBulk", BM_DataPathBulk)
            ->Arg(count)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark("BM_PlainNftConnect", BM_PlainNftConnect)
        ->Arg(large)
        ->Unit(benchmark::kMicrosecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark("BM_PlainNftBulk", BM_PlainNftBulk)
        ->Arg(large)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    for (auto figure : {BM_DataPathConnectLines, BM_PlainNftConnectLines}) {
        benchmark::RegisterBenchmark(figure == BM_DataPathConnectLines ? "BM_DataPathConnectLines"
                                                                       : "BM_PlainNftConnectLines",
                                     figure)
            ->Arg(large)
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
    }
}

// Loopback at the MTU of an Ethernet link, and connections that leave no TIME_WAIT
// behind to run the ports out.
bool prepareLoopback() {
    writeProc("/proc/sys/net/ipv4/tcp_tw_reuse", "1");
    writeProc("/proc/sys/net/ipv4/ip_local_port_range", "10000 60999");
    return run("ip link set lo mtu 1500");
}

}  // namespace

int main(int argc, char** argv) {
    std::string whyNot;
    if (!nfttest::EnterPrivateNetwork(whyNot)) {
        fprintf(stderr, "DataPathBench: not measured: %s\n", whyNot.c_str());
        return 0;
    }
    if (!prepareLoopback()) {
        fprintf(stderr, "DataPathBench: not measured: loopback MTU could not be set\n");
        return 0;
    }
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    run("ipfw-enforcer --stop");
    return 0;
}
