#include "ipfwnft/UndoableStore.h"

#include <algorithm>

namespace ipfwnft {

using ipfwsim::Status;

Status UndoableStore::remember(size_t offset, size_t length) {
    std::string_view content;
    const Status status = store_.read(content);
    if (status.ok()) {
        const size_t from = std::min(offset, content.size());
        undo_.push_back(Undo{content.size(), from, std::string(content.substr(from, length))});
    }
    return status;
}

Status UndoableStore::append(std::string_view text) {
    const Status status = remember(SIZE_MAX, 0);
    return status.ok() ? store_.append(text) : status;
}

Status UndoableStore::overwrite(size_t offset, std::string_view text) {
    const Status status = remember(offset, text.size());
    return status.ok() ? store_.overwrite(offset, text) : status;
}

Status UndoableStore::replace(std::string_view content) {
    const Status status = remember(0, SIZE_MAX);
    return status.ok() ? store_.replace(content) : status;
}

Status UndoableStore::before(std::string& content) {
    std::string_view current;
    const Status status = store_.read(current);
    content.assign(current);
    for (auto undo = undo_.rbegin(); status.ok() && undo != undo_.rend(); ++undo) {
        content.resize(std::max(content.size(), undo->offset + undo->bytes.size()));
        content.replace(undo->offset, undo->bytes.size(), undo->bytes);
        content.resize(undo->size);
    }
    return status;
}

}  // namespace ipfwnft
