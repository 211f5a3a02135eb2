// The sub-commands that take no rule: flushes, the firewall and notification switches,
// the debug level, confirming an applied list, and the daemon's metrics.
#include "CtlArguments.h"
#include "QvControl.h"
#include "QvFirewall.h"
#include "SubCommand.h"
#include "VelaCommonMsg.pb.h"

namespace qvctl {

namespace {

// The plug-in's identifier, which the debug-level request names (and the plug-in ignores).
constexpr int kPluginId = 128;
constexpr unsigned int kHighestDebugLevel = 7;

int SendBare(CtlContext& context, uint32_t command) {
    if (!context.arguments.positional.empty()) {
        return Fail(context, kExitUsage, context.arguments.command + " takes no argument");
    }
    std::string reply;
    int status = CallForStatus(context, command, "", &reply);
    return status == kExitOk ? PrintDone(context) : status;
}

}  // namespace

int RunFlushAll(CtlContext& context) {
    return SendBare(context, QV_CMD_FLUSH_RULES);
}

int RunFlushNormal(CtlContext& context) {
    return SendBare(context, QV_CMD_FLUSH_NORMAL_RULES);
}

int RunFlushExceptions(CtlContext& context) {
    return SendBare(context, QV_CMD_FLUSH_EXCP_RULES);
}

int RunEnable(CtlContext& context) {
    return SendBare(context, QV_CMD_ENABLE_FW);
}

int RunDisable(CtlContext& context) {
    return SendBare(context, QV_CMD_DISABLE_FW);
}

int RunConfirm(CtlContext& context) {
    return SendBare(context, kConfirm);
}

int RunMetrics(CtlContext& context) {
    if (!context.arguments.positional.empty()) {
        return Fail(context, kExitUsage, "metrics takes no argument");
    }
    std::string text;
    int status = CallForStatus(context, kMetrics, "", &text);
    if (status == kExitOk) {
        fputs(text.c_str(), context.out);
    }
    return status;
}

int RunNotify(CtlContext& context) {
    const std::vector<std::string>& arguments = context.arguments.positional;
    if (arguments.size() != 1 || (arguments[0] != "on" && arguments[0] != "off")) {
        return Fail(context, kExitUsage, "notify takes on or off");
    }
    std::string reply;
    uint32_t command = arguments[0] == "on" ? QV_CMD_ENABLE_NOTIFY : QV_CMD_DISABLE_NOTIFY;
    int status = CallForStatus(context, command, "", &reply);
    return status == kExitOk ? PrintDone(context) : status;
}

int RunDebugLevel(CtlContext& context) {
    const std::vector<std::string>& arguments = context.arguments.positional;
    unsigned int level = 0;
    if (arguments.size() != 1 || !ParseUnsigned(arguments[0], &level) ||
        level > kHighestDebugLevel) {
        return Fail(context, kExitUsage, "debug-level takes a level from 0 to 7");
    }
    qor::vela::DebugOption option;
    option.set_plugins(kPluginId);
    option.set_debug_level(static_cast<int>(level));
    std::string reply;
    int status = CallForStatus(context, QV_CMD_SET_DEBUG_LEVEL, option.SerializeAsString(), &reply);
    return status == kExitOk ? PrintDone(context) : status;
}

}  // namespace qvctl
