#include "DebugRuleTextLog.h"

#include "QvDebugLog.h"

namespace qor {
namespace vela {

const DebugRuleTextLog* DebugRuleTextLog::Get() {
    static const DebugRuleTextLog log;
    return &log;
}

bool DebugRuleTextLog::Enabled(int level) const {
    return QvrnIsEnableLog(g_debugLogContext, level) != 0;
}

void DebugRuleTextLog::Write(int level, const std::string& line) const {
    QvrnWriteDbgLog(g_debugLogContext, level, "%s", line.c_str());
}

}  // namespace vela
}  // namespace qor
