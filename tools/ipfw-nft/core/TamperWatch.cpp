#include "ipfwnft/TamperWatch.h"

#include "ipfwnft/TableLayout.h"

namespace ipfwnft {

std::string Tampering::describe() const {
    std::string text = "process " + std::to_string(pid) + " (" + process + ")";
    const char* separator = " ";
    for (const auto& [table, gone] : deleted) {
        text += separator + std::string(gone ? "deleted" : "changed") + " table " + table;
        separator = ", ";
    }
    return text;
}

bool TamperWatch::take(const RulesetEvent& event, Tampering& found) {
    if (event.kind != RulesetEvent::Kind::Generation) {
        if (isOwnTable(event.table)) {
            touched_[event.table] |= event.kind == RulesetEvent::Kind::TableDeleted;
        }
        return false;
    }
    const bool foreign = !touched_.empty() && !isOwn_(event.port);
    if (foreign) {
        found = Tampering{event.pid, event.process, touched_};
    }
    touched_.clear();
    return foreign;
}

}  // namespace ipfwnft
