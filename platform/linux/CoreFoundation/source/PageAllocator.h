// An allocator that takes large blocks straight from the kernel and gives them back
// as soon as they are freed. A saved document is written into one buffer as large as
// the file; from the heap, that buffer stays resident between saves as a hole the size
// of the file (glibc serves large blocks from the heap once one has been freed).
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

namespace qvcf {

template <typename T>
class PageAllocator {
public:
    using value_type = T;

    PageAllocator() = default;
    template <typename U>
    PageAllocator(const PageAllocator<U>&) {}

    T* allocate(size_t count) {
        const size_t bytes = count * sizeof(T);
        void* block = nullptr;
        if (bytes >= kPagedFrom) {
            block =
                mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            block = block == MAP_FAILED ? nullptr : block;
        } else {
            block = std::malloc(bytes);
        }
        // Out of memory ends as it does with std::allocator.
        if (block == nullptr) {
            throw std::bad_alloc();
        }
        return static_cast<T*>(block);
    }

    void deallocate(T* block, size_t count) {
        const size_t bytes = count * sizeof(T);
        if (bytes >= kPagedFrom) {
            munmap(block, bytes);
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
    // Below this, a hole left in the heap costs less than faulting the pages in again on
    // every save.
    static constexpr size_t kPagedFrom = size_t{4} << 20;
};

// The text of a written document.
using PagedString = std::basic_string<char, std::char_traits<char>, PageAllocator<char>>;

}  // namespace qvcf
