#include "FwMgr.h"

#include <regex.h>

#include "DebugRuleTextLog.h"
#include "LogRouting.h"
#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "ShellText.h"
#include "SystemCommandRunner.h"

namespace qor {
namespace vela {

namespace {

// Both sets' locks, in the one order every caller takes them: the exception set's first.
class SCOPED_CAPABILITY BothSets {
public:
    BothSets(RuleMgr& exception, RuleMgr& normal) ACQUIRE(exception.mutex(), normal.mutex())
        : m_exception(exception.mutex()), m_normal(normal.mutex()) {}
    ~BothSets() RELEASE() {}
    BothSets(const BothSets&) = delete;
    BothSets& operator=(const BothSets&) = delete;

private:
    Guard<Mutex> m_exception;
    Guard<Mutex> m_normal;
};

constexpr unsigned int kCommandTimeout = 1;
// What a command of a manager that is not ready answers; FlushRules answers 1.
constexpr int kNotReady = QV_ERR_INIT;

}  // namespace

FwMgr::FwMgr(std::unique_ptr<CommandRunner> shell, std::unique_ptr<EventSink> events)
    : m_shell(std::move(shell)),
      m_events(std::move(events)),
      m_generator(DebugRuleTextLog::Get()),
      m_ready(false),
      m_excpRuleMgr(m_generator, *m_shell, kExceptionBaseRuleNum, m_config.GetExceptionSetNum()),
      m_normalRuleMgr(m_generator, *m_shell, kNormalBaseRuleNum, m_config.GetNormalSetNum()) {}

FwMgr::FwMgr(std::unique_ptr<EventSink> events)
    : FwMgr(std::make_unique<SystemCommandRunner>(), std::move(events)) {}

// A manager destroyed without Final must not leave its watcher reading freed members.
FwMgr::~FwMgr() {
    StopNotify();
}

bool FwMgr::NotReady(const char* command) const {
    if (m_ready) {
        return false;
    }
    QV_LOG(QV_LOG_ERROR, "%s firewall manager is not initialised", command);
    return true;
}

void FwMgr::InitNotify() {
    m_fwLogPath = m_config.GetFwLogPath();
    if (IsSafeInDoubleQuotes(m_fwLogPath)) {
        (void)m_shell->Run("touch \"" + m_fwLogPath + "\"", kCommandTimeout);
    } else {
        QV_LOG(QV_LOG_ERROR, "%s Unsafe log path %s, not created", "FwMgr::InitNotify",
               m_fwLogPath.c_str());
    }
    if (RedirectFwLog(m_config.GetSysConfPath(), m_fwLogPath) != 0) {
        // The logger reads its configuration only at start and on a hang-up.
        (void)m_shell->Run("killall -HUP syslogd", kCommandTimeout);
    }
}

int FwMgr::RedirectFwLog(const std::string& configurationPath, const std::string& logPath) {
    const Result<LogRouting::Change> routed = LogRouting(configurationPath, logPath).Ensure();
    if (!routed.ok()) {
        return -1;
    }
    return routed.value() == LogRouting::Change::None ? 0 : -2;
}

bool FwMgr::MatchQvLogPath(const std::string& line) {
    regex_t pattern;
    const int ret =
        regcomp(&pattern, "^[\\ \t]*\\*\\.\\*[\\ \t]+/var/log/Quorvane/QvrnCore/ipfw.log",
                REG_EXTENDED | REG_ICASE | REG_NOSUB);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s failed to compile reg expression, ret is %d",
               "FwMgr::FindRedirectFwLog", ret);
        return false;
    }
    const bool matched = regexec(&pattern, line.c_str(), 0, nullptr, 0) == 0;
    regfree(&pattern);
    return matched;
}

void FwMgr::StartNotify() {
    if (!m_shell->Run("sysctl -w net.inet.ip.fw.verbose=1", kCommandTimeout).ok()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to set net.inet.ip.fw.verbose to be 1",
               "FwMgr::StartNotify");
        return;
    }
    m_watcher = std::make_unique<EventWatcher>(
        *m_shell, *m_events, [this] { return m_config.IsNotifyEnable(); }, m_fwLogPath);
}

// Finalize stops the watcher early, before the log goes, and Final stops it again:
// verbose logging is switched off once, and only when the watcher ran.
void FwMgr::StopNotify() {
    if (m_watcher == nullptr) {
        return;
    }
    (void)m_shell->Run("sysctl -w net.inet.ip.fw.verbose=0", kCommandTimeout);
    m_watcher.reset();
}

int FwMgr::Init() {
    if (!m_config.IsReady()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init config", "FwMgr::Init");
        return QV_ERR_INIT;
    }
    InitNotify();
    {
        BothSets lock(m_excpRuleMgr, m_normalRuleMgr);
        (void)SwitchSets(m_config.IsFwEnable());
    }
    StartNotify();
    // Rules go into ipfw only once the sets are enabled or disabled, exceptions first.
    InitExceptionRuleMgr();
    InitNormalRuleMgr();
    m_ready = true;
    return 0;
}

