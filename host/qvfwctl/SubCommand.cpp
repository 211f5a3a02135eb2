#include "SubCommand.h"

#include <google/protobuf/message_lite.h>

#include "JsonWriter.h"
#include "QvControlErrors.h"

namespace qvctl {

int Fail(CtlContext& context, int status, const std::string& message) {
    fprintf(context.err, "qvfwctl: %s\n", message.c_str());
    return status;
}

bool CallDaemon(CtlContext& context, uint32_t command, const std::string& request, int32_t* code,
                std::string* reply) {
    if (!context.client.Call(command, request, code, reply)) {
        Fail(context, kExitUnreachable, context.client.error());
        return false;
    }
    return true;
}

int CallForStatus(CtlContext& context, uint32_t command, const std::string& request,
                  std::string* reply) {
    int32_t code = 0;
    if (!CallDaemon(context, command, request, &code, reply)) {
        return kExitUnreachable;
    }
    return CodeStatus(context, code);
}

int CodeStatus(CtlContext& context, int32_t code) {
    if (code == 0) {
        return kExitOk;
    }
    if (context.arguments.json) {
        fprintf(context.out, "%s\n",
                JsonObject().Number("code", code).Text("error", CodeMeaningOf(code)).str().c_str());
    }
    return Fail(context, kExitFailed, DescribeCode(code));
}

bool ReadReply(CtlContext& context, const std::string& reply, const char* what,
               google::protobuf::MessageLite* message, int* status) {
    if (message->ParseFromString(reply)) {
        return true;
    }
    *status = Fail(context, kExitFailed, std::string("cannot read qvfwd's reply to ") + what);
    return false;
}

int PrintDone(CtlContext& context) {
    fputs(context.arguments.json ? "{\"code\":0}\n" : "ok\n", context.out);
    return kExitOk;
}

}  // namespace qvctl
