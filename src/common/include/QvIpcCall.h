// A typed call to the host service: a request message out, a reply message back.
#pragma once

#include <string>

#include "QvIpc.h"
#include "QvPlugin.h"

namespace qor {
namespace vela {

// 0 on success; QV_ERR_INCOMPLETE when the request cannot be serialized or the reply is incomplete;
// otherwise the code of ipc::call (-1 when the service cannot be reached).
template <typename Request, typename Reply>
int QvIpcCall(int command, const Request& request, Reply& reply) {
    std::string payload;
    if (!request.SerializeToString(&payload)) {
        return QV_ERR_INCOMPLETE;
    }
    void* buffer = nullptr;
    int length = 0;
    int ret =
        ipc::call(command, payload.data(), static_cast<int>(payload.size()), &buffer, &length);
    if (ret == 0 && length != 0) {
        reply.ParseFromArray(buffer, length);
        if (!reply.IsInitialized()) {
            ret = QV_ERR_INCOMPLETE;
        }
    }
    ipc::free(buffer, length);
    return ret;
}

}  // namespace vela
}  // namespace qor
