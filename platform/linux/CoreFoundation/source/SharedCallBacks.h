// Callback sets as collections keep them: one shared copy per distinct set.
// CoreFoundation copies the set a collection is made with, but nearly every collection
// is made with the same one or two sets, and a copy inside each of the hundreds of
// thousands of containers of a large document made every container half as large again.
#pragma once

#include <cstring>
#include <deque>
#include <mutex>

namespace qvcf {

// The shared copy of `*callBacks`; `common` itself when they are equal, and a set of
// null callbacks for null. Copies live for the rest of the process: collections may be
// made and released while it exits.
template <typename CallBacks>
const CallBacks& sharedCallBacks(const CallBacks* callBacks, const CallBacks& common) {
    static const CallBacks none{};
    if (callBacks == nullptr) {
        return none;
    }
    // The sets are a version and function pointers, with no padding between them.
    if (std::memcmp(callBacks, &common, sizeof(CallBacks)) == 0) {
        return common;
    }
    static auto* mutex = new std::mutex();
    static auto* kept = new std::deque<CallBacks>();
    std::lock_guard<std::mutex> guard(*mutex);
    for (const CallBacks& set : *kept) {
        if (std::memcmp(&set, callBacks, sizeof(CallBacks)) == 0) {
            return set;
        }
    }
    kept->push_back(*callBacks);
    return kept->back();
}

}  // namespace qvcf
