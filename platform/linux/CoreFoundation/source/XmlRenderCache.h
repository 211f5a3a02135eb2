// The XML text of an immutable container, kept with the container so that a document
// saved again and again re-renders only what is new. An immutable container and all it
// holds never change, so its text at a given indentation never changes either; mutable
// containers are never cached.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace qvcf {

class XmlRenderCache {
public:
    XmlRenderCache() = default;
    ~XmlRenderCache() { delete m_text.load(std::memory_order_acquire); }
    XmlRenderCache(const XmlRenderCache&) = delete;
    XmlRenderCache& operator=(const XmlRenderCache&) = delete;

    // The text rendered at `level`, or null when none is kept for that level.
    const std::string* find(size_t level) const {
        const Rendering* text = m_text.load(std::memory_order_acquire);
        return text != nullptr && text->level == level ? &text->text : nullptr;
    }

    // Keeps `text` for `level` unless another thread kept one first (which, being for
    // the same immutable container, has the same bytes when the level matches).
    void keep(size_t level, std::string text) const {
        auto* made = new Rendering{level, std::move(text)};
        const Rendering* expected = nullptr;
        if (!m_text.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) {
            delete made;
        }
    }

private:
    struct Rendering {
        size_t level;
        std::string text;
    };
    // Filled once, possibly by a writer holding the container as const.
    mutable std::atomic<const Rendering*> m_text{nullptr};
};

}  // namespace qvcf
