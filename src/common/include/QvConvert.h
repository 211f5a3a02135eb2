// The response encoder: a handler's answer message into a malloc'ed buffer that the host
// owns and gives back through QvPluginFree.
#pragma once

#include <assert.h>
#include <stdlib.h>

#include "QvPlugin.h"

namespace qor {
namespace vela {

// Stores the serialized size in *outLen first, then a buffer in *out: null for an empty
// message (nothing allocated), else malloc'ed. Returns 0, QV_ERR_NO_MEMORY when the buffer could
// not be allocated, or QV_ERR_SERIALIZE when serializing failed (the buffer then stays in *out for
// the host to free). Null output pointers are programming errors: handlers check them first.
template <typename T>
int pb2data(const T& msg, void** out, int* outLen) {
    assert(out != NULL);
    assert(outLen != NULL);
    const size_t size = msg.ByteSizeLong();
    *outLen = static_cast<int>(size);
    if (size == 0) {
        *out = NULL;
        return QV_OK;
    }
    void* buffer = malloc(size);
    *out = buffer;
    if (buffer == NULL) {
        return QV_ERR_NO_MEMORY;
    }
    if (!msg.SerializeToArray(buffer, static_cast<int>(size))) {
        return QV_ERR_SERIALIZE;
    }
    return QV_OK;
}

}  // namespace vela
}  // namespace qor
