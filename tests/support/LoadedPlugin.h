// The built plug-in, loaded the way a host loads it: dlopen and the exported symbols only.
// Loaded once per test process, like a host that keeps it loaded across restarts.
#pragma once

#include <dlfcn.h>

#include <string>

#include "QvFirewall.h"

namespace qvtest {

struct LoadedPlugin {
    decltype(&QvPluginGetId) getId = nullptr;
    decltype(&QvPluginInitialize) initialize = nullptr;
    decltype(&QvPluginFinalize) finalize = nullptr;
    decltype(&QvPluginFree) free = nullptr;
    decltype(&QvPluginGetHandlers) getHandlers = nullptr;
    decltype(&QvPluginSetNotificationCallback) setNotificationCallback = nullptr;
    const QvHandlerEntry* handlerArr = nullptr;

    static std::string path() { return QV_PLUGIN_PATH; }

    // Null when the library or one of its symbols is missing; dlerror() tells why.
    static const LoadedPlugin* instance() {
        static const LoadedPlugin* loaded = load();
        return loaded;
    }

private:
    template <typename T>
    static bool find(void* library, const char* name, T& symbol) {
        symbol = reinterpret_cast<T>(dlsym(library, name));
        return symbol != nullptr;
    }

    static const LoadedPlugin* load() {
        void* library = dlopen(path().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            return nullptr;
        }
        static LoadedPlugin plugin;
        const bool complete =
            find(library, "QvPluginGetId", plugin.getId) &&
            find(library, "QvPluginInitialize", plugin.initialize) &&
            find(library, "QvPluginFinalize", plugin.finalize) &&
            find(library, "QvPluginFree", plugin.free) &&
            find(library, "QvPluginGetHandlers", plugin.getHandlers) &&
            find(library, "QvPluginSetNotificationCallback", plugin.setNotificationCallback) &&
            find(library, "handlerArr", plugin.handlerArr);
        return complete ? &plugin : nullptr;
    }
};

}  // namespace qvtest
