#include "SystemCommandRunner.h"

#include "QvFirewall.h"
#include "QvUtil.h"

namespace qor {
namespace vela {

Result<std::string> SystemCommandRunner::Run(const std::string& command,
                                             unsigned int timeoutSeconds) {
    char buffer[kOutputLimit] = {};
    if (!QvSystem(command.c_str(), buffer, kOutputLimit, timeoutSeconds)) {
        return Result<std::string>::Failure(QV_ERR_CMD);
    }
    return Result<std::string>::Success(buffer);
}

}  // namespace vela
}  // namespace qor
