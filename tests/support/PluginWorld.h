// The whole world of the plug-in in a temporary directory: its configuration (options
// pointing the firewall log and the logger configuration inside the directory), its
// debug log, a listening host service, the simulator's state with build/sim first in
// PATH, and the built library loaded as a host loads it. Each test starts the plug-in
// when it is ready and the fixture finalizes it at the end.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CommandOutput.h"
#include "HostService.h"
#include "IpfwListing.h"
#include "LoadedPlugin.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "TestUtil.h"
#include "VelaCommonMsg.pb.h"
#include "VelaEventLogMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qvtest {

constexpr int kNormalSet = 19;
constexpr int kExceptionSet = 18;

// Events the plug-in handed to the notification callback. The callback has no context
// argument, hence one process-wide record.
struct CallbackEvents {
    static void record(int code, const void* data, int length) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back({code, std::string(static_cast<const char*>(data), length)});
    }
    static std::vector<std::pair<int, std::string>> all() {
        std::lock_guard<std::mutex> lock(mutex);
        return events;
    }
    static void clear() {
        std::lock_guard<std::mutex> lock(mutex);
        events.clear();
    }
    static inline std::mutex mutex;
    static inline std::vector<std::pair<int, std::string>> events;
};

class PluginWorld : public ::testing::Test {
protected:
    void SetUp() override {
        plugin = LoadedPlugin::instance();
        ASSERT_NE(plugin, nullptr) << LoadedPlugin::path() << ": " << dlerror();
        mkdir(confDir().c_str(), 0755);
        mkdir(m_dir.file("logs").c_str(), 0755);
        writeConfig(optionsXml());
        setEnv("QV_CONF_DIR", confDir());
        setEnv("QV_LOG_DIR", m_dir.file("logs"));
        setEnv("QV_IPC_SOCKET", m_dir.file("host.sock"));
        setEnv("IPFW_SIM_STATE", m_dir.file("ipfw-state"));
        setEnv("IPFW_SIM_SYSLOG_CONF", syslogConf());
        const char* path = getenv("PATH");
        setEnv("PATH", std::string(QV_SIM_DIR) + ":" + (path != nullptr ? path : ""));
        service = std::make_unique<HostService>(m_dir.file("host.sock"));
        ASSERT_TRUE(service->listening());
        CallbackEvents::clear();
        plugin->setNotificationCallback(&CallbackEvents::record);
    }

    void TearDown() override {
        if (m_running) {
            stop();
        }
        service.reset();
        m_env.clear();
    }

    // ---- the world -------------------------------------------------------------------
    std::string confDir() const { return m_dir.file("conf"); }
    std::string configPath() const { return m_dir.file("conf/QvFw.conf.plist"); }
    std::string fwLog() const { return m_dir.file("ipfw.log"); }
    std::string syslogConf() const { return m_dir.file("syslog.conf"); }
    std::string debugLog() const { return readFile(m_dir.file("logs/QvFw.log")); }
    // True when the debug log has a line of `level` that holds `text`.
    bool logged(int level, const std::string& text) const {
        return hasLogLine(debugLog(), level, text);
    }

    std::string optionsXml() const {
        return "<key>FwOptions</key><dict><key>enable_fw</key><true/><key>enable_notify</key>"
               "<true/><key>default_set_num</key><integer>19</integer>"
               "<key>exception_set_num</key><integer>18</integer>"
               "<key>fw_log_path</key><string>" +
               fwLog() + "</string><key>syslog_conf</key><string>" + syslogConf() +
               "</string></dict>";
    }
    void writeConfig(const std::string& body) const {
        writeFile(configPath(),
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>" +
                      body + "</dict>\n</plist>\n");
    }

    // ---- the plug-in -----------------------------------------------------------------
    int start() {
        const int code = plugin->initialize(nullptr);
        m_running = true;
        return code;
    }
    void stop() {
        plugin->finalize();
        m_running = false;
    }

    // The handler a host calls for `cmd`: the table's row, else the default handler.
    QvCommandHandler handler(int cmd) const {
        const QvHandlerEntry* table = nullptr;
        int count = 0;
        QvCommandHandler fallback = nullptr;
        EXPECT_EQ(plugin->getHandlers(&table, &count, &fallback), 0);
        const auto row = std::find_if(table, table + count,
                                      [cmd](const QvHandlerEntry& e) { return e.cmd == cmd; });
        return row != table + count ? row->handler : fallback;
    }

