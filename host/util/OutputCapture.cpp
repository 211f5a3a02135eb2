#include "OutputCapture.h"

#include <string.h>

namespace qvutil {

OutputCapture::OutputCapture(char* buffer, size_t size)
    : m_buffer(size > 0 ? buffer : nullptr), m_capacity(buffer && size > 0 ? size - 1 : 0) {
    if (m_buffer != nullptr) {
        m_buffer[0] = '\0';
    }
}

void OutputCapture::Append(const char* data, size_t length) {
    size_t room = m_capacity - m_length;
    size_t kept = length < room ? length : room;
    if (kept < length) {
        m_truncated = true;
    }
    if (kept == 0) {
        return;
    }
    memcpy(m_buffer + m_length, data, kept);
    m_length += kept;
    m_buffer[m_length] = '\0';
}

}  // namespace qvutil
