#include "ipfwsim/FirewallSwitches.h"

#include "ipfwsim/FirewallState.h"

namespace ipfwsim {

Status loadHeader(StateStore& store, StateHeader& header) {
    std::string_view content;
    Status status = store.read(content);
    StateFile file(content);
    if (status.ok()) {
        status = file.open();
    }
    return status.ok() ? file.readHeader(header, false) : status;
}

Status readVerbose(StateStore& store, bool& verbose) {
    StateHeader header;
    Status status = loadHeader(store, header);
    verbose = header.verbose;
    return status;
}

Status writeVerbose(StateStore& store, bool verbose) {
    std::string_view content;
    Status status = store.read(content);
    FirewallState state;
    if (status.ok()) {
        status = FirewallState::load(content, state);
    }
    if (!status.ok()) {
        return status;
    }
    state.header().verbose = verbose;
    return store.replace(state.serialize());
}

}  // namespace ipfwsim
