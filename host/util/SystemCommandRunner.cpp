// The class is part of the library's interface; everything else here stays hidden.
#pragma GCC visibility push(default)
#include "SystemCommandRunner.h"
#pragma GCC visibility pop

#include <vector>

#include "QvUtil.h"

namespace qor {
namespace vela {

Result<std::string> SystemCommandRunner::Run(const std::string& command,
                                             unsigned int timeoutSeconds) {
    std::vector<char> buffer(m_outputLimit, '\0');
    if (!QvSystem(command.c_str(), buffer.data(), static_cast<unsigned int>(buffer.size()),
                  timeoutSeconds)) {
        return Result<std::string>::Failure(kCannotRun);
    }
    return Result<std::string>::Success(buffer.data());
}

}  // namespace vela
}  // namespace qor
