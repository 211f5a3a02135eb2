// The sub-commands of qvfwctl, their help and their examples, in one explicit table.
#pragma once

#include <string>
#include <vector>

#include "SubCommand.h"

namespace qvctl {

struct SubCommandEntry {
    const char* name;
    const char* arguments;  // synopsis of what follows the name
    const char* summary;
    const char* example;
    int (*run)(CtlContext& context);
};

// The options of every sub-command.
struct ToolOption {
    const char* name;
    const char* value;  // what follows it, or "" for a switch
    const char* summary;
};

std::vector<SubCommandEntry> SubCommands();
std::vector<ToolOption> ToolOptions();

// The entry named `name`, or null.
const SubCommandEntry* FindSubCommand(const std::string& name);

std::string ToolHelp();
std::string SubCommandHelp(const SubCommandEntry& entry);

}  // namespace qvctl
