// The firewall plug-in, loaded with dlopen and driven in the calling order of its
// contract (QvPlugin.h): GetId, Initialize, GetHandlers, SetNotificationCallback, handler
// calls, Finalize. Handler calls may come from many threads at once; Start and Finalize
// must not overlap them (the daemon starts serving after Start and stops before Finalize).
#pragma once

#include <stdint.h>

#include <string>

#include "QvPlugin.h"

namespace qvfwd {

class PluginLibrary {
public:
    PluginLibrary() = default;
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // Opens the library and finds the entry points. False with a sentence in `error`.
    bool Load(const std::string& path, std::string* error);

    // Identifies, initialises and wires up the plug-in. 0, or the code of the step that
    // failed (Initialize's, or QV_ERR_INVALID_ARG from GetHandlers) with the step named in `error`.
    int32_t Start(QvNotifyCallback callback, std::string* error);

    // Runs `command` through its row of the table, or the default handler, and copies
    // the response (released with QvPluginFree) into `response`.
    int32_t Call(uint32_t command, const std::string& request, std::string* response) const;

    // Finalizes a started plug-in; calling it again does nothing.
    void Finalize();

    int id() const { return m_id; }
    const std::string& path() const { return m_path; }

private:
    QvCommandHandler HandlerFor(uint32_t command) const;

    struct EntryPoints {
        int (*getId)(void) = nullptr;
        int (*initialize)(void*) = nullptr;
        void (*finalize)(void) = nullptr;
        int (*freeBuffer)(void*) = nullptr;
        int (*getHandlers)(const QvHandlerEntry**, int*, QvCommandHandler*) = nullptr;
        void (*setNotificationCallback)(QvNotifyCallback) = nullptr;
    };

    std::string m_path;
    void* m_library = nullptr;
    EntryPoints m_entry;
    const QvHandlerEntry* m_table = nullptr;
    int m_rows = 0;
    QvCommandHandler m_default = nullptr;
    int m_id = 0;
    bool m_initialized = false;
};

}  // namespace qvfwd
