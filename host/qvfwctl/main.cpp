// qvfwctl: the command-line tool of qvfwd (see --help).
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "CommandTable.h"
#include "ControlClient.h"
#include "CtlArguments.h"
#include "QvControl.h"
#include "SubCommand.h"

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    qvctl::CtlArguments parsed;
    std::string error;
    if (!qvctl::ParseCtlArguments(arguments, getenv(qvctl::kControlSocketEnv), &parsed, &error)) {
        fprintf(stderr, "qvfwctl: %s (see qvfwctl --help)\n", error.c_str());
        return qvctl::kExitUsage;
    }
    if (parsed.command.empty()) {
        fputs(qvctl::ToolHelp().c_str(), parsed.help ? stdout : stderr);
        return parsed.help ? qvctl::kExitOk : qvctl::kExitUsage;
    }
    const qvctl::SubCommandEntry* entry = qvctl::FindSubCommand(parsed.command);
    if (entry == nullptr) {
        fprintf(stderr, "qvfwctl: unknown command '%s' (see qvfwctl --help)\n",
                parsed.command.c_str());
        return qvctl::kExitUsage;
    }
    if (!parsed.help && !qvctl::CheckOptionScope(parsed, &error)) {
        fprintf(stderr, "qvfwctl: %s (see qvfwctl %s --help)\n", error.c_str(),
                parsed.command.c_str());
        return qvctl::kExitUsage;
    }
    if (parsed.help) {
        fputs(qvctl::SubCommandHelp(*entry).c_str(), stdout);
        return qvctl::kExitOk;
    }
    qvctl::ControlClient client(parsed.controlSocket);
    qvctl::CtlContext context{parsed, client, stdin, stdout, stderr};
    return entry->run(context);
}
