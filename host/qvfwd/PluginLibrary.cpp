#include "PluginLibrary.h"

#include <dlfcn.h>

#include "QvControlErrors.h"

namespace qvfwd {

namespace {

template <typename Function>
bool FindSymbol(void* library, const char* name, Function* function, std::string* error) {
    *function = reinterpret_cast<Function>(dlsym(library, name));
    if (*function == nullptr) {
        *error = std::string("the plug-in does not export ") + name;
        return false;
    }
    return true;
}

}  // namespace

PluginLibrary::~PluginLibrary() {
    Finalize();
    // The library stays mapped: the plug-in's threads have stopped, but handlers it
    // registered with the C runtime (atexit, thread-locals) may still point into it.
}

bool PluginLibrary::Load(const std::string& path, std::string* error) {
    m_path = path;
    m_library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr) {
        const char* reason = dlerror();
        *error = "cannot load the plug-in " + path + ": " + (reason ? reason : "unknown");
        return false;
    }
    return FindSymbol(m_library, "QvPluginGetId", &m_entry.getId, error) &&
           FindSymbol(m_library, "QvPluginInitialize", &m_entry.initialize, error) &&
           FindSymbol(m_library, "QvPluginFinalize", &m_entry.finalize, error) &&
           FindSymbol(m_library, "QvPluginFree", &m_entry.freeBuffer, error) &&
           FindSymbol(m_library, "QvPluginGetHandlers", &m_entry.getHandlers, error) &&
           FindSymbol(m_library, "QvPluginSetNotificationCallback",
                      &m_entry.setNotificationCallback, error);
}

int32_t PluginLibrary::Start(QvNotifyCallback callback, std::string* error) {
    m_id = m_entry.getId();
    m_initialized = true;  // Finalize is due even when Initialize fails
    int32_t code = m_entry.initialize(nullptr);
    if (code != 0) {
        *error = "the plug-in failed to initialise: " + qvctl::DescribeCode(code);
        return code;
    }
    code = m_entry.getHandlers(&m_table, &m_rows, &m_default);
    if (code != 0) {
        *error = "the plug-in gave no command table: " + qvctl::DescribeCode(code);
        return code;
    }
    m_entry.setNotificationCallback(callback);
    return 0;
}

QvCommandHandler PluginLibrary::HandlerFor(uint32_t command) const {
    for (int row = 0; row < m_rows; ++row) {
        if (static_cast<uint32_t>(m_table[row].cmd) == command) {
            return m_table[row].handler;
        }
    }
    return m_default;
}

int32_t PluginLibrary::Call(uint32_t command, const std::string& request,
                            std::string* response) const {
    QvCommandHandler handler = HandlerFor(command);
    if (handler == nullptr) {
        return QV_ERR_INVALID_ARG;
    }
    void* out = nullptr;
    int outLength = 0;
    const void* in = request.empty() ? nullptr : request.data();
    int32_t code =
        handler(static_cast<int>(command), in, static_cast<int>(request.size()), &out, &outLength);
    if (out != nullptr) {
        response->assign(static_cast<const char*>(out), static_cast<size_t>(outLength));
        m_entry.freeBuffer(out);
    }
    return code;
}

void PluginLibrary::Finalize() {
    if (m_initialized) {
        m_initialized = false;
        m_entry.finalize();
    }
}

}  // namespace qvfwd
