#include "FwMgr.h"

#include <regex.h>

#include "DebugRuleTextLog.h"
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
    BothSets(Mutex& exception, Mutex& normal) ACQUIRE(exception, normal)
        : m_exception(exception), m_normal(normal) {}
    ~BothSets() RELEASE() {}
    BothSets(const BothSets&) = delete;
    BothSets& operator=(const BothSets&) = delete;

private:
    Guard<Mutex> m_exception;
    Guard<Mutex> m_normal;
};

constexpr unsigned int kCommandTimeout = 1;
// What a command of a manager that is not ready fails with; FlushRules fails with its own.
constexpr int32_t kNotReady = QV_ERR_INIT;

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
    const Result<LogRouting::Change> routed = RedirectFwLog(m_config.GetSysConfPath(), m_fwLogPath);
    if (!routed.ok() || routed.value() != LogRouting::Change::None) {
        // The logger reads its configuration only at start and on a hang-up.
        (void)m_shell->Run("killall -HUP syslogd", kCommandTimeout);
    }
}

Result<LogRouting::Change> FwMgr::RedirectFwLog(const std::string& configurationPath,
                                                const std::string& logPath) {
    return LogRouting(configurationPath, logPath).Ensure();
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

Result<> FwMgr::Init() {
    if (!m_config.IsReady()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init config", "FwMgr::Init");
        return Result<>::Failure(QV_ERR_INIT);
    }
    InitNotify();
    {
        BothSets lock(m_excpLock, m_normalLock);
        (void)SwitchSets(m_config.IsFwEnable());
    }
    StartNotify();
    // Rules go into ipfw only once the sets are enabled or disabled, exceptions first.
    InitExceptionRuleMgr();
    InitNormalRuleMgr();
    m_ready = true;
    return Result<>::Success();
}

Result<> FwMgr::Final() {
    StopNotify();
    if (!m_ready.exchange(false)) {
        return Result<>::Success();
    }
    BothSets lock(m_excpLock, m_normalLock);
    m_normalRuleMgr.ResetNumbering();
    (void)m_normalRuleMgr.DeleteSet(static_cast<unsigned int>(m_normalRuleMgr.setNum()));
    m_excpRuleMgr.ResetNumbering();
    return m_excpRuleMgr.DeleteSet(static_cast<unsigned int>(m_excpRuleMgr.setNum()));
}

void FwMgr::InitNormalRuleMgr() {
    Guard<Mutex> lock(m_normalLock);
    FwRuleList rules;
    m_config.GetAllNormalRules(rules);
    m_normalRuleMgr.Init(rules);
}

void FwMgr::InitExceptionRuleMgr() {
    Guard<Mutex> lock(m_excpLock);
    FwRuleList rules;
    m_config.GetExceptionRules(rules);
    m_excpRuleMgr.Init(rules);
}

// The flag first, then both sets, always both.
Result<> FwMgr::SwitchSets(bool enable) {
    (void)m_config.SetFwEnable(enable);
    const Result<> normal = enable ? m_normalRuleMgr.Enable() : m_normalRuleMgr.Disable();
    const Result<> exception = enable ? m_excpRuleMgr.Enable() : m_excpRuleMgr.Disable();
    return normal.ok() ? exception : normal;
}

Result<> FwMgr::EnableFirewall() {
    if (NotReady("FwMgr::EnableFirewall")) {
        return Result<>::Failure(kNotReady);
    }
    BothSets lock(m_excpLock, m_normalLock);
    return SwitchSets(true);
}

Result<> FwMgr::DisableFireall() {
    if (NotReady("FwMgr::DisableFireall")) {
        return Result<>::Failure(kNotReady);
    }
    BothSets lock(m_excpLock, m_normalLock);
    return SwitchSets(false);
}

bool FwMgr::IsFwEnable() {
    return m_config.IsFwEnable();
}

Result<> FwMgr::SetNotifyEnable(bool enable) {
    if (NotReady("FwMgr::SetNotifyEnable")) {
        return Result<>::Failure(kNotReady);
    }
    return m_config.SetNotifyEnable(enable);
}

bool FwMgr::IsNotifyEnable() {
    return m_config.IsNotifyEnable();
}

// Under the set's lock, so that a list is never seen half replaced.
void FwMgr::GetAllNormalRules(FwRuleList& list) {
    Guard<Mutex> lock(m_normalLock);
    m_config.GetAllNormalRules(list);
}

void FwMgr::GetExcpRules(FwRuleList& list) {
    Guard<Mutex> lock(m_excpLock);
    m_config.GetExceptionRules(list);
}

Result<> FwMgr::AddRuleTo(RuleMgr& rules, PersistRule persist, FwRule& rule) {
    const Result<> added = rules.AddRule(rule);
    return added.ok() ? (m_config.*persist)(rule) : added;
}

Result<> FwMgr::AddNormalRule(FwRule& rule) {
    if (NotReady("FwMgr::AddRule")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_normalLock);
    return AddRuleTo(m_normalRuleMgr, &FwConfig::AddNormalRule, rule);
}

Result<> FwMgr::AddExcpRule(FwRule& rule) {
    if (NotReady("FwMgr::AddRule")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_excpLock);
    return AddRuleTo(m_excpRuleMgr, &FwConfig::AddExcpRule, rule);
}

Result<> FwMgr::ModifyNormalRule(FwRule& rule) {
    if (NotReady("FwMgr::SetNormalRule")) {
        return Result<>::Failure(kNotReady);
    }
    if (!rule.has_rule_index()) {
        QV_LOG(QV_LOG_ERROR, "%s Unknown rule index", "FwMgr::SetNormalRule");
        return Result<>::Failure(QV_ERR_INVALID_ARG);
    }
    const unsigned int index = rule.rule_index();
    Guard<Mutex> lock(m_normalLock);
    FwRule old;
    const Result<> found = m_config.GetNormalRule(index, old);
    if (!found.ok()) {
        QV_LOG(QV_LOG_ERROR, "%s Rule index %d not exist", "FwMgr::SetNormalRule",
               static_cast<int>(index));
        return found;
    }
    (void)m_normalRuleMgr.DeleteRule(index);
    (void)m_config.DeleteNormalRule(index);
    const Result<> added = m_normalRuleMgr.AddRulePriv(rule, static_cast<int32_t>(index));
    return added.ok() ? m_config.AddNormalRule(rule) : added;
}

Result<> FwMgr::DeleteNormalRule(unsigned int number) {
    if (NotReady("FwMgr::DeleteRule")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_normalLock);
    if (!m_config.DeleteNormalRule(number).ok()) {
        QV_LOG(QV_LOG_WARNING, "%s Rule %u can't be found", "FwMgr::DeleteRule", number);
    }
    // A rule that is in ipfw but not in the store still goes.
    return m_normalRuleMgr.DeleteRule(number);
}

Result<> FwMgr::DeleteExcpRule(unsigned int number) {
    if (NotReady("FwMgr::DeleteExcpRule")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_excpLock);
    if (!m_config.DeleteExcpRule(number).ok()) {
        QV_LOG(QV_LOG_WARNING, "%s Rule %u can't be found", "FwMgr::DeleteExcpRule", number);
    }
    return m_excpRuleMgr.DeleteRule(number);
}

Result<> FwMgr::FlushRules() {
    if (NotReady("FwMgr::FlushRules")) {
        return Result<>::Failure(FW_ERR_FLUSH);
    }
    BothSets lock(m_excpLock, m_normalLock);
    (void)m_config.FlushRules();
    (void)m_config.FlushExcpRules();
    // "ipfw -q flush" empties every set, so the exception set needs its own flush only
    // when that failed.
    if (m_normalRuleMgr.FlushRules().ok() || m_excpRuleMgr.FlushRules().ok()) {
        return Result<>::Success();
    }
    return Result<>::Failure(FW_ERR_FLUSH);
}

Result<> FwMgr::FlushNormalRules() {
    if (NotReady("FwMgr::FlushNormalRules")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_normalLock);
    (void)m_config.FlushRules();
    return m_normalRuleMgr.FlushVelaRules();
}

Result<> FwMgr::FlushExcpRules() {
    if (NotReady("FwMgr::FlushExcpRules")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_excpLock);
    (void)m_config.FlushExcpRules();
    return m_excpRuleMgr.FlushVelaRules();
}

Result<> FwMgr::SwapNormalRuleOrder(unsigned int first, unsigned int second) {
    if (NotReady("FwMgr::SwapNormalRuleOrder")) {
        return Result<>::Failure(kNotReady);
    }
    Guard<Mutex> lock(m_normalLock);
    const Result<> swapped = m_config.SwapNormalRuleOrder(first, second);
    if (!swapped.ok()) {
        return swapped;
    }
    (void)m_normalRuleMgr.DeleteRule(first);
    (void)m_normalRuleMgr.DeleteRule(second);
    for (unsigned int number : {first, second}) {
        FwRule rule;
        (void)m_config.GetNormalRule(number, rule);
        (void)m_normalRuleMgr.AddRulePriv(rule, static_cast<int32_t>(number));
    }
    return Result<>::Success();
}

Result<> FwMgr::SortRules(FwRuleInfoList& list, std::map<int, FwRule*>& sorted) {
    for (FwRuleInfo& entry : *list.mutable_rules()) {
        const int order = entry.order();
        if (sorted.count(order) != 0) {
            QV_LOG(QV_LOG_ERROR, "%s index %d is duplicated", "FwMgr::SortRules", order);
            return Result<>::Failure(FW_ERR_DUP_ORDER);
        }
        sorted[order] = entry.mutable_rule();
    }
    return Result<>::Success();
}

Result<> FwMgr::SortedList(const char* command, FwRuleInfoList& list,
                           std::map<int, FwRule*>& sorted) const {
    if (NotReady(command)) {
        return Result<>::Failure(kNotReady);
    }
    const Result<> ordered = SortRules(list, sorted);
    if (!ordered.ok()) {
        QV_LOG(QV_LOG_ERROR, "%s there are two rules has the same rule order", command);
    }
    return ordered;
}

Result<> FwMgr::AddSortedRules(std::map<int, FwRule*>& sorted, RuleMgr& rules, PersistRule persist,
                               UIntPairArray& pairs) {
    Result<> result = Result<>::Success();
    for (auto& [order, rule] : sorted) {
        UIntPair* pair = pairs.add_values();
        pair->set_first(static_cast<uint32_t>(order));
        Result<> added = rules.AddRule(*rule);
        if (added.ok()) {
            added = (m_config.*persist)(*rule);
        }
        if (added.ok()) {
            pair->set_second(rule->rule_index());
        } else {
            result = added;
        }
    }
    return result;
}

Result<> FwMgr::AddNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs) {
    std::map<int, FwRule*> sorted;
    const Result<> checked = SortedList("FwMgr::AddRuleList", list, sorted);
    if (!checked.ok()) {
        return checked;
    }
    Guard<Mutex> lock(m_normalLock);
    return AddSortedRules(sorted, m_normalRuleMgr, &FwConfig::AddNormalRule, pairs);
}

