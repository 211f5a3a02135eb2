#include "PageAllocator.h"

#include <utility>

namespace qvcf {
namespace {

// Room for the mapping's size before the block, keeping the block 16-byte aligned.
constexpr size_t kHeader = 16;

struct Kept {
    std::mutex mutex;
    void* mapping = nullptr;
    size_t size = 0;
};

// Never destroyed: documents may still be written while the process exits.
Kept& kept() {
    static auto* instance = new Kept();
    return *instance;
}

void* blockOf(void* mapping) {
    return static_cast<char*>(mapping) + kHeader;
}

size_t sizeOf(void* mapping) {
    return *static_cast<size_t*>(mapping);
}

void* newMapping(size_t size) {
    void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
        return nullptr;
    }
    *static_cast<size_t*>(mapping) = size;
    return mapping;
}

}  // namespace

void* PagePool::take(size_t bytes) {
    const size_t needed = bytes + kHeader;
    void* stale = nullptr;
    {
        Kept& pool = kept();
        std::lock_guard<std::mutex> guard(pool.mutex);
        if (pool.mapping != nullptr && pool.size >= needed) {
            void* mapping = pool.mapping;
            pool.mapping = nullptr;
            pool.size = 0;
            return blockOf(mapping);
        }
        // Too small for the documents written now: it will not fit any later either.
        stale = pool.mapping;
        pool.mapping = nullptr;
        pool.size = 0;
    }
    if (stale != nullptr) {
        munmap(stale, sizeOf(stale));
    }
    void* mapping = newMapping(needed);
    return mapping != nullptr ? blockOf(mapping) : nullptr;
}

void PagePool::give(void* block) {
    void* mapping = static_cast<char*>(block) - kHeader;
    {
        Kept& pool = kept();
        std::lock_guard<std::mutex> guard(pool.mutex);
        if (pool.mapping == nullptr || sizeOf(pool.mapping) < sizeOf(mapping)) {
            std::swap(pool.mapping, mapping);
            pool.size = sizeOf(pool.mapping);
        }
    }
    if (mapping != nullptr) {
        munmap(mapping, sizeOf(mapping));
    }
}

}  // namespace qvcf
