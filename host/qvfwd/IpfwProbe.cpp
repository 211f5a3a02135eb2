#include "IpfwProbe.h"

#include "RuleChecker.h"
#include "SystemCommandRunner.h"

namespace qvfwd {

namespace {

constexpr size_t kOutputBytes = 4096;
// The shell's own report of ipfw's exit status ends the output.
constexpr char kStatusMark[] = "\nipfw exit status ";

std::string LastLineOf(const std::string& text) {
    size_t end = text.find_last_not_of('\n');
    if (end == std::string::npos) {
        return std::string();
    }
    size_t start = text.rfind('\n', end);
    return text.substr(start == std::string::npos ? 0 : start + 1, end - start);
}

}  // namespace

IpfwProbe::IpfwProbe()
    : IpfwProbe(std::make_unique<qor::vela::SystemCommandRunner>(kOutputBytes)) {}

bool IpfwProbe::Answers(std::string* why) const {
    const qor::vela::Result<std::string> ran = m_run->Run(
        "ipfw set show 2>&1; printf '\\nipfw exit status %d\\n' $?", kIpfwTimeoutSeconds);
    if (!ran.ok()) {
        *why = "ipfw could not be run, or did not answer in time";
        return false;
    }
    const std::string& output = ran.value();
    const size_t mark = output.rfind(kStatusMark);
    if (mark == std::string::npos) {
        *why = "ipfw gave no answer";
        return false;
    }
    const std::string status = LastLineOf(output.substr(mark + sizeof kStatusMark - 1));
    if (status == "0") {
        return true;
    }
    const std::string said = LastLineOf(output.substr(0, mark));
    *why = "ipfw exited with status " + status + (said.empty() ? "" : ": " + said);
    return false;
}

}  // namespace qvfwd
