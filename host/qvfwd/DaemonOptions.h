// qvfwd's command line, parsed apart from everything it starts.
#pragma once

#include <string>
#include <vector>

namespace qvfwd {

struct DaemonOptions {
    std::string pluginPath;     // empty: the libQvFw.so installed or built beside qvfwd
    std::string controlSocket;  // the control socket
    std::string serviceSocket;  // the host service socket the plug-in calls
    std::string eventsFile;     // JSON records, one per line; empty: none
    std::string metricsFile;    // Prometheus text for node exporter; empty: none
    std::string stateDir;       // deadlines; empty: the configuration's directory
    std::string eventRate;      // packet records per rule and second; "0": no limit
    long eventRateLimit = 0;
    std::string maxClientsText;  // connections served at once on each socket
    long maxClients = 1024;
    std::string frameTimeoutText;  // seconds a frame begun may go without a byte
    long frameTimeoutSeconds = 10;
    bool showHelp = false;
};

// The usage text, for --help and for mistakes.
std::string DaemonUsage();

// The environment values that give the sockets' defaults, as qvfwctl reads them too, so
// that one exported environment points both programs at the same daemon.
struct DaemonEnvironment {
    const char* serviceSocket = nullptr;  // $QV_IPC_SOCKET
    const char* controlSocket = nullptr;  // $QV_CONTROL_SOCKET
};

// Fills `options` from the arguments after the program name; defaults come from
// `environment`, then the built-in paths. False with a sentence in `error`.
bool ParseDaemonOptions(const std::vector<std::string>& arguments,
                        const DaemonEnvironment& environment, DaemonOptions* options,
                        std::string* error);

}  // namespace qvfwd
