#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ipfwsim/StateFile.h"
#include "ipfwsim/StateStore.h"

namespace ipfwnft {

// A rule state that remembers how to undo the writes made through it. The state as it
// was is put together only when it is asked for, so that a command that wrote nothing
// copies nothing, however many rules the state holds.
class UndoableStore : public ipfwsim::StateStore {
public:
    explicit UndoableStore(ipfwsim::StateStore& store) : store_(store) {}

    ipfwsim::Status read(std::string_view& content) override { return store_.read(content); }
    ipfwsim::Status append(std::string_view text) override;
    ipfwsim::Status overwrite(size_t offset, std::string_view text) override;
    ipfwsim::Status replace(std::string_view content) override;

    // Whether the writes made through this store left the content other than it was;
    // read from what they overwrote, without a copy of the whole.
    ipfwsim::Status changed(bool& changed);
    // Whether every line kept its place through the writes (appends and writes in place
    // that moved no newline, as an add or a delete makes): the content before them is then
    // the current content's first `size` bytes with `patches` laid over them (sorted and
    // apart), which ipfwsim::StateFile reads without a copy of the unpatched bulk.
    ipfwsim::Status patchesBack(bool& linesKept, size_t& size,
                                std::vector<ipfwsim::StatePatch>& patches);
    // The content before the first write made through this store.
    ipfwsim::Status before(std::string& content);

private:
    // The content was `size` bytes long and held `bytes` at `offset`.
    struct Undo {
        size_t size;
        size_t offset;
        std::string bytes;
    };
    ipfwsim::Status remember(size_t offset, size_t length);

    ipfwsim::StateStore& store_;
    std::vector<Undo> undo_;
};

}  // namespace ipfwnft
