// Points the plug-in's debug log at a file in a temporary directory for the lifetime of
// the object, so a test can assert on the exact messages and levels written.
#pragma once

#include <string>

#include "QvDebugLog.h"
#include "QvLog.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace qvtest {

class LogCapture {
public:
    explicit LogCapture(int level = 7) {
        m_path = m_dir.file("QvFw.log");
        m_previous = g_debugLogContext;
        g_debugLogContext = QvrnCreateDbgLog("QvFw", m_path.c_str(), level);
    }
    ~LogCapture() {
        QvrnReleaseDbgLog(g_debugLogContext);
        g_debugLogContext = m_previous;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string text() const { return readFile(m_path); }

    // True when some line was written at `level` and ends with `message`.
    bool has(int level, const std::string& message) const {
        return hasLogLine(text(), level, message, true);
    }

private:
    TempDir m_dir;
    std::string m_path;
    void* m_previous = nullptr;
};

}  // namespace qvtest
