#include "Handler.h"

#include "QvConvert.h"
#include "QvDebugLog.h"
#include "QvErrors.h"
#include "QvPlugin.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"

namespace qor {
namespace vela {

namespace {

// The argument checks. A length must be positive: a negative one would be read as a
// huge buffer.
bool CheckIn(const char* name, const void* in, int inLen) {
    if (in == nullptr || inLen <= 0) {
        QV_LOG(QV_LOG_ERROR, "%s invalid input, in is %p, inLen is %d", name, in, inLen);
        return false;
    }
    return true;
}

bool CheckOut(const char* name, void** out, int* outLen) {
    if (out == nullptr || outLen == nullptr) {
        QV_LOG(QV_LOG_ERROR, "%s invalid input, out is %p, outLen is %p", name,
               static_cast<void*>(out), static_cast<void*>(outLen));
        return false;
    }
    return true;
}

bool CheckInOut(const char* name, const void* in, int inLen, void** out, int* outLen) {
    if (in == nullptr || inLen <= 0 || out == nullptr || outLen == nullptr) {
        QV_LOG(QV_LOG_ERROR, "%s invalid input, in is %p, inLen is %d, out is %p, outLen is %p",
               name, in, inLen, static_cast<void*>(out), static_cast<void*>(outLen));
        return false;
    }
    return true;
}

// Bytes that are not a well-formed message count as incomplete too: an unreadable rule
// list would otherwise arrive as an empty one and empty a whole set.
template <typename T>
bool Decode(const void* in, int inLen, T& message) {
    return message.ParsePartialFromArray(in, inLen) && message.IsInitialized();
}

// The manager, or null (logged) outside Initialize..Finalize.
FwMgr* Manager(const char* name) {
    if (g_pFwMgr == nullptr) {
        QV_LOG(QV_LOG_ERROR, "%s FwMgr is not initialized", name);
    }
    return g_pFwMgr;
}

// Runs `operation` on the manager; 20013 when there is none.
template <typename Operation>
int WithManager(const char* name, Operation operation) {
    FwMgr* manager = Manager(name);
    return manager == nullptr ? QV_ERR_INIT : operation(*manager);
}

using RuleSet = RuleMgr FwMgr::*;
using PersistRule = unsigned int (FwConfig::*)(const FwRule&);
using ListOperation = int (FwMgr::*)(FwRuleInfoList&, UIntPairArray&);
using RuleGetter = int (FwMgr::*)(FwRuleList&);

// Installs the rule in the set first, then stores it; no rollback when storing fails.
int AddRuleToSet(const char* name, const void* in, int inLen, void** out, int* outLen, RuleSet set,
                 PersistRule persist) {
    if (!CheckInOut(name, in, inLen, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    FwRule rule;
    if (!Decode(in, inLen, rule)) {
        QV_LOG(QV_LOG_ERROR, "%s failed to init fwRule", name);
        return QV_ERR_INCOMPLETE;
    }
    FwMgr* manager = Manager(name);
    if (manager == nullptr) {
        return QV_ERR_INIT;
    }
    int ret = (manager->*set).AddRule(rule);
    if (ret != 0) {
        return ret;
    }
    ret = static_cast<int>((manager->m_pConfig->*persist)(rule));
    if (ret != 0) {
        return ret;
    }
    UIntType number;
    number.set_value(rule.rule_index());
    return pb2data(number, out, outLen);
}

using DeleteOperation = int (FwMgr::*)(unsigned int);

int DeleteFromSet(const char* name, const void* in, int inLen, DeleteOperation remove) {
    if (!CheckIn(name, in, inLen)) {
        return QV_ERR_INVALID_ARG;
    }
    UIntType number;
    if (!Decode(in, inLen, number)) {
        QV_LOG(QV_LOG_ERROR, "%s failed to init ruleNum", name);
        return QV_ERR_INCOMPLETE;
    }
    FwMgr* manager = Manager(name);
    return manager == nullptr ? QV_ERR_INIT : (manager->*remove)(number.value());
}

// Checks and decodes a rule-list request: 0 with the list and the manager, or the code.
int DecodeList(const char* name, const void* in, int inLen, void** out, int* outLen,
               FwRuleInfoList& list, FwMgr*& manager) {
    if (!CheckInOut(name, in, inLen, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    if (!Decode(in, inLen, list)) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init fwRuleList", name);
        return QV_ERR_INCOMPLETE;
    }
    manager = Manager(name);
    return manager == nullptr ? QV_ERR_INIT : 0;
}

// Replacing a set answers the pairs whatever the manager returned, and a failure to
// encode them wins over the manager's code.
int ReplaceSet(const char* name, const void* in, int inLen, void** out, int* outLen,
               ListOperation operation) {
    FwRuleInfoList list;
    FwMgr* manager = nullptr;
    int ret = DecodeList(name, in, inLen, out, outLen, list, manager);
    if (ret != 0) {
        return ret;
    }
    UIntPairArray pairs;
    ret = (manager->*operation)(list, pairs);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to set the rule list, ret is %d", name, ret);
    }
    const int encoded = pb2data(pairs, out, outLen);
    return encoded != 0 ? encoded : ret;
}

int GetRules(const char* name, void** out, int* outLen, RuleGetter get) {
    if (!CheckOut(name, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    FwMgr* manager = Manager(name);
    if (manager == nullptr) {
        return QV_ERR_INIT;
    }
    FwRuleList list;
    const int ret = (manager->*get)(list);
    return ret != 0 ? ret : pb2data(list, out, outLen);
}

int AnswerBool(const char* name, void** out, int* outLen, bool (*read)(FwMgr&)) {
    if (!CheckOut(name, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    FwMgr* manager = Manager(name);
    if (manager == nullptr) {
        return QV_ERR_INIT;
    }
    BoolType answer;
    answer.set_value(read(*manager));
    return pb2data(answer, out, outLen);
}

// The normal set's code when it failed, else the exception set's.
int FirstFailure(int normal, int exception) {
    return normal != 0 ? normal : exception;
}

}  // namespace

int AddRule(int, const void* in, int inLen, void** out, int* outLen) {
    return AddRuleToSet("AddRule", in, inLen, out, outLen, &FwMgr::m_normalRuleMgr,
                        &FwConfig::AddNormalRule);
}

int AddExcpRule(int, const void* in, int inLen, void** out, int* outLen) {
    return AddRuleToSet("AddExcpRule", in, inLen, out, outLen, &FwMgr::m_excpRuleMgr,
                        &FwConfig::AddExcpRule);
}

int DeleteRule(int, const void* in, int inLen, void**, int*) {
    return DeleteFromSet("DeleteRule", in, inLen, &FwMgr::DeleteNormalRule);
}

int DeleteExcpRule(int, const void* in, int inLen, void**, int*) {
    return DeleteFromSet("DeleteExcpRule", in, inLen, &FwMgr::DeleteExcpRule);
}

int FlushRules(int, const void*, int, void**, int*) {
    return WithManager("FlushRules", [](FwMgr& manager) { return manager.FlushRules(); });
}

// The stored list is emptied even when emptying the ipfw set then fails.
int FlushNormalRules(int, const void*, int, void**, int*) {
    return WithManager("FlushNormalRules", [](FwMgr& manager) {
        manager.m_pConfig->FlushRules();
        return manager.m_normalRuleMgr.FlushVelaRules();
    });
}

int FlushExcpRule(int, const void*, int, void**, int*) {
    return WithManager("FlushExcpRule", [](FwMgr& manager) { return manager.FlushExcpRules(); });
}

// The flag is stored first; both sets are always enabled.
int EnableFirewall(int, const void*, int, void**, int*) {
    return WithManager("EnableFirewall", [](FwMgr& manager) {
        manager.m_pConfig->SetFwEnable(true);
        const int normal = manager.m_normalRuleMgr.Enable();
        const int exception = manager.m_excpRuleMgr.Enable();
        return FirstFailure(normal, exception);
    });
}

int DisableFirewall(int, const void*, int, void**, int*) {
    return WithManager("DisableFirewall", [](FwMgr& manager) { return manager.DisableFireall(); });
}

int IsFwEnable(int, const void*, int, void** out, int* outLen) {
    return AnswerBool("IsFwEnable", out, outLen,
                      [](FwMgr& manager) { return manager.IsFwEnable(); });
}

int IsNotifyEnable(int, const void*, int, void** out, int* outLen) {
    return AnswerBool("IsNotifyEnable", out, outLen,
                      [](FwMgr& manager) { return manager.m_pConfig->IsNotifyEnable(); });
}

// Only the stored flag changes: the watcher keeps running and reads it for each event.
int SetNotifyEnable(int cmd, const void*, int, void**, int*) {
    if (cmd != QV_CMD_ENABLE_NOTIFY && cmd != QV_CMD_DISABLE_NOTIFY) {
        return 0;
    }
    return WithManager("SetNotifyEnable", [cmd](FwMgr& manager) {
        return static_cast<int>(manager.m_pConfig->SetNotifyEnable(cmd == QV_CMD_ENABLE_NOTIFY));
    });
}

int GetAllRules(int, const void*, int, void** out, int* outLen) {
    return GetRules("GetAllRules", out, outLen, &FwMgr::GetAllNormalRules);
}

// Shares the normal getter's name in its log lines.
int GetExcpRules(int, const void*, int, void** out, int* outLen) {
    return GetRules("GetAllRules", out, outLen, &FwMgr::GetExcpRules);
}

// The manager's code wins, even over a failure to encode the pairs.
int AddRuleList(int, const void* in, int inLen, void** out, int* outLen) {
    FwRuleInfoList list;
    FwMgr* manager = nullptr;
    int ret = DecodeList("AddRuleList", in, inLen, out, outLen, list, manager);
    if (ret != 0) {
        return ret;
    }
    UIntPairArray pairs;
    ret = manager->AddNormalRuleList(list, pairs);
    pb2data(pairs, out, outLen);
    return ret;
}

int SetRuleList(int, const void* in, int inLen, void** out, int* outLen) {
    return ReplaceSet("SetRuleList", in, inLen, out, outLen, &FwMgr::SetNormalRuleList);
}

int SetExcpRuleList(int, const void* in, int inLen, void** out, int* outLen) {
    return ReplaceSet("SetExcpRuleList", in, inLen, out, outLen, &FwMgr::SetExcpRuleList);
}

int SwapRuleOrder(int, const void* in, int inLen, void**, int*) {
    if (!CheckIn("SwapRuleOrder", in, inLen)) {
        return QV_ERR_INVALID_ARG;
    }
    UIntPair pair;
    if (!Decode(in, inLen, pair)) {
        QV_LOG(QV_LOG_ERROR, "%s failed to init indexPair", "SwapRuleOrder");
        return QV_ERR_INCOMPLETE;
    }
    return WithManager("SwapRuleOrder", [&pair](FwMgr& manager) {
        return manager.SwapNormalRuleOrder(pair.first(), pair.second());
    });
}

int ModifyRule(int, const void* in, int inLen, void**, int*) {
    if (!CheckIn("SetRule", in, inLen)) {
        return QV_ERR_INVALID_ARG;
    }
    FwRule rule;
    if (!Decode(in, inLen, rule)) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init fwRule", "SetRule");
        return QV_ERR_INCOMPLETE;
    }
    FwMgr* manager = Manager("SetRule");
    if (manager == nullptr) {
        return QV_ERR_INIT;
    }
    const int ret = manager->ModifyNormalRule(rule);
    if (ret != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to set normal rule", "SetRule");
    }
    return ret;
}

}  // namespace vela
}  // namespace qor
