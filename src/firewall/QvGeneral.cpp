#include "QvGeneral.h"

#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "QvUtil.h"
#include "VelaCommonMsg.pb.h"

extern "C" void QvPluginNullNotify(int, const void*, int) {}

int nullHandler(int, const void*, int, void**, int*) {
    QV_LOG(QV_LOG_TRACE, "%s Enter", "nullHandler");
    return 0;
}

int SetDebugLevel(int cmd, const void* in, int inLen, void**, int*) {
    if (in == nullptr || inLen <= 0) {
        QV_LOG(QV_LOG_ERROR, "%s cmd is %d, in is %p, inLen is %d", "SetDebugLevel", cmd, in,
               inLen);
        return QV_ERR_INVALID_ARG;
    }
    qor::vela::DebugOption option;
    option.ParseFromArray(in, inLen);
    const uint32_t level = static_cast<uint32_t>(option.debug_level());
    if (level >= 8) {
        QV_LOG(QV_LOG_ERROR, "%s invalid level %d", "SetDebugLevel", static_cast<int>(level));
        return QV_ERR_INVALID_ARG;
    }
    QvrnSetDbgLogLevel(g_debugLogContext, static_cast<int>(level));
    QvSetUtilDebugLevel(static_cast<int>(level));
    return 0;
}
