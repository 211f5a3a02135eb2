#include "IpfwCounters.h"

#include "QvFirewall.h"

namespace qvfwd {

namespace {

// Room for the listing of tens of thousands of rules.
constexpr size_t kListingBytes = 8u << 20;

}  // namespace

IpfwCounters::IpfwCounters() : m_run(RuleChecker::ShellRunner(kListingBytes)) {}

int32_t IpfwCounters::Show(std::string* listing) const {
    return m_run("ipfw -S show 2>&1", listing) ? 0 : QV_ERR_CMD;
}

}  // namespace qvfwd