    // Calls the handler of `cmd`; the response, parsed into `reply`, is released.
    int call(int cmd, const void* in, int inLen, google::protobuf::MessageLite* reply = nullptr) {
        void* out = nullptr;
        int outLen = -1;
        const int code = handler(cmd)(cmd, in, inLen, &out, &outLen);
        if (reply != nullptr) {
            reply->Clear();
            EXPECT_TRUE(reply->ParseFromString(
                out != nullptr && outLen > 0 ? std::string(static_cast<const char*>(out), outLen)
                                             : std::string()));
        }
        plugin->free(out);
        return code;
    }
    int call(int cmd, const google::protobuf::MessageLite& request,
             google::protobuf::MessageLite* reply = nullptr) {
        const std::string bytes = request.SerializeAsString();
        // An empty request still has to be a valid pointer with a length.
        return call(cmd, bytes.empty() ? "" : bytes.data(), static_cast<int>(bytes.size()), reply);
    }
    int call(int cmd, google::protobuf::MessageLite* reply = nullptr) {
        return call(cmd, nullptr, 0, reply);
    }

    // Adds a rule to the normal set (or the exception set); the number it got, or 0.
    uint32_t add(const qor::vela::FwRule& rule, bool exception = false) {
        qor::vela::UIntType number;
        const int code = call(exception ? QV_CMD_ADD_EXCP_RULE : QV_CMD_ADD_RULE, rule, &number);
        EXPECT_EQ(code, 0);
        return code == 0 ? number.value() : 0;
    }

    std::vector<uint32_t> stored(bool exception = false) {
        qor::vela::FwRuleList list;
        EXPECT_EQ(call(exception ? QV_CMD_GET_EXCP_RULES : QV_CMD_GET_ALL_RULES, &list), 0);
        std::vector<uint32_t> numbers;
        for (const auto& rule : list.rules()) {
            numbers.push_back(rule.rule_index());
        }
        return numbers;
    }

    // ---- ipfw ------------------------------------------------------------------------
    static std::string ipfw(const std::string& args) {
        return commandOutput("ipfw " + args + " 2>&1");
    }
    // The store and ipfw hold the same rule numbers in both sets.
    void expectStoreAndIpfwAgree() {
        auto sorted = [](std::vector<uint32_t> v) {
            std::sort(v.begin(), v.end());
            return v;
        };
        const std::string listing = ipfw("-S show");
        EXPECT_EQ(sorted(stored(false)), numbersInSet(listing, kNormalSet)) << listing;
        EXPECT_EQ(sorted(stored(true)), numbersInSet(listing, kExceptionSet)) << listing;
    }

    // ---- rules -----------------------------------------------------------------------
    // A TCP rule to one destination port, logged when it denies.
    static qor::vela::FwRule tcpRule(qor::vela::ActionEnum action, uint32_t port) {
        qor::vela::FwRule rule;
        rule.set_action(action);
        rule.mutable_protocol()->set_type(qor::vela::PROTO_SPECIFIED);
        rule.mutable_protocol()->set_protocol(qor::vela::PROTO_VALUE_TCP);
        rule.mutable_src_ip()->set_ip_type(qor::vela::IP_ANY);
        rule.mutable_dst_ip()->set_ip_type(qor::vela::IP_ANY);
        auto* ports = rule.mutable_dst_port();
        ports->set_port_type(qor::vela::PORT_LIST);
        auto* entry = ports->add_ports();
        entry->set_use_range(false);
        entry->set_port(port);
        return rule;
    }
    static qor::vela::FwRuleInfoList ruleList(
        const std::vector<std::pair<int, qor::vela::FwRule>>& entries) {
        qor::vela::FwRuleInfoList list;
        for (const auto& [order, rule] : entries) {
            auto* info = list.add_rules();
            info->set_order(order);
            *info->mutable_rule() = rule;
        }
        return list;
    }

    const LoadedPlugin* plugin = nullptr;
    std::unique_ptr<HostService> service;

private:
    void setEnv(const char* name, const std::string& value) {
        m_env.push_back(std::make_unique<ScopedEnv>(name, value));
    }

    TempDir m_dir;
    bool m_running = false;
    std::vector<std::unique_ptr<ScopedEnv>> m_env;
};

}  // namespace qvtest
