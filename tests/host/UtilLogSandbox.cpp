// Points libQvUtil's own diagnostics at a temporary directory for the whole test binary,
// before any test can make the library open its log.
#include <stdlib.h>

#include <string>

#include "host/HostTestSupport.h"

namespace qvtest {

const std::string& UtilLogDir() {
    static TempDir dir;
    return dir.path();
}

namespace {

struct InstallUtilLogDir {
    InstallUtilLogDir() { setenv("QV_LOG_DIR", UtilLogDir().c_str(), 1); }
} g_installUtilLogDir;

}  // namespace
}  // namespace qvtest
