#include "ipfwsim/CommandContext.h"

namespace ipfwsim {

void CommandContext::warn(const std::string& text) const {
    console.err("ipfw: " + text + "\n");
}

void CommandContext::warnAll(const Diagnostics& diagnostics) const {
    for (const std::string& warning : diagnostics.warnings) {
        warn(warning);
    }
}

int CommandContext::fail(const Status& status) const {
    warn(status.message);
    return status.code;
}

Status CommandContext::loadState(FirewallState& state) const {
    std::string_view content;
    Status status = store.read(content);
    return status.ok() ? FirewallState::load(content, state) : status;
}

Status CommandContext::saveState(const FirewallState& state) const {
    return store.replace(state.serialize());
}

}  // namespace ipfwsim
