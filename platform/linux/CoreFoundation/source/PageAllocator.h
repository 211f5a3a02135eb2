// An allocator that takes large blocks straight from the kernel and keeps at most one of
// them for reuse. A saved document is written into one buffer as large as the file:
// from the heap, that buffer stays resident between saves as a hole glibc does not reuse
// well (a document one rule longer took a new one); a new mapping for every save faults
// in every page of it again, a third of a save's time at 10,000 rules. The one block kept
// is the next save's buffer, so a process holds at most one document's worth beyond what
// it uses, and no more at its peak than while it writes.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>

namespace qvcf {

// The mappings behind PageAllocator's large blocks. Each mapping starts with its own
// size, so that a block handed out larger than asked is given back whole.
class PagePool {
public:
    static void* take(size_t bytes);
    static void give(void* block);
};

template <typename T>
class PageAllocator {
public:
    using value_type = T;

    PageAllocator() = default;
    template <typename U>
    PageAllocator(const PageAllocator<U>&) {}

    T* allocate(size_t count) {
        const size_t bytes = count * sizeof(T);
        void* block = bytes >= kPagedFrom ? PagePool::take(bytes) : std::malloc(bytes);
        // Out of memory ends as it does with std::allocator.
        if (block == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(block);
    }

    void deallocate(T* block, size_t count) {
        if (count * sizeof(T) >= kPagedFrom) {
            PagePool::give(block);
        } else {
            std::free(block);
        }
    }

    template <typename U>
    bool operator==(const PageAllocator<U>&) const {
        return true;
    }
    template <typename U>
    bool operator!=(const PageAllocator<U>&) const {
        return false;
    }

private:
    // Below this, a block from the heap costs less than a mapping of its own.
    static constexpr size_t kPagedFrom = size_t{4} << 20;
};

// The text of a written document.
using PagedString = std::basic_string<char, std::char_traits<char>, PageAllocator<char>>;

}  // namespace qvcf
