#include "Handler.h"

#include "QvConvert.h"
#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "VelaCommonMsg.pb.h"
#include "VelaFwMsg.pb.h"

qor::vela::FwMgr* g_pFwMgr = nullptr;

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

// Runs `operation` on the manager; QV_ERR_INIT (logged) when there is none or its Init
// failed.
template <typename Operation>
int WithManager(const char* name, Operation operation) {
    FwMgr* manager = g_pFwMgr;
    if (manager == nullptr || !manager->IsReady()) {
        QV_LOG(QV_LOG_ERROR, "%s FwMgr is not initialized", name);
        return QV_ERR_INIT;
    }
    return operation(*manager);
}

using AddOperation = Result<> (FwMgr::*)(FwRule&);
using DeleteOperation = Result<> (FwMgr::*)(unsigned int);
using ListOperation = Result<> (FwMgr::*)(FwRuleInfoList&, UIntPairArray&);
using RuleGetter = void (FwMgr::*)(FwRuleList&);
using Query = bool (FwMgr::*)();

// Answers the number the rule was installed under.
int AddRuleToSet(const char* name, const void* in, int inLen, void** out, int* outLen,
                 AddOperation add) {
    if (!CheckInOut(name, in, inLen, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    FwRule rule;
    if (!Decode(in, inLen, rule)) {
        QV_LOG(QV_LOG_ERROR, "%s failed to init fwRule", name);
        return QV_ERR_INCOMPLETE;
    }
    return WithManager(name, [&](FwMgr& manager) {
        const Result<> added = (manager.*add)(rule);
        if (!added.ok()) {
            return added.code();
        }
        UIntType number;
        number.set_value(rule.rule_index());
        return pb2data(number, out, outLen);
    });
}

int DeleteFromSet(const char* name, const void* in, int inLen, DeleteOperation remove) {
    if (!CheckIn(name, in, inLen)) {
        return QV_ERR_INVALID_ARG;
    }
    UIntType number;
    if (!Decode(in, inLen, number)) {
        QV_LOG(QV_LOG_ERROR, "%s failed to init ruleNum", name);
        return QV_ERR_INCOMPLETE;
    }
    return WithManager(name,
                       [&](FwMgr& manager) { return (manager.*remove)(number.value()).code(); });
}

// Checks and decodes a rule-list request, then runs the manager's operation on it: its
// code with the pairs in `pairs`, or the code of the check or the decoding.
int RunList(const char* name, const void* in, int inLen, void** out, int* outLen,
            ListOperation operation, UIntPairArray& pairs, bool& ran) {
    ran = false;
    if (!CheckInOut(name, in, inLen, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    FwRuleInfoList list;
    if (!Decode(in, inLen, list)) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to init fwRuleList", name);
        return QV_ERR_INCOMPLETE;
    }
    return WithManager(name, [&](FwMgr& manager) {
        ran = true;
        return (manager.*operation)(list, pairs).code();
    });
}

// Replacing a set answers the pairs whatever the manager returned, and a failure to
// encode them wins over the manager's code.
int ReplaceSet(const char* name, const void* in, int inLen, void** out, int* outLen,
               ListOperation operation) {
    UIntPairArray pairs;
    bool ran = false;
    const int ret = RunList(name, in, inLen, out, outLen, operation, pairs, ran);
    if (!ran) {
        return ret;
    }
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
    return WithManager(name, [&](FwMgr& manager) {
        FwRuleList list;
        (manager.*get)(list);
        return pb2data(list, out, outLen);
    });
}

int AnswerBool(const char* name, void** out, int* outLen, Query query) {
    if (!CheckOut(name, out, outLen)) {
        return QV_ERR_INVALID_ARG;
    }
    return WithManager(name, [&](FwMgr& manager) {
        BoolType answer;
        answer.set_value((manager.*query)());
        return pb2data(answer, out, outLen);
    });
}

template <typename Operation>
int Run(const char* name, Operation operation) {
    return WithManager(name, [&](FwMgr& manager) { return (manager.*operation)().code(); });
}

}  // namespace

int AddRule(int, const void* in, int inLen, void** out, int* outLen) {
    return AddRuleToSet("AddRule", in, inLen, out, outLen, &FwMgr::AddNormalRule);
}

int AddExcpRule(int, const void* in, int inLen, void** out, int* outLen) {
    return AddRuleToSet("AddExcpRule", in, inLen, out, outLen, &FwMgr::AddExcpRule);
}

int DeleteRule(int, const void* in, int inLen, void**, int*) {
    return DeleteFromSet("DeleteRule", in, inLen, &FwMgr::DeleteNormalRule);
}

int DeleteExcpRule(int, const void* in, int inLen, void**, int*) {
    return DeleteFromSet("DeleteExcpRule", in, inLen, &FwMgr::DeleteExcpRule);
}

// Hosts have always known a failed flush of both sets by this one number.
static_assert(FW_ERR_FLUSH == 1, "a failed flush of both sets answers 1");

int FlushRules(int, const void*, int, void**, int*) {
    return Run("FlushRules", &FwMgr::FlushRules);
}

int FlushNormalRules(int, const void*, int, void**, int*) {
    return Run("FlushNormalRules", &FwMgr::FlushNormalRules);
}

int FlushExcpRule(int, const void*, int, void**, int*) {
    return Run("FlushExcpRule", &FwMgr::FlushExcpRules);
}

int EnableFirewall(int, const void*, int, void**, int*) {
    return Run("EnableFirewall", &FwMgr::EnableFirewall);
}

int DisableFirewall(int, const void*, int, void**, int*) {
    return Run("DisableFirewall", &FwMgr::DisableFireall);
}

int IsFwEnable(int, const void*, int, void** out, int* outLen) {
    return AnswerBool("IsFwEnable", out, outLen, &FwMgr::IsFwEnable);
}

int IsNotifyEnable(int, const void*, int, void** out, int* outLen) {
    return AnswerBool("IsNotifyEnable", out, outLen, &FwMgr::IsNotifyEnable);
}

int SetNotifyEnable(int cmd, const void*, int, void**, int*) {
    if (cmd != QV_CMD_ENABLE_NOTIFY && cmd != QV_CMD_DISABLE_NOTIFY) {
        return 0;
    }
    return WithManager("SetNotifyEnable", [cmd](FwMgr& manager) {
        return manager.SetNotifyEnable(cmd == QV_CMD_ENABLE_NOTIFY).code();
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
    UIntPairArray pairs;
    bool ran = false;
    const int ret =
        RunList("AddRuleList", in, inLen, out, outLen, &FwMgr::AddNormalRuleList, pairs, ran);
    if (ran) {
        (void)pb2data(pairs, out, outLen);
    }
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
        return manager.SwapNormalRuleOrder(pair.first(), pair.second()).code();
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
    return WithManager("SetRule", [&rule](FwMgr& manager) {
        const Result<> modified = manager.ModifyNormalRule(rule);
        if (!modified.ok()) {
            QV_LOG(QV_LOG_ERROR, "%s Failed to set normal rule", "SetRule");
        }
        return modified.code();
    });
}

}  // namespace vela
}  // namespace qor
