// qvfwd: the daemon that hosts the firewall plug-in (see Daemon.h and --help).
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "Daemon.h"
#include "DaemonOptions.h"
#include "QvControl.h"

int main(int argc, char** argv) {
    // What the daemon and its plug-in create (the configuration's backup, ipfw's state,
    // the logs, the sockets) is root's alone, whatever umask it was started with.
    umask(077);
    std::vector<std::string> arguments(argv + 1, argv + argc);
    qvfwd::DaemonOptions options;
    std::string error;
    qvfwd::DaemonEnvironment environment;
    environment.serviceSocket = getenv("QV_IPC_SOCKET");
    environment.controlSocket = getenv(qvctl::kControlSocketEnv);
    if (!qvfwd::ParseDaemonOptions(arguments, environment, &options, &error)) {
        fprintf(stderr, "qvfwd: %s\n\n%s", error.c_str(), qvfwd::DaemonUsage().c_str());
        return 2;
    }
    if (options.showHelp) {
        fputs(qvfwd::DaemonUsage().c_str(), stdout);
        return 0;
    }
    qvfwd::Daemon daemon(options);
    return daemon.Run();
}
