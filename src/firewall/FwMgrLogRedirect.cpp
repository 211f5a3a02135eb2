// FwMgr: routing ipfw's messages through the system logger into the firewall log file.
#include <regex.h>

#include <cstdio>
#include <fstream>

#include "FwMgr.h"
#include "QvDebugLog.h"
#include "ShellText.h"
#include "SyslogRedirection.h"

namespace qor {
namespace vela {

namespace {

constexpr int kRedirectionPresent = 0;
constexpr int kRedirectionAppended = -2;
constexpr int kPatternFailed = -1;
constexpr unsigned int kCommandTimeout = 1;

// Opens the file for appending (created when missing) and adds the block. A path with a
// line break would add a line of its own choosing to the logger's configuration.
void AppendBlock(const std::string& configurationPath, const std::string& logPath) {
    if (logPath.find('\n') != std::string::npos) {
        QV_LOG(QV_LOG_ERROR, "%s Unsafe log path, %s left unchanged", "FwMgr::RedirectFwLog",
               configurationPath.c_str());
        return;
    }
    FILE* file = fopen(configurationPath.c_str(), "a");
    if (file == nullptr) {
        return;
    }
    const std::string block = SyslogRedirection::Block(logPath);
    fwrite(block.data(), 1, block.size(), file);
    fflush(file);
    fclose(file);
}

}  // namespace

void FwMgr::InitNotify() {
    m_fwLogPath = m_config.GetFwLogPath();
    const std::string configurationPath = m_config.GetSysConfPath();

    if (IsSafeInDoubleQuotes(m_fwLogPath)) {
        (void)m_shell->Run("touch \"" + m_fwLogPath + "\"", kCommandTimeout);
    } else {
        QV_LOG(QV_LOG_ERROR, "%s Unsafe log path %s, not created", "FwMgr::InitNotify",
               m_fwLogPath.c_str());
    }
    if (RedirectFwLog(configurationPath, m_fwLogPath) != kRedirectionPresent) {
        // The logger reads its configuration only at start and on a hang-up.
        (void)m_shell->Run("killall -HUP syslogd", kCommandTimeout);
    }
}

int FwMgr::RedirectFwLog(const std::string& configurationPath, const std::string& logPath) {
    SyslogRedirection redirection(logPath);
    if (!redirection.IsValid()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to compile reg pattern", "FwMgr::RedirectFwLog");
        return kPatternFailed;
    }
    std::ifstream configuration(configurationPath);
    if (redirection.IsRedirected(configuration)) {
        return kRedirectionPresent;
    }
    configuration.close();
    AppendBlock(configurationPath, logPath);
    return kRedirectionAppended;
}

bool FwMgr::MatchQvLogPath(const std::string& line) {
    regex_t pattern;
    const int ret =
        regcomp(&pattern, "^[\\ \t]*\\*\\.\\*[\\ \t]+/var/log/Quorvane/QvrnCore/ipfw.log",
                REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s failed to compile reg expression, ret is %d",
               "FwMgr::FindRedirectFwLog", ret);
        return false;
    }
    const bool matched = regexec(&pattern, line.c_str(), 0, nullptr, 0) == 0;
    regfree(&pattern);
    return matched;
}

}  // namespace vela
}  // namespace qor
