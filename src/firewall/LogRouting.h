// Routes the program ipfw's messages, through the system logger, into the firewall log
// file: the logger's configuration gets the routing block unless a line at or after the
// "!ipfw" block line already sends everything there.
#pragma once

#include <string>

#include "QvResult.h"

namespace qor {
namespace vela {

class LogRouting {
public:
    enum class Change { None, Appended };

    LogRouting(std::string configurationPath, std::string logPath)
        : m_configurationPath(std::move(configurationPath)), m_logPath(std::move(logPath)) {}

    // `Appended` also when the file could not be written (the logger is then told to
    // reread all the same, which costs nothing); fails with QV_ERR_INVALID_ARG when the
    // log path makes a pattern that does not compile.
    Result<Change> Ensure() const;

private:
    void AppendBlock() const;

    const std::string m_configurationPath;
    const std::string m_logPath;
};

}  // namespace vela
}  // namespace qor
