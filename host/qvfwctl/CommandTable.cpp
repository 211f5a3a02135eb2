#include "CommandTable.h"

#include "QvControl.h"

namespace qvctl {

namespace {

const SubCommandEntry kSubCommands[] = {
    {"add", "RULE", "add a rule to the normal set; prints its rule number",
     "qvfwctl add '{\"action\":\"ACTION_DENY\",\"protocol\":{\"type\":\"PROTO_SPECIFIED\","
     "\"protocol\":\"PROTO_VALUE_TCP\"},\"dst_port\":{\"port_type\":\"PORT_LIST\",\"ports\":"
     "[{\"use_range\":false,\"port\":22}]}}'",
     RunAddRule},
    {"add-exception", "RULE", "add a rule to the exception set; prints its rule number",
     "qvfwctl add-exception '{\"action\":\"ACTION_ALLOW\",\"src_ip\":{\"ip_type\":\"IP_LIST\","
     "\"ips\":[{\"use_host_name\":false,\"ip\":167772161,\"mask_len\":32}]}}'",
     RunAddException},
    {"delete", "NUMBER", "delete a normal rule by its rule number", "qvfwctl delete 3100",
     RunDeleteRule},
    {"delete-exception", "NUMBER", "delete an exception rule by its rule number",
     "qvfwctl delete-exception 2100", RunDeleteException},
    {"modify", "NUMBER RULE", "replace the normal rule NUMBER with RULE, keeping its number",
     "qvfwctl modify 3100 '{\"action\":\"ACTION_RESET\"}'", RunModifyRule},
    {"swap", "A B", "swap the places of two normal rules", "qvfwctl swap 3100 3110", RunSwapRules},
    {"list", "", "list the normal rules with their ipfw text", "qvfwctl list --json", RunListRules},
    {"list-exceptions", "", "list the exception rules with their ipfw text",
     "qvfwctl list-exceptions", RunListExceptions},
    {"add-rules", "LIST",
     "add a list of rules ([{\"order\": N, \"rule\": {...}}]) to the normal set",
     "qvfwctl add-rules rules.json", RunAddRuleList},
    {"set-rules", "LIST", "replace the normal set with a list of rules",
     "qvfwctl set-rules - < rules.json", RunSetRuleList},
    {"set-exception-rules", "LIST", "replace the exception set with a list of rules",
     "qvfwctl set-exception-rules '[{\"order\":1,\"rule\":{\"action\":\"ACTION_ALLOW\"}}]'",
     RunSetExceptionList},
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
    {"watch", "[--count N] [--all]",
     "print events live (local time, rule, packet); --count N: the last N kept first, "
     "--all: the callback's copies too",
     "qvfwctl watch --count 10", RunWatch},
    {"events", "[--count N] [--all]", "print the kept firewall events (the last 1000 by default)",
     "qvfwctl events --count 20 --json", RunEvents},
    {"check", "RULE",
     "print the ipfw text a rule would get and whether ipfw accepts it; installs nothing",
     "qvfwctl check '{\"action\":\"ACTION_DENY\",\"keep_state\":true}'", RunCheckRule},
};

}  // namespace

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
        "Drives the firewall plug-in through qvfwd. RULE is one rule and LIST a JSON array of\n"
        "{\"order\": N, \"rule\": RULE}, both in protobuf's JSON mapping of qor.vela.FwRule\n"
        "with the schema's field and enum names; give the JSON itself, a file name, or - for\n"
        "standard input.\n"
        "\n"
        "commands:\n";
    for (const SubCommandEntry& entry : kSubCommands) {
        std::string head = std::string("  ") + entry.name + " " + entry.arguments;
        help +=
            head +
            (head.size() < 32 ? std::string(32 - head.size(), ' ') : "\n" + std::string(32, ' ')) +
            entry.summary + "\n";
    }
    help += std::string(
                "\n"
                "options:\n"
                "  --control SOCKET  qvfwd's control socket (default $QV_CONTROL_SOCKET, else ") +
            kDefaultControlSocket +
            ")\n"
            "  --json            print JSON for scripts instead of text\n"
            "  --help            this text; after a command, that command's help\n"
            "\n"
            "exit status: 0 done, 1 the plug-in or daemon refused (the code and its meaning are\n"
            "printed), 2 wrong arguments or bad JSON, 3 qvfwd not reachable.\n"
            "\n"
            "example: qvfwctl status\n";
    return help;
}

std::string SubCommandHelp(const SubCommandEntry& entry) {
    return std::string("usage: qvfwctl [--control SOCKET] [--json] ") + entry.name + " " +
           entry.arguments + "\n\n" + entry.summary + "\n\nexample: " + entry.example + "\n";
}

}  // namespace qvctl
