#include "RuleMgr.h"

#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "RuleFieldsReader.h"

namespace qor {
namespace vela {

namespace {

constexpr int32_t kTopRuleNumber = 65535;  // ipfw's default rule; never allocated
constexpr int32_t kRuleSpacing = 10;
constexpr unsigned int kQuickTimeout = 1;
constexpr unsigned int kCommandTimeout = 3;

std::string rightTrimmed(const std::string& text) {
    size_t end = text.find_last_not_of(" \t\f\v\n\r");
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

}  // namespace

RuleMgr::RuleMgr(const RuleGenerator& generator, CommandRunner& shell, int32_t startNum,
                 int32_t setNum)
    : m_nextNum(static_cast<uint32_t>(startNum)),
      m_setNum(setNum),
      m_startNum(startNum),
      m_generator(generator),
      m_shell(shell) {}

void RuleMgr::Init(const FwRuleList& rules) {
    m_nextNum = static_cast<uint32_t>(m_startNum);
    if (!DeleteSet(static_cast<unsigned int>(m_setNum)).ok()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to delete set %u", "RuleMgr::Init",
               static_cast<unsigned int>(m_setNum));
    }
    uint32_t largest = 0;
    for (const FwRule& rule : rules.rules()) {
        if (rule.rule_index() > largest) {
            largest = rule.rule_index();
        }
        if (!AddRulePriv(rule, static_cast<int32_t>(rule.rule_index())).ok()) {
            QV_LOG(QV_LOG_ERROR, "%s failed to excute cmd", "RuleMgr::Init");
        }
    }
    // Never start below the saved rules; with none saved this is 10.
    const uint32_t afterSaved = largest + kRuleSpacing;
    if (afterSaved > m_nextNum) {
        m_nextNum = afterSaved;
    }
}

Result<> RuleMgr::AddRule(FwRule& rule) {
    const Result<int32_t> number = GenNextRuleNum();
    if (!number.ok()) {
        return Result<>::Failure(number.code());
    }
    rule.set_rule_index(static_cast<uint32_t>(number.value()));
    return AddRulePriv(rule, number.value());
}

Result<> RuleMgr::AddRulePriv(const FwRule& rule, int32_t number) {
    std::string text;
    const int32_t generated = m_generator.CreateRule(ReadRuleFields(rule), text);
    if (generated != 0) {
        return Result<>::Failure(generated);
    }
    // The body brings its own leading blank, hence two blanks after the set number.
    const std::string command = "ipfw -q add " + std::to_string(number) + " set " +
                                std::to_string(m_setNum) + " " + text + " 2>/dev/stdout";
    const Result<std::string> ran = DoCmd(command, kCommandTimeout, false);
    if (ran.ok()) {
        return Result<>::Success();
    }
    if (ran.code() == FW_ERR_IPFW_PRINTED) {
        // Under -q ipfw prints only errors: it refused the rule.
        QV_LOG(QV_LOG_ERROR, "%s invalid rule", "RuleMgr::AddRulePriv");
        return Result<>::Failure(FW_ERR_RULE_REFUSED);
    }
    QV_LOG(QV_LOG_ERROR, "%s failed to excute cmd", "RuleMgr::AddRulePriv");
    return Result<>::Failure(QV_ERR_CMD);
}

Result<int32_t> RuleMgr::GenNextRuleNum() {
    const Result<int32_t> number = GenNextRuleNumPriv(static_cast<int32_t>(m_nextNum));
    QV_LOG(QV_LOG_TRACE, "%s Gened rule num is %d", "RuleMgr::GenNextRuleNum",
           number.ok() ? number.value() : -1);
    if (number.ok()) {
        // Numbers handed out in a row are spaced by ten, leaving room between them.
        const int32_t n = number.value();
        m_nextNum = static_cast<uint32_t>(n - n % kRuleSpacing + kRuleSpacing);
    }
    return number;
}

Result<int32_t> RuleMgr::GenNextRuleNumPriv(int32_t start) {
    int32_t number = start;
    do {
        const std::string command = "ipfw show " + std::to_string(number) + " 2>/dev/stdout";
        const Result<std::string> answer = DoCmd(command, kQuickTimeout, true);
        // An answer that is not about this number at all ("sh: ipfw: not found", "ipfw:
        // socket: Operation not permitted") would be the same for every number: probing on
        // would run a shell for each of the 65535 numbers.
        if (!answer.ok() || answer.value().find(std::to_string(number)) == std::string::npos) {
            QV_LOG(QV_LOG_ERROR, "%s Faield to excute cmd %s", "RuleMgr::GenNextRuleNumPriv",
                   command.c_str());
            return Result<int32_t>::Failure(FW_ERR_NO_RULE_NUM);
        }
        if (rightTrimmed(answer.value()) ==
            "ipfw: rule " + std::to_string(number) + " does not exist") {
            QV_LOG(QV_LOG_TRACE, "%s rule %d can be used", "RuleMgr::GenNextRuleNumPriv", number);
            return Result<int32_t>::Success(number);
        }
        QV_LOG(QV_LOG_WARNING, "%s rule %d is already used", "RuleMgr::GenNextRuleNumPriv", number);
        ++number;
    } while (number < kTopRuleNumber);
    // The top of the range is handed out unprobed; adding under it then fails.
    return Result<int32_t>::Success(number);
}

Result<> RuleMgr::DeleteRule(unsigned int number) {
    return RunQuiet("ipfw -q delete " + std::to_string(number), kCommandTimeout);
}

Result<> RuleMgr::DeleteSet(unsigned int set) {
    QV_LOG(QV_LOG_DETAIL, "%s delete set %d", "RuleMgr::DeleteSet", static_cast<int>(set));
    // Always this manager's own set: a caller cannot delete another manager's rules.
    return RunQuiet("ipfw -q delete set " + std::to_string(m_setNum), kQuickTimeout);
}

Result<> RuleMgr::FlushVelaRules() {
    ResetNumbering();
    return DeleteSet(static_cast<unsigned int>(m_setNum));
}

Result<> RuleMgr::FlushRules() {
    ResetNumbering();
    return RunQuiet("ipfw -q flush", kCommandTimeout);
}

Result<> RuleMgr::Enable() {
    return RunQuiet("ipfw -q set enable " + std::to_string(m_setNum), kCommandTimeout);
}

Result<> RuleMgr::Disable() {
    return RunQuiet("ipfw -q set disable " + std::to_string(m_setNum), kCommandTimeout);
}

void RuleMgr::ResetNumbering() {
    m_nextNum = static_cast<uint32_t>(m_startNum);
}

Result<> RuleMgr::RunQuiet(const std::string& command, unsigned int timeout) {
    return Result<>::FromCode(DoCmd(command, timeout, false).code());
}

Result<std::string> RuleMgr::DoCmd(const std::string& command, unsigned int timeout,
                                   bool outputExpected) {
    Result<std::string> ran = m_shell.Run(command, timeout);
    if (!ran.ok()) {
        // The host's runner answers false, written as a number.
        QV_LOG(QV_LOG_ERROR, "%s failed to excute the cmd %s, ret is %d", "RuleMgr::DoCmd",
               command.c_str(), 0);
        return Result<std::string>::Failure(QV_ERR_CMD);
    }
    if (ran.value().empty() || outputExpected) {
        return ran;
    }
    QV_LOG(QV_LOG_ERROR, "%s Failed to add rule %s, error is %s", "RuleMgr::DoCmd", command.c_str(),
           ran.value().c_str());
    return Result<std::string>::Failure(FW_ERR_IPFW_PRINTED);
}

}  // namespace vela
}  // namespace qor
