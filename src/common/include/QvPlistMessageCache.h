// Dictionaries made from messages, found again by the message's serialized bytes, so
// that a list written whole on every change converts only the messages that are new.
//
// Equal bytes mean equal fields and equal presence, so they always convert to the same
// dictionary. The dictionaries kept are deep immutable copies: they can be shared by
// every document that holds the message, and the XML writer can keep their text.
// Entries not used by the last few lists are dropped, so the cache holds about as many
// messages as the lists written lately.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

#include "QvPlistMessageConvert.h"

namespace qor {
namespace vela {

template <typename T>
class QvPlistMessageCache {
public:
    QvPlistMessageCache() = default;
    ~QvPlistMessageCache() {
        for (auto& entry : m_entries) {
            CFRelease(entry.second.value);
        }
    }
    QvPlistMessageCache(const QvPlistMessageCache&) = delete;
    QvPlistMessageCache& operator=(const QvPlistMessageCache&) = delete;

    // An array holding one dictionary per message, like convertCreate; `out` receives it
    // only when every element could be made.
    bool createArray(const RepeatedPtrField<T>& field, CFArrayRef& out) {
        std::lock_guard<std::mutex> guard(m_mutex);
        ++m_round;
        const bool made = createArrayOf(
            field, [this](const T& message) { return lookupOrCreate(message); }, out);
        dropUnused();
        return made;
    }

private:
    // Lists written in between (the other list of the same message type, say) do not
    // push a list's messages out.
    static constexpr uint64_t kKeptRounds = 4;

    struct Entry {
        CFTypeRef value;
        uint64_t lastRound;
    };

    // A new reference to the dictionary of `message`, or null.
    CFTypeRef lookupOrCreate(const T& message) {
        m_key.clear();
        if (!message.AppendPartialToString(&m_key)) {
            return nullptr;
        }
        auto found = m_entries.find(m_key);
        if (found != m_entries.end()) {
            found->second.lastRound = m_round;
            return CFRetain(found->second.value);
        }
        CFTypeRef made = createMessageValue(message);
        if (made == nullptr) {
            return nullptr;
        }
        CFTypeRef frozen =
            CFPropertyListCreateDeepCopy(kCFAllocatorDefault, made, kCFPropertyListImmutable);
        CFRelease(made);
        if (frozen == nullptr) {
            return nullptr;
        }
        m_entries.emplace(m_key, Entry{frozen, m_round});
        return CFRetain(frozen);
    }

    void dropUnused() {
        for (auto it = m_entries.begin(); it != m_entries.end();) {
            if (m_round - it->second.lastRound >= kKeptRounds) {
                CFRelease(it->second.value);
                it = m_entries.erase(it);
            } else {
                ++it;
            }
        }
    }

    std::mutex m_mutex;
    std::unordered_map<std::string, Entry> m_entries;
    std::string m_key;
    uint64_t m_round = 0;
};

// Writes the repeated message field through `cache`; like writeRepeatedField, nothing is
// written for an empty field.
template <typename T>
bool writeCachedRepeatedField(CFMutableDictionaryRef dict, const char* key,
                              const RepeatedPtrField<T>& field, QvPlistMessageCache<T>& cache) {
    if (field.empty()) {
        return true;
    }
    CFArrayRef array = nullptr;
    if (!cache.createArray(field, array)) {
        return false;
    }
    const bool added = addValue(dict, key, array);
    CFRelease(array);
    return added;
}

}  // namespace vela
}  // namespace qor
