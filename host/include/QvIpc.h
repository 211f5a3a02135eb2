// libQvUtil's inter-process call to the host service.
//
// The service listens on a Unix stream socket at $QV_IPC_SOCKET, default
// "/var/run/Quorvane/QvrnCore.sock". One connection carries one call, in the frames of
// QvFrame.h.
#pragma once

#include "QvFrame.h"

namespace ipc {

// Sends `size` bytes of `data` under `command` and waits for the reply. On return
// `*reply` is a malloc'ed buffer of `*replyLength` bytes owned by the caller (release it
// with ipc::free), or null with length 0 when the reply had no payload. Returns the
// reply's code (0 success), or -1 when the service cannot be reached, the exchange
// breaks off, or an argument is invalid. Never waits more than 1 s to connect or 3 s
// for the reply. Thread-safe. Never raises SIGPIPE.
int call(int command, const void* data, int size, void** reply, int* replyLength);

// Releases a reply buffer from call(). Null is accepted.
void free(void* buffer, int length);

}  // namespace ipc
