// qvfwd's command line, parsed apart from everything it starts.
#pragma once

#include <string>
#include <vector>

namespace qvfwd {

struct DaemonOptions {
    std::string pluginPath;     // empty: the libQvFw.so installed or built beside qvfwd
    std::string controlSocket;  // the control socket
    std::string serviceSocket;  // the host service socket the plug-in calls
    bool showHelp = false;
};

// The usage text, for --help and for mistakes.
std::string DaemonUsage();

// Fills `options` from the arguments after the program name; defaults come from the
// environment values given (QV_IPC_SOCKET). False with a sentence in `error`.
bool ParseDaemonOptions(const std::vector<std::string>& arguments, const char* serviceEnv,
                        DaemonOptions* options, std::string* error);

}  // namespace qvfwd
