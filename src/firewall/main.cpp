// The plug-in's exported entry points; the command table is CommandTable.cpp.
#include "CommandTable.h"
#include "FwMgr.h"
#include "Handler.h"
#include "HostEventSink.h"
#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "QvGeneral.h"
#include "QvLog.h"
#include "QvUtil.h"

using namespace qor::vela;

namespace {

constexpr int kPluginId = 128;

// Where events go; never null. The host may set it before or after Initialize, so it
// lives here rather than in the manager, whose sink reads it for each event.
std::atomic<QvNotifyCallback> s_notify{QvPluginNullNotify};

}  // namespace

extern "C" int QvPluginGetId(void) {
    return kPluginId;
}

// A failed manager stays in g_pFwMgr: its handlers answer QV_ERR_INIT and Finalize cleans
// it up.
extern "C" int QvPluginInitialize(void*) {
    if (g_debugLogContext == nullptr) {
        QvInitDebugByConfig(&g_debugLogContext, "QvFw.conf.plist", "QvFw",
                            "/var/log/Quorvane/QvrnCore/QvFw.log");
    }
    QV_LOG(QV_LOG_TRACE, "%s Enter...", "QvPluginInitialize");
    g_pFwMgr = new FwMgr(std::make_unique<HostEventSink>(s_notify));
    if (!g_pFwMgr->Init().ok()) {
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
        (void)g_pFwMgr->Final();
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
    s_notify = callback != nullptr ? callback : QvPluginNullNotify;
}
