#include "ipfwnft/UndoableStore.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace ipfwnft {
namespace {

using ipfwsim::Status;

// A state of many rules is a megabyte: its copy's pages are asked for in one call rather
// than faulted in one by one.
void prefault(std::string& text, size_t size) {
    text.reserve(size);
#ifdef MADV_POPULATE_WRITE
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t start = reinterpret_cast<uintptr_t>(text.data()) / page * page;
    const uintptr_t end = reinterpret_cast<uintptr_t>(text.data()) + size;
    if (size >= 16 * page) {
        (void)madvise(reinterpret_cast<void*>(start), end - start, MADV_POPULATE_WRITE);
    }
#endif
}

}  // namespace

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

Status UndoableStore::changed(bool& changed) {
    std::string_view current;
    const Status status = store_.read(current);
    changed = status.ok() && !undo_.empty() &&
              (current.size() != undo_.front().size ||
               std::any_of(undo_.begin(), undo_.end(), [current](const Undo& undo) {
                   return current.substr(undo.offset, undo.bytes.size()) != undo.bytes;
               }));
    return status;
}

Status UndoableStore::appendedOnly(bool& only, size_t& size, std::string& firstLine) {
    std::string_view current;
    const Status status = store_.read(current);
    firstLine = std::string(current.substr(0, current.find('\n') + 1));
    size = undo_.empty() ? current.size() : undo_.front().size;
    only = status.ok() && size <= current.size();
    for (auto undo = undo_.rbegin(); only && undo != undo_.rend(); ++undo) {
        const bool appended = undo->bytes.empty() && undo->offset == undo->size;
        only = appended || undo->offset + undo->bytes.size() <= firstLine.size();
        if (only && !appended) {
            firstLine.replace(undo->offset, undo->bytes.size(), undo->bytes);
        }
    }
    return status;
}

Status UndoableStore::before(std::string& content) {
    std::string_view current;
    const Status status = store_.read(current);
    prefault(content, current.size());
    content.assign(current);
    for (auto undo = undo_.rbegin(); status.ok() && undo != undo_.rend(); ++undo) {
        content.resize(std::max(content.size(), undo->offset + undo->bytes.size()));
        content.replace(undo->offset, undo->bytes.size(), undo->bytes);
        content.resize(undo->size);
    }
    return status;
}

}  // namespace ipfwnft
