#include "CommandTable.h"

#include <iterator>

#include "QvControl.h"

namespace qvctl {

namespace {

constexpr size_t kHelpColumn = 32;

// `head` padded to the column where the summaries start, or on a line of its own.
std::string Column(const std::string& head) {
    return head + (head.size() < kHelpColumn ? std::string(kHelpColumn - head.size(), ' ')
                                             : "\n" + std::string(kHelpColumn, ' '));
}

const SubCommandEntry kSubCommands[] = {
    {"add", "[--for DURATION] RULE",
     "add a rule to the normal set; prints its rule number; --for: qvfwd deletes it then",
     "qvfwctl add --for 2h deny proto tcp src-ip 10.1.2.0/24 dst-port 22,8000-8080 in", RunAddRule},
    {"add-exception", "[--for DURATION] RULE",
     "add a rule to the exception set; prints its rule number",
     "qvfwctl add-exception allow src-ip 10.0.0.1,fileserver keep-state", RunAddException},
    {"delete", "NUMBER", "delete a normal rule by its rule number", "qvfwctl delete 3100",
     RunDeleteRule},
    {"delete-exception", "NUMBER", "delete an exception rule by its rule number",
     "qvfwctl delete-exception 2100", RunDeleteException},
    {"modify", "NUMBER RULE", "replace the normal rule NUMBER with RULE, keeping its number",
     "qvfwctl modify 3100 reset proto tcp dst-port 22", RunModifyRule},
    {"swap", "A B", "swap the places of two normal rules", "qvfwctl swap 3100 3110", RunSwapRules},
    {"list", "", "list the normal rules with their counters, time left and rule text",
     "qvfwctl list --json", RunListRules},
    {"list-exceptions", "", "list the exception rules with their counters and rule text",
     "qvfwctl list-exceptions", RunListExceptions},
    {"add-rules", "[--for DURATION] LIST", "add a list of rules to the normal set",
     "qvfwctl add-rules --for 15m 'deny proto tcp dst-port 22' 'allow proto udp'", RunAddRuleList},
    {"set-rules", "LIST", "replace the normal set with a list of rules",
     "qvfwctl set-rules - < rules.txt", RunSetRuleList},
    {"set-exception-rules", "LIST", "replace the exception set with a list of rules",
     "qvfwctl set-exception-rules '[{\"order\":1,\"rule\":{\"action\":\"ACTION_ALLOW\"}}]'",
     RunSetExceptionList},
    {"apply", "[--exceptions] [--confirm DURATION] [--dry-run] LIST",
     "replace the normal (or exception) list; --confirm: put it back unless confirmed in time; "
     "--dry-run: print the rules that would go (-) and come (+)",
     "qvfwctl apply --confirm 5m - < rules.txt", RunApply},
    {"confirm", "", "keep the list of the last apply --confirm", "qvfwctl confirm", RunConfirm},
    {"flush", "", "delete every rule of both sets (and everything else in ipfw)", "qvfwctl flush",
     RunFlushAll},
    {"flush-normal", "", "delete every normal rule", "qvfwctl flush-normal", RunFlushNormal},
    {"flush-exceptions", "", "delete every exception rule", "qvfwctl flush-exceptions",
     RunFlushExceptions},
    {"enable", "", "enable both rule sets", "qvfwctl enable", RunEnable},
    {"disable", "", "disable both rule sets", "qvfwctl disable", RunDisable},
    {"status", "",
     "firewall and notification switches, rule counts, sets, log paths, daemon uptime, events",
     "qvfwctl status --json", RunStatus},
    {"notify", "on|off", "turn the plug-in's event notification on or off", "qvfwctl notify off",
     RunNotify},
    {"debug-level", "N", "set the plug-in's debug-log level (0 to 7)", "qvfwctl debug-level 7",
     RunDebugLevel},
    {"metrics", "", "print qvfwd's metrics in Prometheus's text format", "qvfwctl metrics",
     RunMetrics},
    {"watch", "[--count N] [--all]",
     "print events live (local time, rule, packet); --count N: the last N kept first, "
     "--all: the callback's copies too; --json: the events file's records",
     "qvfwctl watch --count 10", RunWatch},
    {"events", "[--count N] [--all]", "print the kept firewall events (the last 1000 by default)",
     "qvfwctl events --count 20 --json", RunEvents},
    {"check", "RULE",
     "print the ipfw text a rule would get and whether ipfw accepts it; installs nothing",
     "qvfwctl check unreach 3 proto udp dst-port 53 via en0", RunCheckRule},
    {"completion", "bash", "print the bash completion of qvfwctl",
     "source <(qvfwctl completion bash)", RunCompletion},
};

const ToolOption kToolOptions[] = {
    {"--control", "SOCKET",
     "qvfwd's control socket (default $QV_CONTROL_SOCKET, else "
     "/var/run/Quorvane/qvfw.sock)"},
    {"--json", "", "print JSON for scripts instead of text"},
    {"--count", "N", "watch, events: how many kept events"},
    {"--all", "", "watch, events: the notification callback's copies too"},
    {"--for", "DURATION", "add, add-exception, add-rules: delete the rules after 90s, 15m, 2h, 1d"},
    {"--exceptions", "", "apply: the exception list"},
    {"--confirm", "DURATION", "apply: put the list back unless qvfwctl confirm comes in time"},
    {"--dry-run", "", "apply: print what would change, change nothing"},
    {"--help", "", "this text; after a command, that command's help"},
};

}  // namespace

std::vector<SubCommandEntry> SubCommands() {
    return std::vector<SubCommandEntry>(std::begin(kSubCommands), std::end(kSubCommands));
}

std::vector<ToolOption> ToolOptions() {
    return std::vector<ToolOption>(std::begin(kToolOptions), std::end(kToolOptions));
}

const SubCommandEntry* FindSubCommand(const std::string& name) {
    for (const SubCommandEntry& entry : kSubCommands) {
        if (name == entry.name) {
            return &entry;
        }
    }
    return nullptr;
}

std::string ToolHelp() {
    std::string help =
        "usage: qvfwctl [--control SOCKET] [--json] COMMAND [ARGUMENTS]\n"
        "\n"
        "Drives the firewall plug-in through qvfwd. RULE is one rule in the words of its ipfw\n"
        "text, as separate arguments or one quoted argument:\n"
        "  [prob P] ACTION [log [logamount 0]] OPTION...\n"
        "  ACTION  allow | deny | reset | unreach CODE | check-state (alone)\n"
        "  OPTION  [not] proto all|ip|icmp|tcp|udp   src-ip|dst-ip me|any|ADDR[/MASK],HOST,...\n"
        "          src-port|dst-port any|PORT,FROM-TO,...   icmptypes T,...\n"
        "          tcpflags|tcpoptions|ipoptions|iptos [!]NAME,...   mac DST SRC\n"
        "          in | out   via IFACE|ADDR   keep-state\n"
        "A RULE may also be protobuf JSON of qor.vela.FwRule, a file name, or - for standard\n"
        "input. LIST is one rule per argument or per line of a file (or -), or a JSON array of\n"
        "{\"order\": N, \"rule\": {...}}.\n"
        "\n"
        "commands:\n";
    for (const SubCommandEntry& entry : kSubCommands) {
        help +=
            Column(std::string("  ") + entry.name + " " + entry.arguments) + entry.summary + "\n";
    }
    help += "\noptions:\n";
    for (const ToolOption& option : kToolOptions) {
        help +=
            Column(std::string("  ") + option.name + " " + option.value) + option.summary + "\n";
    }
    help +=
        "\n"
        "exit status: 0 done, 1 the plug-in or daemon refused (the code and its meaning are\n"
        "printed), 2 wrong arguments, a rule word that cannot be read or bad JSON, 3 qvfwd not\n"
        "reachable.\n"
        "\n"
        "example: qvfwctl add deny proto tcp dst-port 22 in\n";
    return help;
}

std::string SubCommandHelp(const SubCommandEntry& entry) {
    return std::string("usage: qvfwctl [--control SOCKET] [--json] ") + entry.name + " " +
           entry.arguments + "\n\n" + entry.summary + "\n\nexample: " + entry.example + "\n";
}

}  // namespace qvctl
