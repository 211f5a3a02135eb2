#include "BashCompletion.h"

#include "CommandTable.h"
#include "RuleKeywords.h"
#include "RuleReader.h"
#include "SubCommand.h"

namespace qvctl {

namespace {

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

// The words that may follow a rule word that takes a value, as bash case branches.
std::string ValueCases() {
    using namespace qor::vela;
    const struct {
        const char* after;
        std::string words;
    } values[] = {
        {"proto", "all " + KeywordList<ProtoValueEnum>(" ")},
        {"not", "proto"},
        {"src-ip|dst-ip", "me any"},
        {"src-port|dst-port|mac", "any"},
        {"tcpflags", KeywordList<TcpFlagEnum>(" ")},
        {"tcpoptions", KeywordList<TcpOptionEnum>(" ")},
        {"ipoptions", KeywordList<IpOptionEnum>(" ")},
        {"iptos", KeywordList<IpTosOptEnum>(" ")},
        {"logamount", "0"},
        {"icmptypes", "0 3 4 5 8 9 10 11 12 13 14 15 16 17 18"},
    };
    std::string cases;
    for (const auto& value : values) {
        cases += std::string("    ") + value.after + ") COMPREPLY=($(compgen -W \"" + value.words +
                 "\" -- \"$cur\")); return ;;\n";
    }
    // Interface names are the machine's own.
    cases +=
        "    via) COMPREPLY=($(compgen -W \"$(ls /sys/class/net 2>/dev/null)\" -- \"$cur\")); "
        "return ;;\n";
    return cases;
}

}  // namespace

std::string BashCompletionScript() {
    std::vector<std::string> commands;
    std::vector<std::string> ruleCommands;
    for (const SubCommandEntry& entry : SubCommands()) {
        commands.push_back(entry.name);
        const std::string arguments = entry.arguments;
        if (arguments.find("RULE") != std::string::npos ||
            arguments.find("LIST") != std::string::npos) {
            ruleCommands.push_back(entry.name);
        }
    }
    std::vector<std::string> options;
    std::vector<std::string> valueOptions;
    for (const ToolOption& option : ToolOptions()) {
        options.push_back(option.name);
        if (*option.value != '\0') {
            valueOptions.push_back(option.name);
        }
    }
    std::string valuePattern;
    for (const std::string& option : valueOptions) {
        valuePattern += (valuePattern.empty() ? "" : " | ") + option;
    }
    return "# bash completion for qvfwctl, written by `qvfwctl completion bash`\n"
           "_qvfwctl() {\n"
           "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command= i\n"
           "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "    case ${COMP_WORDS[i]} in\n"
           "    " +
           valuePattern +
           ") ((i++)) ;;\n"
           "    -*) ;;\n"
           "    *) command=${COMP_WORDS[i]}; break ;;\n"
           "    esac\n"
           "  done\n"
           "  case $prev in\n"
           "    --control) COMPREPLY=($(compgen -f -- \"$cur\")); return ;;\n"
           "    " +
           valuePattern +
           ") return ;;\n"
           "  esac\n"
           "  if [[ $cur == -* ]]; then\n"
           "    COMPREPLY=($(compgen -W \"" +
           Joined(options) +
           "\" -- \"$cur\")); return\n"
           "  fi\n"
           "  if [[ -z $command ]]; then\n"
           "    COMPREPLY=($(compgen -W \"" +
           Joined(commands) +
           "\" -- \"$cur\")); return\n"
           "  fi\n"
           "  case \" " +
           Joined(ruleCommands) +
           " \" in\n"
           "  *\" $command \"*) ;;\n"
           "  *) [[ $prev == $command ]] && case $command in\n"
           "      notify) COMPREPLY=($(compgen -W \"on off\" -- \"$cur\")) ;;\n"
           "      completion) COMPREPLY=($(compgen -W \"bash\" -- \"$cur\")) ;;\n"
           "    esac\n"
           "    return ;;\n"
           "  esac\n"
           "  case $prev in\n" +
           ValueCases() +
           "  esac\n"
           "  COMPREPLY=($(compgen -W \"prob " +
           Joined(ActionWords()) + " " + Joined(OptionWords()) +
           "\" -- \"$cur\"))\n"
           "}\n"
           "complete -F _qvfwctl qvfwctl\n";
}

int RunCompletion(CtlContext& context) {
    const std::vector<std::string>& arguments = context.arguments.positional;
    if (arguments.size() != 1 || arguments[0] != "bash") {
        return Fail(context, kExitUsage, "completion knows one shell: qvfwctl completion bash");
    }
    fputs(BashCompletionScript().c_str(), context.out);
    return kExitOk;
}

}  // namespace qvctl
