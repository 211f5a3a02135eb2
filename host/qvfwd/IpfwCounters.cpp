#include "IpfwCounters.h"

#include "QvFirewall.h"
#include "RuleChecker.h"
#include "SystemCommandRunner.h"

namespace qvfwd {

namespace {

// Room for the listing of tens of thousands of rules.
constexpr size_t kListingBytes = 8u << 20;

}  // namespace

IpfwCounters::IpfwCounters()
    : IpfwCounters(std::make_unique<qor::vela::SystemCommandRunner>(kListingBytes)) {}

int32_t IpfwCounters::Show(std::string* listing) const {
    const qor::vela::Result<std::string> shown =
        m_run->Run("ipfw -S show 2>&1", kIpfwTimeoutSeconds);
    if (!shown.ok()) {
        return QV_ERR_CMD;
    }
    *listing = shown.value();
    return 0;
}

}  // namespace qvfwd
