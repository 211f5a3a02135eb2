#include "RuleChecker.h"

#include "QvFirewall.h"
#include "RuleFieldsReader.h"
#include "SystemCommandRunner.h"

namespace qvfwd {

namespace {

constexpr size_t kOutputBytes = 8192;

}  // namespace

RuleChecker::RuleChecker()
    : RuleChecker(std::make_unique<qor::vela::SystemCommandRunner>(kOutputBytes)) {}

int32_t RuleChecker::RuleText(const std::string& rule, std::string* text) const {
    qor::vela::FwRule message;
    message.ParseFromString(rule);
    if (!message.IsInitialized()) {
        return QV_ERR_INCOMPLETE;
    }
    std::string body;
    int32_t code = m_generator.CreateRule(qor::vela::ReadRuleFields(message), body);
    if (code != 0) {
        return code;
    }
    // The generator starts every fragment with a blank; the text reads better without.
    size_t first = body.find_first_not_of(' ');
    *text = first == std::string::npos ? std::string() : body.substr(first);
    return 0;
}

int32_t RuleChecker::Check(const std::string& rule, std::string* report) const {
    std::string body;
    int32_t code = RuleText(rule, &body);
    if (code != 0) {
        return code;
    }
    const qor::vela::Result<std::string> verdict =
        m_run->Run("ipfw -q -n add " + body + " 2>&1", kIpfwTimeoutSeconds);
    if (!verdict.ok()) {
        *report = body + "\nipfw could not be run";
        return QV_ERR_CMD;
    }
    *report = body + "\n" + verdict.value();
    return verdict.value().empty() ? 0 : FW_ERR_RULE_REFUSED;
}

}  // namespace qvfwd
