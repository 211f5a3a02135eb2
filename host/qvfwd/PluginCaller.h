// How the daemon's own work (expiry, rollback, the rule directory) calls the plug-in's
// handlers: the one seam a test replaces with a fake plug-in.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>

namespace qvfwd {

// Runs `command` with `request`; the handler's code, its response in `*response`.
using PluginCaller =
    std::function<int32_t(uint32_t command, const std::string& request, std::string* response)>;

}  // namespace qvfwd
