// What every sub-command of qvfwctl gets, and the exit statuses they return.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "ControlClient.h"
#include "CtlArguments.h"

namespace google {
namespace protobuf {
class MessageLite;
}
}  // namespace google

namespace qvctl {

enum ExitStatus {
    kExitOk = 0,
    kExitFailed = 1,       // the daemon or the plug-in answered with an error code
    kExitUsage = 2,        // wrong arguments or bad JSON
    kExitUnreachable = 3,  // qvfwd is not running or broke off
};

struct CtlContext {
    const CtlArguments& arguments;
    ControlClient& client;
    FILE* in;
    FILE* out;
    FILE* err;
};

// Sends `command` with `request` and returns the reply's code in `*code`; prints the
// failure and returns false when the daemon cannot be reached.
bool CallDaemon(CtlContext& context, uint32_t command, const std::string& request, int32_t* code,
                std::string* reply);

// A daemon's answer code as the exit status: a non-zero code is printed with its meaning
// (as JSON with --json).
int CodeStatus(CtlContext& context, int32_t code);

// As CallDaemon, then a non-zero code is printed with its meaning. The exit status.
int CallForStatus(CtlContext& context, uint32_t command, const std::string& request,
                  std::string* reply);

// Prints `message` after "qvfwctl: " and returns `status`.
int Fail(CtlContext& context, int status, const std::string& message);

// Reads the daemon's `reply` to `what` into `message`. A reply that does not parse is an
// error printed with exit status 1 in `*status`: never an empty success.
bool ReadReply(CtlContext& context, const std::string& reply, const char* what,
               google::protobuf::MessageLite* message, int* status);

// "ok", or {"code":0} with --json.
int PrintDone(CtlContext& context);

// Sub-commands, grouped by file.
int RunAddRule(CtlContext& context);
int RunAddException(CtlContext& context);
int RunDeleteRule(CtlContext& context);
int RunDeleteException(CtlContext& context);
int RunModifyRule(CtlContext& context);
int RunSwapRules(CtlContext& context);
int RunListRules(CtlContext& context);
int RunListExceptions(CtlContext& context);
int RunAddRuleList(CtlContext& context);
int RunSetRuleList(CtlContext& context);
int RunSetExceptionList(CtlContext& context);
int RunCheckRule(CtlContext& context);
int RunApply(CtlContext& context);

int RunFlushAll(CtlContext& context);
int RunFlushNormal(CtlContext& context);
int RunFlushExceptions(CtlContext& context);
int RunEnable(CtlContext& context);
int RunDisable(CtlContext& context);
int RunNotify(CtlContext& context);
int RunDebugLevel(CtlContext& context);
int RunConfirm(CtlContext& context);
int RunMetrics(CtlContext& context);

int RunStatus(CtlContext& context);

int RunWatch(CtlContext& context);
int RunEvents(CtlContext& context);

int RunCompletion(CtlContext& context);

}  // namespace qvctl
