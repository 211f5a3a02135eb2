// The plug-in loaded as a host loads it (dlopen, exported symbols only), started in a
// whole world of its own: configuration with `count` stored normal rules, debug log,
// firewall log and logger configuration in a scratch directory, a keep-alive host
// service, and the simulated ipfw (or the one in `ipfwDir`) first in PATH with its own
// state.
#pragma once

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "BenchConfiguration.h"
#include "BenchFiles.h"
#include "BenchRules.h"
#include "HostService.h"
#include "LoadedPlugin.h"
#include "QvConfig.h"
#include "QvFirewall.h"
#include "VelaFwInternalMsgConvert.h"
#include "VelaFwMsgConvert.h"

namespace qvbench {

using PluginApi = qvtest::LoadedPlugin;

class PluginWorld {
public:
    explicit PluginWorld(int count, const std::string& ipfwDir = QV_SIM_DIR,
                         unsigned int spacing = kRuleSpacing)
        : m_conf(makeDir("conf")),
          m_confEnv("QV_CONF_DIR", m_conf),
          m_logEnv("QV_LOG_DIR", makeDir("logs")),
          m_socketEnv("QV_IPC_SOCKET", m_dir.file("host.sock")),
          m_stateEnv("IPFW_SIM_STATE", m_dir.file("ipfw-state")),
          m_syslogEnv("IPFW_SIM_SYSLOG_CONF", m_dir.file("syslog.conf")),
          m_pathEnv("PATH", ipfwDir + ":" + currentPath()),
          m_service(m_dir.file("host.sock")) {
        writeBenchConfiguration(configPath(), count, fwLog(), m_dir.file("syslog.conf"), spacing);
    }

    std::string configPath() const { return m_conf + "/QvFw.conf.plist"; }
    std::string backupPath() const { return m_conf + "/backup/QvFw.conf.plist"; }
    std::string fwLog() const { return m_dir.file("ipfw.log"); }
    qvtest::HostService& service() { return m_service; }

    // Calls the handler of `cmd` as a host does; the response bytes land in `response`.
    static int call(int cmd, const std::string& request, std::string* response = nullptr) {
        const PluginApi* api = PluginApi::instance();
        const QvHandlerEntry* table = nullptr;
        int count = 0;
        QvCommandHandler handler = nullptr;
        api->getHandlers(&table, &count, &handler);
        for (int i = 0; i < count; ++i) {
            if (table[i].cmd == cmd) {
                handler = table[i].handler;
            }
        }
        void* out = nullptr;
        int outLen = 0;
        const int code = handler(cmd, request.empty() ? "" : request.data(),
                                 static_cast<int>(request.size()), &out, &outLen);
        if (response != nullptr && out != nullptr && outLen > 0) {
            response->assign(static_cast<const char*>(out), static_cast<size_t>(outLen));
        }
        api->free(out);
        return code;
    }

private:
    std::string makeDir(const char* name) {
        const std::string path = m_dir.file(name);
        mkdir(path.c_str(), 0755);
        return path;
    }
    static std::string currentPath() {
        const char* path = getenv("PATH");
        return path != nullptr ? path : "/usr/bin:/bin";
    }

    ScratchDir m_dir;
    std::string m_conf;
    ScopedEnv m_confEnv;
    ScopedEnv m_logEnv;
    ScopedEnv m_socketEnv;
    ScopedEnv m_stateEnv;
    ScopedEnv m_syslogEnv;
    ScopedEnv m_pathEnv;
    qvtest::HostService m_service;
};

// Times start-ups of the loaded plug-in in the world the caller made, each one stopped
// again untimed.
inline void timeStartups(benchmark::State& state) {
    const PluginApi* api = PluginApi::instance();
    if (api == nullptr) {
        state.SkipWithError("plug-in not loaded");
        return;
    }
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

}  // namespace qvbench
