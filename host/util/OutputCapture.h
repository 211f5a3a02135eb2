// Collects a command's standard output into a caller's buffer: always NUL-terminated,
// cut at size - 1 bytes, with everything past that accepted and dropped so that the
// producer is never left blocked on a full pipe.
#pragma once

#include <stddef.h>

namespace qvutil {

class OutputCapture {
public:
    // A null buffer or a zero size captures nothing.
    OutputCapture(char* buffer, size_t size);

    void Append(const char* data, size_t length);
    size_t Length() const { return m_length; }
    // True when some output did not fit.
    bool Truncated() const { return m_truncated; }

private:
    char* m_buffer;
    size_t m_capacity;  // bytes of text the buffer holds besides its NUL
    size_t m_length = 0;
    bool m_truncated = false;
};

}  // namespace qvutil
