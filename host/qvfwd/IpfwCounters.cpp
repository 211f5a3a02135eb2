#include "IpfwCounters.h"

#include <vector>

#include "QvFirewall.h"
#include "QvUtil.h"

namespace qvfwd {

namespace {

constexpr unsigned int kIpfwTimeoutSeconds = 10;
// Room for the listing of tens of thousands of rules.
constexpr size_t kListingBytes = 8u << 20;

bool RunShell(const std::string& command, std::string* output) {
    std::vector<char> buffer(kListingBytes, '\0');
    bool ran = QvSystem(command.c_str(), buffer.data(), static_cast<unsigned int>(buffer.size()),
                        kIpfwTimeoutSeconds);
    *output = buffer.data();
    return ran;
}

}  // namespace

IpfwCounters::IpfwCounters() : m_run(RunShell) {}

int32_t IpfwCounters::Show(std::string* listing) const {
    return m_run("ipfw -S show 2>&1", listing) ? 0 : QV_ERR_CMD;
}

}  // namespace qvfwd
