// The plug-in's entry points and its command table.
#include "FwMgr.h"
#include "Handler.h"
#include "QvDebugLog.h"
#include "QvErrors.h"
#include "QvGeneral.h"
#include "QvLog.h"
#include "QvPlugin.h"
#include "QvUtil.h"

using namespace qor::vela;

qor::vela::FwMgr* g_pFwMgr = nullptr;

namespace {

constexpr int kPluginId = 128;
constexpr int kHandlerCount = 21;

}  // namespace

// The host receives the rows in this order: it is part of the interface, not numeric.
extern "C" const QvHandlerEntry handlerArr[kHandlerCount] = {
    {QV_CMD_ADD_RULE, "add a rule", AddRule},
    {QV_CMD_DELETE_RULE, "delete a rule", DeleteRule},
    {QV_CMD_FLUSH_RULES, "flush all rules", FlushRules},
    {QV_CMD_ENABLE_FW, "enable fw", EnableFirewall},
    {QV_CMD_DISABLE_FW, "disable fw", DisableFirewall},
    {QV_CMD_GET_ALL_RULES, "get all rules", GetAllRules},
    {QV_CMD_SWAP_RULES, "swap rules", SwapRuleOrder},
    {QV_CMD_ADD_RULE_LIST, "add rule list", AddRuleList},
    {QV_CMD_FLUSH_NORMAL_RULES, "flush vela's rule", FlushNormalRules},
    {QV_CMD_IS_FW_ENABLE, "is fw enable", IsFwEnable},
    {QV_CMD_ENABLE_NOTIFY, "enable event log", SetNotifyEnable},
    {QV_CMD_DISABLE_NOTIFY, "disable event log", SetNotifyEnable},
    {QV_CMD_IS_NOTIFY_ENABLE, "is event log enabled", IsNotifyEnable},
    {QV_CMD_SET_RULE_LIST, "set rules", SetRuleList},
    {QV_CMD_ADD_EXCP_RULE, "add excp rule", AddExcpRule},
    {QV_CMD_DELETE_EXCP_RULE, "del excp rule", DeleteExcpRule},
    {QV_CMD_FLUSH_EXCP_RULES, "flush excp rule", FlushExcpRule},
    {QV_CMD_SET_EXCP_RULE_LIST, "set excp rules", SetExcpRuleList},
    {QV_CMD_GET_EXCP_RULES, "get excp rules", GetExcpRules},
    {QV_CMD_MODIFY_RULE, "modify a rule", ModifyRule},
    {QV_CMD_SET_DEBUG_LEVEL, "set debug level", SetDebugLevel},
};

extern "C" int QvPluginGetId(void) {
    return kPluginId;
}

// A failed manager stays in g_pFwMgr, so that handlers meanwhile find an object and
// Finalize cleans it up.
extern "C" int QvPluginInitialize(void*) {
    if (g_debugLogContext == nullptr) {
        QvInitDebugByConfig(&g_debugLogContext, "QvFw.conf.plist", "QvFw",
                            "/var/log/Quorvane/QvrnCore/QvFw.log");
    }
    QV_LOG(QV_LOG_TRACE, "%s Enter...", "QvPluginInitialize");
    g_pFwMgr = new FwMgr;
    if (g_pFwMgr->Init() != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init FwMgr", "QvPluginInitialize");
        return QV_ERR_INIT;
    }
    return 0;
}

// The log is released before the manager stops, so what Final logs is dropped. The
// watcher thread logs as well, so it is stopped first: it must not write to a freed log.
extern "C" void QvPluginFinalize(void) {
    QV_LOG(QV_LOG_TRACE, "%s Enter...", "QvPluginFinalize");
    if (g_pFwMgr != nullptr) {
        g_pFwMgr->StopNotify();
    }
    QvrnReleaseDbgLog(g_debugLogContext);
    g_debugLogContext = nullptr;
    if (g_pFwMgr != nullptr) {
        g_pFwMgr->Final();
        delete g_pFwMgr;
        g_pFwMgr = nullptr;
    }
}

extern "C" int QvPluginFree(void* buffer) {
    free(buffer);
    return 0;
}

extern "C" int QvPluginGetHandlers(const QvHandlerEntry** table, int* count,
                                   QvCommandHandler* defaultHandler) {
    if (table == nullptr || count == nullptr || defaultHandler == nullptr) {
        return QV_ERR_INVALID_ARG;
    }
    *table = handlerArr;
    *count = kHandlerCount;
    *defaultHandler = nullHandler;
    return 0;
}

extern "C" void QvPluginSetNotificationCallback(QvNotifyCallback callback) {
    g_notify = callback != nullptr ? callback : QvPluginNullNotify;
}
