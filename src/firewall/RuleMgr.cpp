#include "RuleMgr.h"

#include <cstring>

#include "QvDebugLog.h"
#include "QvErrors.h"
#include "QvUtil.h"

namespace qor {
namespace vela {

namespace {

constexpr unsigned int kOutputSize = 4096;
constexpr int kTopRuleNumber = 65535;  // ipfw's default rule; never allocated
constexpr int kRuleSpacing = 10;
constexpr int kQuickTimeout = 1;
constexpr int kCommandTimeout = 3;
constexpr int kQuietCommandPrinted = -2;

std::string rightTrimmed(const std::string& text) {
    size_t end = text.find_last_not_of(" \t\f\v\n\r");
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

}  // namespace

RuleMgr::RuleMgr() : m_nextNum(0), m_setNum(0), m_startNum(0), m_pGenerator(nullptr) {}

int32_t RuleMgr::Init(int start, int set, RuleGenerator* generator, FwRuleList& rules) {
    m_startNum = start;
    m_nextNum = static_cast<uint32_t>(start);
    m_setNum = set;
    m_pGenerator = generator;

    if (DeleteSet(static_cast<unsigned int>(set)) != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to delete set %u", "RuleMgr::Init",
               static_cast<unsigned int>(set));
    }

    uint32_t largest = 0;
    for (const FwRule& rule : rules.rules()) {
        if (rule.rule_index() > largest) {
            largest = rule.rule_index();
        }
        if (AddRulePriv(rule, static_cast<int>(rule.rule_index()), m_setNum) != 0) {
            QV_LOG(QV_LOG_ERROR, "%s failed to excute cmd", "RuleMgr::Init");
        }
    }
    // Never start below the saved rules; with none saved this is 10.
    const uint32_t afterSaved = largest + kRuleSpacing;
    if (afterSaved > m_nextNum) {
        m_nextNum = afterSaved;
    }
    return 0;
}

int32_t RuleMgr::AddRule(FwRule& rule) {
    int32_t number = GenNextRuleNum();
    if (number == -1) {
        return FW_ERR_NO_RULE_NUM;
    }
    rule.set_rule_index(static_cast<uint32_t>(number));
    return AddRulePriv(rule, number, m_setNum);
}

int32_t RuleMgr::AddRulePriv(const FwRule& rule, int number, int set) {
    std::string text;
    int32_t ret = m_pGenerator->CreateRule(rule, text);
    if (ret != 0) {
        return ret;
    }
    // The body brings its own leading blank, hence two blanks after the set number.
    std::string command = "ipfw -q add " + std::to_string(number) + " set " + std::to_string(set) +
                          " " + text + " 2>/dev/stdout";
    std::string output;
    ret = DoCmd(command, kCommandTimeout, output, false);
    if (ret == 0) {
        return 0;
    }
    if (ret == kQuietCommandPrinted) {
        // Under -q ipfw prints only errors: it refused the rule.
        QV_LOG(QV_LOG_ERROR, "%s invalid rule", "RuleMgr::AddRulePriv");
        return FW_ERR_RULE_REFUSED;
    }
    QV_LOG(QV_LOG_ERROR, "%s failed to excute cmd", "RuleMgr::AddRulePriv");
    return QV_ERR_CMD;
}

int32_t RuleMgr::GenNextRuleNum() {
    Guard<Mutex> guard(m_mutex);
    int32_t number = GenNextRuleNumPriv(static_cast<int>(m_nextNum));
    QV_LOG(QV_LOG_TRACE, "%s Gened rule num is %d", "RuleMgr::GenNextRuleNum", number);
    if (number != -1) {
        // Numbers handed out in a row are spaced by ten, leaving room between them.
        m_nextNum = static_cast<uint32_t>(number - number % kRuleSpacing + kRuleSpacing);
    }
    return number;
}

int32_t RuleMgr::GenNextRuleNumPriv(int start) {
    int number = start;
    do {
        std::string command = "ipfw show " + std::to_string(number) + " 2>/dev/stdout";
        std::string output;
        if (DoCmd(command, kQuickTimeout, output, true) != 0) {
            QV_LOG(QV_LOG_ERROR, "%s Faield to excute cmd %s", "RuleMgr::GenNextRuleNumPriv",
                   command.c_str());
            return -1;
        }
        const std::string freeAnswer = "ipfw: rule " + std::to_string(number) + " does not exist";
        // An answer that is not about this number at all ("sh: ipfw: not found", "ipfw:
        // socket: Operation not permitted") would be the same for every number: probing on
        // would run a shell for each of the 65535 numbers.
        if (output.find(std::to_string(number)) == std::string::npos) {
            QV_LOG(QV_LOG_ERROR, "%s Faield to excute cmd %s", "RuleMgr::GenNextRuleNumPriv",
                   command.c_str());
            return -1;
        }
        if (rightTrimmed(output) == freeAnswer) {
            QV_LOG(QV_LOG_TRACE, "%s rule %d can be used", "RuleMgr::GenNextRuleNumPriv", number);
            return number;
        }
        QV_LOG(QV_LOG_WARNING, "%s rule %d is already used", "RuleMgr::GenNextRuleNumPriv", number);
        ++number;
    } while (number < kTopRuleNumber);
    // The top of the range is handed out unprobed; adding under it then fails.
    return number;
}

int32_t RuleMgr::DeleteRule(unsigned int number) {
    std::string output;
    return DoCmd("ipfw -q delete " + std::to_string(number), kCommandTimeout, output, false);
}

int32_t RuleMgr::DeleteSet(unsigned int set) {
    QV_LOG(QV_LOG_DETAIL, "%s delete set %d", "RuleMgr::DeleteSet", static_cast<int>(set));
    // Always this manager's own set: a caller cannot delete another manager's rules.
    std::string output;
    return DoCmd("ipfw -q delete set " + std::to_string(m_setNum), kQuickTimeout, output, false);
}

int32_t RuleMgr::FlushVelaRules() {
    m_nextNum = static_cast<uint32_t>(m_startNum);
    return DeleteSet(static_cast<unsigned int>(m_setNum));
}

int32_t RuleMgr::FlushRules() {
    m_nextNum = static_cast<uint32_t>(m_startNum);
    std::string output;
    return DoCmd("ipfw -q flush", kCommandTimeout, output, false);
}

int32_t RuleMgr::Enable() {
    std::string output;
    return DoCmd("ipfw -q set enable " + std::to_string(m_setNum), kCommandTimeout, output, false);
}

int32_t RuleMgr::Disable() {
    std::string output;
    return DoCmd("ipfw -q set disable " + std::to_string(m_setNum), kCommandTimeout, output, false);
}

int32_t RuleMgr::DoCmd(const std::string& command, int timeout, std::string& output,
                       bool outputExpected) {
    char buffer[kOutputSize];
    std::memset(buffer, 0, sizeof(buffer));
    bool ran = QvSystem(command.c_str(), buffer, kOutputSize, static_cast<unsigned int>(timeout));
    if (!ran) {
        QV_LOG(QV_LOG_ERROR, "%s failed to excute the cmd %s, ret is %d", "RuleMgr::DoCmd",
               command.c_str(), static_cast<int>(ran));
        return QV_ERR_CMD;
    }
    if (buffer[0] == '\0') {
        return 0;
    }
    output += buffer;
    if (outputExpected) {
        return 0;
    }
    QV_LOG(QV_LOG_ERROR, "%s Failed to add rule %s, error is %s", "RuleMgr::DoCmd", command.c_str(),
           buffer);
    return kQuietCommandPrinted;
}

}  // namespace vela
}  // namespace qor
