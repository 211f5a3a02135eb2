#include "CommandTable.h"

#include "Handler.h"
#include "QvFirewall.h"
#include "QvGeneral.h"

using namespace qor::vela;

// The host receives the rows in this order: it is part of the interface, not numeric.
extern "C" const QvHandlerEntry handlerArr[kHandlerCount] = {
    {QV_CMD_ADD_RULE, "add a rule", AddRule},
    {QV_CMD_DELETE_RULE, "delete a rule", DeleteRule},
    {QV_CMD_FLUSH_RULES, "flush all rules", FlushRules},
    {QV_CMD_ENABLE_FW, "enable fw", EnableFirewall},
    {QV_CMD_DISABLE_FW, "disable fw", DisableFirewall},
    {QV_CMD_GET_ALL_RULES, "get all rules", GetAllRules},
    {QV_CMD_SWAP_RULES, "swap rules", SwapRuleOrder},
    {QV_CMD_ADD_RULE_LIST, "add rule list", AddRuleList},
    {QV_CMD_FLUSH_NORMAL_RULES, "flush vela's rule", FlushNormalRules},
    {QV_CMD_IS_FW_ENABLE, "is fw enable", IsFwEnable},
    {QV_CMD_ENABLE_NOTIFY, "enable event log", SetNotifyEnable},
    {QV_CMD_DISABLE_NOTIFY, "disable event log", SetNotifyEnable},
    {QV_CMD_IS_NOTIFY_ENABLE, "is event log enabled", IsNotifyEnable},
    {QV_CMD_SET_RULE_LIST, "set rules", SetRuleList},
    {QV_CMD_ADD_EXCP_RULE, "add excp rule", AddExcpRule},
    {QV_CMD_DELETE_EXCP_RULE, "del excp rule", DeleteExcpRule},
    {QV_CMD_FLUSH_EXCP_RULES, "flush excp rule", FlushExcpRule},
    {QV_CMD_SET_EXCP_RULE_LIST, "set excp rules", SetExcpRuleList},
    {QV_CMD_GET_EXCP_RULES, "get excp rules", GetExcpRules},
    {QV_CMD_MODIFY_RULE, "modify a rule", ModifyRule},
    {QV_CMD_SET_DEBUG_LEVEL, "set debug level", SetDebugLevel},
};
