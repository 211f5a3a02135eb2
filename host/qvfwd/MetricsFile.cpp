#include "MetricsFile.h"

#include "AtomicFile.h"

namespace qvfwd {

bool MetricsFile::Update(int64_t nowMicros, bool force, std::string* error) {
    std::string text = m_render();
    if (!force && text == m_written && nowMicros - m_writtenAt < kRefreshMicros) {
        return true;
    }
    if (!WriteFileAtomically(m_path, text, 0644, error)) {
        return false;
    }
    m_written = std::move(text);
    m_writtenAt = nowMicros;
    return true;
}

}  // namespace qvfwd
