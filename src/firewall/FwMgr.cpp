#include "FwMgr.h"

#include "QvDebugLog.h"
#include "QvErrors.h"

namespace qor {
namespace vela {

FwMgr::FwMgr()
    : m_pGenerator(nullptr),
      m_pConfig(nullptr),
      m_pThread(nullptr),
      m_stop(false),
      m_wakeQueue(-1) {
    m_pGenerator = new RuleGenerator;
    m_pConfig = new FwConfig;
}

FwMgr::~FwMgr() {
    // A manager destroyed without Final must not leave its thread reading freed members.
    if (m_pThread != nullptr) {
        StopNotify();
    }
    delete m_pGenerator;
    m_pGenerator = nullptr;
    delete m_pConfig;
    m_pConfig = nullptr;
}

int FwMgr::Init() {
    m_pGenerator->InitFuncTab();
    const int ret = static_cast<int>(m_pConfig->Init());
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init config", "FwMgr::Init");
        return ret;
    }
    InitNotify();
    // The rule sets learn their set numbers here, not only when their rules are loaded
    // below, so that enabling or disabling reaches the stored sets and never set 0.
    m_normalRuleMgr.m_setNum = static_cast<int32_t>(m_pConfig->GetNormalSetNum());
    m_excpRuleMgr.m_setNum = static_cast<int32_t>(m_pConfig->GetExceptionSetNum());
    if (m_pConfig->IsFwEnable()) {
        m_pConfig->SetFwEnable(true);
        m_normalRuleMgr.Enable();
        m_excpRuleMgr.Enable();
    } else {
        DisableFireall();
    }
    StartNotify();
    // Rules go into ipfw only once the sets are enabled or disabled, exceptions first.
    InitExceptionRuleMgr();
    InitNormalRuleMgr();
    return 0;
}

int FwMgr::Final() {
    StopNotify();
    m_normalRuleMgr.m_nextNum = static_cast<uint32_t>(m_normalRuleMgr.m_startNum);
    m_normalRuleMgr.DeleteSet(static_cast<unsigned int>(m_normalRuleMgr.m_setNum));
    m_excpRuleMgr.m_nextNum = static_cast<uint32_t>(m_excpRuleMgr.m_startNum);
    return m_excpRuleMgr.DeleteSet(static_cast<unsigned int>(m_excpRuleMgr.m_setNum));
}

void FwMgr::InitNormalRuleMgr() {
    FwRuleList rules;
    m_pConfig->GetAllNormalRules(rules);
    m_normalRuleMgr.Init(kNormalBaseRuleNum, static_cast<int>(m_pConfig->GetNormalSetNum()),
                         m_pGenerator, rules);
}

void FwMgr::InitExceptionRuleMgr() {
    FwRuleList rules;
    m_pConfig->GetExceptionRules(rules);
    m_excpRuleMgr.Init(kExceptionBaseRuleNum, static_cast<int>(m_pConfig->GetExceptionSetNum()),
                       m_pGenerator, rules);
}

int FwMgr::DisableFireall() {
    m_pConfig->SetFwEnable(false);
    const int normal = m_normalRuleMgr.Disable();
    const int exception = m_excpRuleMgr.Disable();
    return normal != 0 ? normal : exception;
}

bool FwMgr::IsFwEnable() {
    return m_pConfig->IsFwEnable();
}

int FwMgr::GetAllNormalRules(FwRuleList& list) {
    return static_cast<int>(m_pConfig->GetAllNormalRules(list));
}

int FwMgr::GetExcpRules(FwRuleList& list) {
    return static_cast<int>(m_pConfig->GetExceptionRules(list));
}

int FwMgr::ModifyNormalRule(FwRule& rule) {
    if (!rule.has_rule_index()) {
        QV_LOG(QV_LOG_ERROR, "%s Unknown rule index", "FwMgr::SetNormalRule");
        return QV_ERR_INVALID_ARG;
    }
    const unsigned int index = rule.rule_index();
    FwRule old;
    const int ret = static_cast<int>(m_pConfig->GetNormalRule(index, old));
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Rule index %d not exist", "FwMgr::SetNormalRule",
               static_cast<int>(index));
        return ret;
    }
    m_normalRuleMgr.DeleteRule(index);
    m_pConfig->DeleteNormalRule(index);
    const int added =
        m_normalRuleMgr.AddRulePriv(rule, static_cast<int>(index), m_normalRuleMgr.m_setNum);
    if (added != 0) {
        return added;
    }
    return static_cast<int>(m_pConfig->AddNormalRule(rule));
}

int FwMgr::DeleteNormalRule(unsigned int number) {
    if (m_pConfig->DeleteNormalRule(number) != 0) {
        QV_LOG(QV_LOG_WARNING, "%s Rule %u can't be found", "FwMgr::DeleteRule", number);
    }
    // A rule that is in ipfw but not in the store still goes.
    return m_normalRuleMgr.DeleteRule(number);
}

int FwMgr::DeleteExcpRule(unsigned int number) {
    if (m_pConfig->DeleteExcpRule(number) != 0) {
        QV_LOG(QV_LOG_WARNING, "%s Rule %u can't be found", "FwMgr::DeleteExcpRule", number);
    }
    return m_excpRuleMgr.DeleteRule(number);
}

int FwMgr::FlushRules() {
    m_pConfig->FlushRules();
    m_pConfig->FlushExcpRules();
    // "ipfw -q flush" empties every set, so the exception set needs its own flush only
    // when that failed.
    if (m_normalRuleMgr.FlushRules() == 0) {
        return 0;
    }
    return m_excpRuleMgr.FlushRules() != 0 ? 1 : 0;
}

int FwMgr::FlushExcpRules() {
    m_pConfig->FlushExcpRules();
    return m_excpRuleMgr.FlushVelaRules();
}

int FwMgr::SwapNormalRuleOrder(unsigned int first, unsigned int second) {
    const int ret = static_cast<int>(m_pConfig->SwapNormalRuleOrder(first, second));
    if (ret != 0) {
        return ret;
    }
    m_normalRuleMgr.DeleteRule(first);
    m_normalRuleMgr.DeleteRule(second);
    for (unsigned int number : {first, second}) {
        FwRule rule;
        m_pConfig->GetNormalRule(number, rule);
        m_normalRuleMgr.AddRulePriv(rule, static_cast<int>(number), m_normalRuleMgr.m_setNum);
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
            ret = static_cast<int>((m_pConfig->*persist)(*rule));
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
    std::map<int, FwRule*> sorted;
    const int ret = SortRules(list, sorted);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s there are two rules has the same rule order",
               "FwMgr::AddRuleList");
        return ret;
    }
    return AddSortedRules(sorted, m_normalRuleMgr, &FwConfig::AddNormalRule, pairs);
}

int FwMgr::ReplaceRuleList(FwRuleInfoList& list, UIntPairArray& pairs, const char* name,
                           RuleMgr& rules, unsigned int (FwConfig::*flushStored)(),
                           PersistRule persist) {
    std::map<int, FwRule*> sorted;
    const int ret = SortRules(list, sorted);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s there are two rules has the same rule order", name);
        return ret;
    }
    (m_pConfig->*flushStored)();
    rules.FlushVelaRules();
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
