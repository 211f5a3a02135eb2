#include "LogRouting.h"

#include <cstdio>
#include <fstream>

#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "SyslogRedirection.h"

namespace qor {
namespace vela {

Result<LogRouting::Change> LogRouting::Ensure() const {
    SyslogRedirection redirection(m_logPath);
    if (!redirection.IsValid()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to compile reg pattern", "FwMgr::RedirectFwLog");
        return Result<Change>::Failure(QV_ERR_INVALID_ARG);
    }
    std::ifstream configuration(m_configurationPath);
    if (redirection.IsRedirected(configuration)) {
        return Result<Change>::Success(Change::None);
    }
    configuration.close();
    AppendBlock();
    return Result<Change>::Success(Change::Appended);
}

// Opens the file for appending (created when missing) and adds the block. A path with a
// line break would add a line of its own choosing to the logger's configuration.
void LogRouting::AppendBlock() const {
    if (m_logPath.find('\n') != std::string::npos) {
        QV_LOG(QV_LOG_ERROR, "%s Unsafe log path, %s left unchanged", "FwMgr::RedirectFwLog",
               m_configurationPath.c_str());
        return;
    }
    FILE* file = fopen(m_configurationPath.c_str(), "a");
    if (file == nullptr) {
        return;
    }
    const std::string block = SyslogRedirection::Block(m_logPath);
    fwrite(block.data(), 1, block.size(), file);
    fflush(file);
    fclose(file);
}

}  // namespace vela
}  // namespace qor