int FwMgr::Final() {
    StopNotify();
    if (!m_ready.exchange(false)) {
        return 0;
    }
    BothSets lock(m_excpRuleMgr, m_normalRuleMgr);
    m_normalRuleMgr.ResetNumbering();
    (void)m_normalRuleMgr.DeleteSet(static_cast<unsigned int>(m_normalRuleMgr.setNum()));
    m_excpRuleMgr.ResetNumbering();
    return m_excpRuleMgr.DeleteSet(static_cast<unsigned int>(m_excpRuleMgr.setNum()));
}

void FwMgr::InitNormalRuleMgr() {
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    FwRuleList rules;
    m_config.GetAllNormalRules(rules);
    m_normalRuleMgr.Init(rules);
}

void FwMgr::InitExceptionRuleMgr() {
    Guard<Mutex> lock(m_excpRuleMgr.mutex());
    FwRuleList rules;
    m_config.GetExceptionRules(rules);
    m_excpRuleMgr.Init(rules);
}

// The flag first, then both sets, always both.
int FwMgr::SwitchSets(bool enable) {
    m_config.SetFwEnable(enable);
    const int normal = enable ? m_normalRuleMgr.Enable() : m_normalRuleMgr.Disable();
    const int exception = enable ? m_excpRuleMgr.Enable() : m_excpRuleMgr.Disable();
    return normal != 0 ? normal : exception;
}

int FwMgr::EnableFirewall() {
    if (NotReady("FwMgr::EnableFirewall")) {
        return kNotReady;
    }
    BothSets lock(m_excpRuleMgr, m_normalRuleMgr);
    return SwitchSets(true);
}

int FwMgr::DisableFireall() {
    if (NotReady("FwMgr::DisableFireall")) {
        return kNotReady;
    }
    BothSets lock(m_excpRuleMgr, m_normalRuleMgr);
    return SwitchSets(false);
}

bool FwMgr::IsFwEnable() {
    return m_config.IsFwEnable();
}

int FwMgr::SetNotifyEnable(bool enable) {
    if (NotReady("FwMgr::SetNotifyEnable")) {
        return kNotReady;
    }
    return m_config.SetNotifyEnable(enable);
}

bool FwMgr::IsNotifyEnable() {
    return m_config.IsNotifyEnable();
}

// Under the set's lock, so that a list is never seen half replaced.
int FwMgr::GetAllNormalRules(FwRuleList& list) {
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    return m_config.GetAllNormalRules(list);
}

int FwMgr::GetExcpRules(FwRuleList& list) {
    Guard<Mutex> lock(m_excpRuleMgr.mutex());
    return m_config.GetExceptionRules(list);
}

int FwMgr::AddRuleTo(RuleMgr& rules, PersistRule persist, FwRule& rule) {
    if (NotReady("FwMgr::AddRule")) {
        return kNotReady;
    }
    Guard<Mutex> lock(rules.mutex());
    const int ret = rules.AddRule(rule);
    return ret != 0 ? ret : (m_config.*persist)(rule);
}

int FwMgr::AddNormalRule(FwRule& rule) {
    return AddRuleTo(m_normalRuleMgr, &FwConfig::AddNormalRule, rule);
}

int FwMgr::AddExcpRule(FwRule& rule) {
    return AddRuleTo(m_excpRuleMgr, &FwConfig::AddExcpRule, rule);
}

int FwMgr::ModifyNormalRule(FwRule& rule) {
    if (NotReady("FwMgr::SetNormalRule")) {
        return kNotReady;
    }
    if (!rule.has_rule_index()) {
        QV_LOG(QV_LOG_ERROR, "%s Unknown rule index", "FwMgr::SetNormalRule");
        return QV_ERR_INVALID_ARG;
    }
    const unsigned int index = rule.rule_index();
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    FwRule old;
    const int ret = m_config.GetNormalRule(index, old);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Rule index %d not exist", "FwMgr::SetNormalRule",
               static_cast<int>(index));
        return ret;
    }
    (void)m_normalRuleMgr.DeleteRule(index);
    (void)m_config.DeleteNormalRule(index);
    const int added = m_normalRuleMgr.AddRulePriv(rule, static_cast<int32_t>(index));
    return added != 0 ? added : m_config.AddNormalRule(rule);
}

int FwMgr::DeleteNormalRule(unsigned int number) {
    if (NotReady("FwMgr::DeleteRule")) {
        return kNotReady;
    }
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    if (m_config.DeleteNormalRule(number) != 0) {
        QV_LOG(QV_LOG_WARNING, "%s Rule %u can't be found", "FwMgr::DeleteRule", number);
    }
    // A rule that is in ipfw but not in the store still goes.
    return m_normalRuleMgr.DeleteRule(number);
}

