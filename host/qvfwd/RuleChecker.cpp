#include "RuleChecker.h"

#include <vector>

#include "QvFirewall.h"
#include "QvUtil.h"
#include "RuleFieldsReader.h"

namespace qvfwd {

namespace {

constexpr unsigned int kIpfwTimeoutSeconds = 10;
constexpr size_t kOutputBytes = 8192;

}  // namespace

RuleChecker::Runner RuleChecker::ShellRunner(size_t outputBytes) {
    return [outputBytes](const std::string& command, std::string* output) {
        std::vector<char> buffer(outputBytes, '\0');
        const bool ran = QvSystem(command.c_str(), buffer.data(),
                                  static_cast<unsigned int>(buffer.size()), kIpfwTimeoutSeconds);
        *output = buffer.data();
        return ran;
    };
}

RuleChecker::RuleChecker() : m_run(ShellRunner(kOutputBytes)) {}

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
    std::string verdict;
    if (!m_run("ipfw -q -n add " + body + " 2>&1", &verdict)) {
        *report = body + "\nipfw could not be run";
        return QV_ERR_CMD;
    }
    *report = body + "\n" + verdict;
    return verdict.empty() ? 0 : FW_ERR_RULE_REFUSED;
}

}  // namespace qvfwd
