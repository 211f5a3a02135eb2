// qvfwctl status: the plug-in's switches and rule counts with the daemon's own record.
#include "JsonWriter.h"
#include "QvControl.h"
#include "QvControlStatus.h"
#include "QvFirewall.h"
#include "SubCommand.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qvctl {

namespace {

struct FirewallState {
    bool enabled = false;
    bool notify = false;
    int normalRules = 0;
    int exceptionRules = 0;
    DaemonStatus daemon;
};

template <typename Message>
bool Ask(CtlContext& context, uint32_t command, Message* answer, int* status) {
    std::string reply;
    *status = CallForStatus(context, command, "", &reply);
    return *status == kExitOk && ReadReply(context, reply, "status", answer, status);
}

bool Gather(CtlContext& context, FirewallState* state, int* status) {
    qor::vela::BoolType enabled;
    qor::vela::BoolType notify;
    qor::vela::FwRuleList normal;
    qor::vela::FwRuleList exceptions;
    std::string daemon;
    if (!Ask(context, QV_CMD_IS_FW_ENABLE, &enabled, status) ||
        !Ask(context, QV_CMD_IS_NOTIFY_ENABLE, &notify, status) ||
        !Ask(context, QV_CMD_GET_ALL_RULES, &normal, status) ||
        !Ask(context, QV_CMD_GET_EXCP_RULES, &exceptions, status)) {
        return false;
    }
    *status = CallForStatus(context, kStatus, "", &daemon);
    if (*status != kExitOk) {
        return false;
    }
    state->enabled = enabled.value();
    state->notify = notify.value();
    state->normalRules = normal.rules_size();
    state->exceptionRules = exceptions.rules_size();
    state->daemon = ParseStatus(daemon);
    if (state->daemon.pid <= 0) {
        *status = Fail(context, kExitFailed, "cannot read qvfwd's status record");
        return false;
    }
    return true;
}

std::string DaemonJson(const DaemonStatus& daemon) {
    return JsonObject()
        .Number("pid", daemon.pid)
        .Number("uptime_seconds", daemon.uptimeSeconds)
        .Number("plugin_id", daemon.pluginId)
        .Text("plugin_path", daemon.pluginPath)
        .Text("control_socket", daemon.controlSocket)
        .Text("service_socket", daemon.serviceSocket)
        .Number("events_from_service", daemon.eventsFromService)
        .Number("events_from_callback", daemon.eventsFromCallback)
        .Number("events_kept", daemon.eventsKept)
        .Number("stream_clients", daemon.streamClients)
        .Number("logged_packets_lost", daemon.loggedPacketsLost)
        .str();
}

std::string StateJson(const FirewallState& state) {
    const DaemonStatus& daemon = state.daemon;
    return JsonObject()
        .Bool("enabled", state.enabled)
        .Bool("enforced", daemon.ipfw == "answers")
        .Text("ipfw", daemon.ipfw)
        .Bool("notify", state.notify)
        .Number("normal_rules", state.normalRules)
        .Number("exception_rules", state.exceptionRules)
        .Number("normal_set", daemon.normalSet)
        .Number("exception_set", daemon.exceptionSet)
        .Text("fw_log_path", daemon.fwLogPath)
        .Text("syslog_conf", daemon.syslogConf)
        .Text("config_path", daemon.configPath)
        .Raw("daemon", DaemonJson(daemon))
        .str();
}

// An enabled firewall over an ipfw that does not answer stops nothing: said first.
std::string SwitchText(const FirewallState& state) {
    const std::string& ipfw = state.daemon.ipfw;
    std::string text = state.enabled ? "enabled" : "disabled";
    return ipfw == "answers" ? text : text + ", NOT ENFORCED: " + ipfw;
}

std::string StateText(const FirewallState& state) {
    const DaemonStatus& daemon = state.daemon;
    char text[4096];
    snprintf(
        text, sizeof text,
        "firewall         %s\n"
        "notification     %s\n"
        "normal rules     %d (ipfw set %lld)\n"
        "exception rules  %d (ipfw set %lld)\n"
        "firewall log     %s\n"
        "syslog config    %s\n"
        "configuration    %s\n"
        "daemon           pid %lld, up %lld s, plug-in %lld (%s)\n"
        "events           %lld from the host service, %lld from the callback, %lld kept, "
        "%lld watching\n"
        "logged packets   %lld lost before they reached the log\n",
        SwitchText(state).c_str(), state.notify ? "on" : "off", state.normalRules,
        static_cast<long long>(daemon.normalSet), state.exceptionRules,
        static_cast<long long>(daemon.exceptionSet), daemon.fwLogPath.c_str(),
        daemon.syslogConf.c_str(), daemon.configPath.c_str(), static_cast<long long>(daemon.pid),
        static_cast<long long>(daemon.uptimeSeconds), static_cast<long long>(daemon.pluginId),
        daemon.pluginPath.c_str(), static_cast<long long>(daemon.eventsFromService),
        static_cast<long long>(daemon.eventsFromCallback),
        static_cast<long long>(daemon.eventsKept), static_cast<long long>(daemon.streamClients),
        static_cast<long long>(daemon.loggedPacketsLost));
    return text;
}

}  // namespace

int RunStatus(CtlContext& context) {
    if (!context.arguments.positional.empty()) {
        return Fail(context, kExitUsage, "status takes no argument");
    }
    FirewallState state;
    int status = kExitOk;
    if (!Gather(context, &state, &status)) {
        return status;
    }
    std::string text = context.arguments.json ? StateJson(state) + "\n" : StateText(state);
    fputs(text.c_str(), context.out);
    return kExitOk;
}

}  // namespace qvctl