int FwMgr::DeleteExcpRule(unsigned int number) {
    if (NotReady("FwMgr::DeleteExcpRule")) {
        return kNotReady;
    }
    Guard<Mutex> lock(m_excpRuleMgr.mutex());
    if (m_config.DeleteExcpRule(number) != 0) {
        QV_LOG(QV_LOG_WARNING, "%s Rule %u can't be found", "FwMgr::DeleteExcpRule", number);
    }
    return m_excpRuleMgr.DeleteRule(number);
}

int FwMgr::FlushRules() {
    if (NotReady("FwMgr::FlushRules")) {
        return 1;
    }
    BothSets lock(m_excpRuleMgr, m_normalRuleMgr);
    (void)m_config.FlushRules();
    (void)m_config.FlushExcpRules();
    // "ipfw -q flush" empties every set, so the exception set needs its own flush only
    // when that failed.
    if (m_normalRuleMgr.FlushRules() == 0) {
        return 0;
    }
    return m_excpRuleMgr.FlushRules() != 0 ? 1 : 0;
}

int FwMgr::FlushNormalRules() {
    if (NotReady("FwMgr::FlushNormalRules")) {
        return kNotReady;
    }
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    (void)m_config.FlushRules();
    return m_normalRuleMgr.FlushVelaRules();
}

int FwMgr::FlushExcpRules() {
    if (NotReady("FwMgr::FlushExcpRules")) {
        return kNotReady;
    }
    Guard<Mutex> lock(m_excpRuleMgr.mutex());
    (void)m_config.FlushExcpRules();
    return m_excpRuleMgr.FlushVelaRules();
}

int FwMgr::SwapNormalRuleOrder(unsigned int first, unsigned int second) {
    if (NotReady("FwMgr::SwapNormalRuleOrder")) {
        return kNotReady;
    }
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    const int ret = m_config.SwapNormalRuleOrder(first, second);
    if (ret != 0) {
        return ret;
    }
    (void)m_normalRuleMgr.DeleteRule(first);
    (void)m_normalRuleMgr.DeleteRule(second);
    for (unsigned int number : {first, second}) {
        FwRule rule;
        (void)m_config.GetNormalRule(number, rule);
        (void)m_normalRuleMgr.AddRulePriv(rule, static_cast<int32_t>(number));
    }
    return 0;
}

int FwMgr::SortRules(FwRuleInfoList& list, std::map<int, FwRule*>& sorted) {
    for (FwRuleInfo& entry : *list.mutable_rules()) {
        const int order = entry.order();
        if (sorted.count(order) != 0) {
            QV_LOG(QV_LOG_ERROR, "%s index %d is duplicated", "FwMgr::SortRules", order);
            return FW_ERR_DUP_ORDER;
        }
        sorted[order] = entry.mutable_rule();
    }
    return 0;
}

int FwMgr::AddSortedRules(std::map<int, FwRule*>& sorted, RuleMgr& rules, PersistRule persist,
                          UIntPairArray& pairs) {
    int result = 0;
    for (auto& [order, rule] : sorted) {
        UIntPair* pair = pairs.add_values();
        pair->set_first(static_cast<uint32_t>(order));
        int ret = rules.AddRule(*rule);
        if (ret == 0) {
            ret = (m_config.*persist)(*rule);
        }
        if (ret == 0) {
            pair->set_second(rule->rule_index());
        } else {
            result = ret;
        }
    }
    return result;
}

int FwMgr::AddNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs) {
    if (NotReady("FwMgr::AddRuleList")) {
        return kNotReady;
    }
    std::map<int, FwRule*> sorted;
    const int ret = SortRules(list, sorted);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s there are two rules has the same rule order",
               "FwMgr::AddRuleList");
        return ret;
    }
    Guard<Mutex> lock(m_normalRuleMgr.mutex());
    return AddSortedRules(sorted, m_normalRuleMgr, &FwConfig::AddNormalRule, pairs);
}

int FwMgr::ReplaceRuleList(FwRuleInfoList& list, UIntPairArray& pairs, const char* name,
                           RuleMgr& rules, FlushStored flushStored, PersistRule persist) {
    if (NotReady(name)) {
        return kNotReady;
    }
    std::map<int, FwRule*> sorted;
    const int ret = SortRules(list, sorted);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s there are two rules has the same rule order", name);
        return ret;
    }
    Guard<Mutex> lock(rules.mutex());
    (void)(m_config.*flushStored)();
    (void)rules.FlushVelaRules();
    return AddSortedRules(sorted, rules, persist, pairs);
}

int FwMgr::SetNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs) {
    return ReplaceRuleList(list, pairs, "FwMgr::SetRuleList", m_normalRuleMgr,
                           &FwConfig::FlushRules, &FwConfig::AddNormalRule);
}

int FwMgr::SetExcpRuleList(FwRuleInfoList& list, UIntPairArray& pairs) {
    return ReplaceRuleList(list, pairs, "FwMgr::SetExcpRuleList", m_excpRuleMgr,
                           &FwConfig::FlushExcpRules, &FwConfig::AddExcpRule);
}

}  // namespace vela
}  // namespace qor