Result<> FwMgr::ReplaceRules(std::map<int, FwRule*>& sorted, UIntPairArray& pairs, RuleMgr& rules,
                             FlushStored flushStored, PersistRule persist) {
    (void)(m_config.*flushStored)();
    (void)rules.FlushVelaRules();
    return AddSortedRules(sorted, rules, persist, pairs);
}

Result<> FwMgr::SetNormalRuleList(FwRuleInfoList& list, UIntPairArray& pairs) {
    std::map<int, FwRule*> sorted;
    const Result<> checked = SortedList("FwMgr::SetRuleList", list, sorted);
    if (!checked.ok()) {
        return checked;
    }
    Guard<Mutex> lock(m_normalLock);
    return ReplaceRules(sorted, pairs, m_normalRuleMgr, &FwConfig::FlushRules,
                        &FwConfig::AddNormalRule);
}

Result<> FwMgr::SetExcpRuleList(FwRuleInfoList& list, UIntPairArray& pairs) {
    std::map<int, FwRule*> sorted;
    const Result<> checked = SortedList("FwMgr::SetExcpRuleList", list, sorted);
    if (!checked.ok()) {
        return checked;
    }
    Guard<Mutex> lock(m_excpLock);
    return ReplaceRules(sorted, pairs, m_excpRuleMgr, &FwConfig::FlushExcpRules,
                        &FwConfig::AddExcpRule);
}

}  // namespace vela
}  // namespace qor
