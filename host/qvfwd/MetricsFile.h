// --metrics-file: the metrics for node exporter's textfile collector, replaced whole
// (AtomicFile) when they changed and at least every 15 seconds, so that the file's age
// tells a scraper that qvfwd is alive. Readable by all: node exporter runs as its own user.
#pragma once

#include <stdint.h>

#include <functional>
#include <string>

namespace qvfwd {

class MetricsFile {
public:
    static constexpr int64_t kRefreshMicros = 15 * 1000000;

    MetricsFile(std::string path, std::function<std::string()> render)
        : m_path(std::move(path)), m_render(std::move(render)) {}

    // Writes when the metrics differ from the last written or kRefreshMicros have passed
    // since (or `force`). False with the reason in `error` when a write failed.
    bool Update(int64_t nowMicros, bool force, std::string* error);

    const std::string& path() const { return m_path; }

private:
    const std::string m_path;
    std::function<std::string()> m_render;
    std::string m_written;
    int64_t m_writtenAt = 0;
};

}  // namespace qvfwd
