#include "DaemonOptions.h"

#include "QvControl.h"

namespace qvfwd {

namespace {

constexpr const char* kDefaultServiceSocket = "/var/run/Quorvane/QvrnCore.sock";

struct ValueOption {
    const char* name;
    std::string DaemonOptions::*target;
};

constexpr ValueOption kValueOptions[] = {
    {"--plugin", &DaemonOptions::pluginPath},
    {"--control", &DaemonOptions::controlSocket},
    {"--service", &DaemonOptions::serviceSocket},
    {"--events-file", &DaemonOptions::eventsFile},
    {"--metrics-file", &DaemonOptions::metricsFile},
    {"--state-dir", &DaemonOptions::stateDir},
    {"--event-rate", &DaemonOptions::eventRate},
    {"--max-clients", &DaemonOptions::maxClientsText},
    {"--frame-timeout", &DaemonOptions::frameTimeoutText},
};

// A whole number from `least` to `most` in `text` (left as it is when empty).
bool ReadCount(const char* name, const std::string& text, long least, long most, const char* unit,
               long* value, std::string* error) {
    if (text.empty()) {
        return true;
    }
    if (text.size() > 7 || text.find_first_not_of("0123456789") != std::string::npos ||
        std::stol(text) < least || std::stol(text) > most) {
        *error = std::string(name) + " needs a number of " + unit + " from " +
                 std::to_string(least) + " to " + std::to_string(most) + ", not '" + text + "'";
        return false;
    }
    *value = std::stol(text);
    return true;
}

// The largest --event-rate: beyond it a limit would limit nothing.
constexpr long kMostEventRate = 1000000;
// A thread per client: beyond this many a host runs out of threads before qvfwd does.
constexpr long kMostClients = 65536;
constexpr long kMostFrameTimeout = 3600;

bool ReadNumbers(DaemonOptions* options, std::string* error) {
    return ReadCount("--event-rate", options->eventRate, 0, kMostEventRate, "records",
                     &options->eventRateLimit, error) &&
           ReadCount("--max-clients", options->maxClientsText, 1, kMostClients, "clients",
                     &options->maxClients, error) &&
           ReadCount("--frame-timeout", options->frameTimeoutText, 1, kMostFrameTimeout, "seconds",
                     &options->frameTimeoutSeconds, error);
}

// "--name value" or "--name=value"; true when `argument` is this option.
bool TakeValue(const ValueOption& option, const std::vector<std::string>& arguments, size_t* i,
               DaemonOptions* options, std::string* error) {
    const std::string& argument = arguments[*i];
    const std::string name = option.name;
    if (argument.compare(0, name.size() + 1, name + "=") == 0) {
        options->*option.target = argument.substr(name.size() + 1);
        return true;
    }
    if (argument != name) {
        return false;
    }
    if (*i + 1 >= arguments.size()) {
        *error = name + " needs a value";
        return true;
    }
    options->*option.target = arguments[++*i];
    return true;
}

}  // namespace

std::string DaemonUsage() {
    return "usage: qvfwd [--plugin PATH] [--control SOCKET] [--service SOCKET]\n"
           "             [--events-file PATH] [--metrics-file PATH] [--state-dir DIR]\n"
           "             [--event-rate N] [--max-clients N] [--frame-timeout SECONDS]\n"
           "             [--foreground]\n"
           "\n"
           "Loads the firewall plug-in and serves it to qvfwctl on the control socket, and\n"
           "plays the host service that the plug-in reports its events to. Runs in the\n"
           "foreground (systemd and launchd supervise it) until SIGTERM or SIGINT.\n"
           "\n"
           "  --plugin PATH     the plug-in (default: libQvFw.so in the library directory\n"
           "                    beside qvfwd's own)\n"
           "  --control SOCKET  control socket (default $QV_CONTROL_SOCKET, else\n"
           "                    " +
           std::string(qvctl::kDefaultControlSocket) +
           ")\n"
           "  --service SOCKET  host service socket (default $QV_IPC_SOCKET, else\n"
           "                    " +
           kDefaultServiceSocket +
           ")\n"
           "  --events-file PATH  append every event as a JSON record, one per line (packets,\n"
           "                    changes, expiries, suppressed counts); reopened on SIGHUP\n"
           "                    and when the file was moved or removed\n"
           "  --metrics-file PATH  keep the metrics there in Prometheus's text format for\n"
           "                    node exporter's textfile collector (replaced whole)\n"
           "  --state-dir DIR   where the deadlines of expiring rules and unconfirmed\n"
           "                    changes are kept (default: the configuration's directory)\n"
           "  --event-rate N    at most N packet records per rule and second for watchers\n"
           "                    and the events file; the rest are counted (default 0: all)\n"
           "  --max-clients N   serve at most N clients at once on each socket; one more\n"
           "                    is answered 16 (busy) and closed (default 1024)\n"
           "  --frame-timeout SECONDS  close a connection whose frame, once begun, brings no\n"
           "                    byte for that long (default 10); between frames a client\n"
           "                    may wait as long as it likes\n"
           "  --foreground      stay in the foreground (the default and only mode)\n"
           "\n"
           "The plug-in reads QvFw.conf.plist from $QV_CONF_DIR (default\n"
           "/etc/Quorvane/QvrnCore) and refuses to start without one.\n"
           "\n"
           "example: qvfwd --control /tmp/qv/qvfw.sock --service /tmp/qv/host.sock \\\n"
           "           --events-file /var/log/qvfwd/events.jsonl\n";
}

bool ParseDaemonOptions(const std::vector<std::string>& arguments,
                        const DaemonEnvironment& environment, DaemonOptions* options,
                        std::string* error) {
    auto orDefault = [](const char* value, const char* fallback) {
        return value != nullptr && *value != '\0' ? value : fallback;
    };
    options->controlSocket = orDefault(environment.controlSocket, qvctl::kDefaultControlSocket);
    options->serviceSocket = orDefault(environment.serviceSocket, kDefaultServiceSocket);
    for (size_t i = 0; i < arguments.size() && error->empty(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            options->showHelp = true;
            continue;
        }
        if (argument == "--foreground" || argument == "-f") {
            continue;
        }
        bool known = false;
        for (const ValueOption& option : kValueOptions) {
            known = known || TakeValue(option, arguments, &i, options, error);
        }
        if (!known) {
            *error = "unknown option " + argument;
        }
    }
    return error->empty() && ReadNumbers(options, error);
}

}  // namespace qvfwd
