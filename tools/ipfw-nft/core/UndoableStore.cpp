#include "ipfwnft/UndoableStore.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <map>

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

// Whether `patch` holds a newline exactly where `content` does.
bool keepsNewlines(const ipfwsim::StatePatch& patch, std::string_view content) {
    const std::string_view there = content.substr(patch.offset, patch.bytes.size());
    return std::equal(patch.bytes.begin(), patch.bytes.end(), there.begin(), there.end(),
                      [](char was, char is) { return (was == '\n') == (is == '\n'); });
}

// What stood in the first `size` bytes where the writes `undo` (oldest first) overwrote
// them: for each byte, what the oldest write that reached it found there. Patches that
// touch are joined.
template <typename Undo>
std::vector<ipfwsim::StatePatch> firstBytes(const std::vector<Undo>& undo, size_t size) {
    std::map<size_t, std::string> pieces;
    for (const Undo& write : undo) {
        const size_t end = std::min(write.offset + write.bytes.size(), size);
        size_t pos = write.offset;
        auto next = pieces.upper_bound(pos);
        if (next != pieces.begin()) {
            const auto& last = *std::prev(next);
            pos = std::max(pos, last.first + last.second.size());
        }
        while (pos < end) {
            const size_t gapEnd = next == pieces.end() ? end : std::min(end, next->first);
            if (pos < gapEnd) {
                pieces.emplace_hint(next, pos,
                                    write.bytes.substr(pos - write.offset, gapEnd - pos));
                pos = gapEnd;
            } else {
                pos = std::max(pos, next->first + next->second.size());
                ++next;
            }
        }
    }
    std::vector<ipfwsim::StatePatch> patches;
    for (auto& [offset, bytes] : pieces) {
        if (!patches.empty() && patches.back().offset + patches.back().bytes.size() == offset) {
            patches.back().bytes += bytes;
        } else {
            patches.push_back(ipfwsim::StatePatch{offset, std::move(bytes)});
        }
    }
    return patches;
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

Status UndoableStore::patchesBack(bool& linesKept, size_t& size,
                                  std::vector<ipfwsim::StatePatch>& patches) {
    std::string_view current;
    const Status status = store_.read(current);
    size = undo_.empty() ? current.size() : undo_.front().size;
    // Only a replacement shrinks the content, and it remembers all it replaced.
    linesKept = status.ok() && size <= current.size();
    patches.clear();
    if (linesKept) {
        patches = firstBytes(undo_, size);
        linesKept = std::all_of(patches.begin(), patches.end(), [current](const auto& patch) {
            return keepsNewlines(patch, current);
        });
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
