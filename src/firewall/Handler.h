// The firewall command handlers behind the rows of the command table. Each one checks its
// arguments, decodes its request, calls the manager and encodes the response with
// pb2data. They hold no state and take no lock of their own; see QvPlugin.h for the
// calling contract and QvFirewall.h for the commands and codes.
#pragma once

#include "FwMgr.h"

// The one firewall manager, null before Initialize and after Finalize. A handler called
// while it is null, or while its Init has failed, answers QV_ERR_INIT.
extern qor::vela::FwMgr* g_pFwMgr;

namespace qor {
namespace vela {

int AddRule(int cmd, const void* in, int inLen, void** out, int* outLen);
int DeleteRule(int cmd, const void* in, int inLen, void** out, int* outLen);
int FlushRules(int cmd, const void* in, int inLen, void** out, int* outLen);
int FlushNormalRules(int cmd, const void* in, int inLen, void** out, int* outLen);
int EnableFirewall(int cmd, const void* in, int inLen, void** out, int* outLen);
int DisableFirewall(int cmd, const void* in, int inLen, void** out, int* outLen);
int IsFwEnable(int cmd, const void* in, int inLen, void** out, int* outLen);
int GetAllRules(int cmd, const void* in, int inLen, void** out, int* outLen);
int AddRuleList(int cmd, const void* in, int inLen, void** out, int* outLen);
int SwapRuleOrder(int cmd, const void* in, int inLen, void** out, int* outLen);
// Command 0x800a turns notification on, 0x800b off; any other number does nothing.
int SetNotifyEnable(int cmd, const void* in, int inLen, void** out, int* outLen);
int IsNotifyEnable(int cmd, const void* in, int inLen, void** out, int* outLen);
int SetRuleList(int cmd, const void* in, int inLen, void** out, int* outLen);
int AddExcpRule(int cmd, const void* in, int inLen, void** out, int* outLen);
int DeleteExcpRule(int cmd, const void* in, int inLen, void** out, int* outLen);
int FlushExcpRule(int cmd, const void* in, int inLen, void** out, int* outLen);
int SetExcpRuleList(int cmd, const void* in, int inLen, void** out, int* outLen);
int GetExcpRules(int cmd, const void* in, int inLen, void** out, int* outLen);
int ModifyRule(int cmd, const void* in, int inLen, void** out, int* outLen);

}  // namespace vela
}  // namespace qor
