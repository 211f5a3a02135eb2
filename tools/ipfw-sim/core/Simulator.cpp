#include "ipfwsim/Simulator.h"

#include "ipfwsim/AddCommand.h"
#include "ipfwsim/CounterCommand.h"
#include "ipfwsim/DeleteCommand.h"
#include "ipfwsim/KeywordMatch.h"
#include "ipfwsim/ListCommand.h"
#include "ipfwsim/PacketCommand.h"
#include "ipfwsim/SetCommand.h"

namespace ipfwsim {
namespace {

constexpr const char* kUsage =
    "usage: ipfw [options]\n"
    "do \"ipfw -h\" or \"ipfw help\" for details\n";

bool isOneOf(const std::string& word, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (word == name) {
            return true;
        }
    }
    return false;
}

using Words = std::vector<std::string>;
using Handler = int (*)(const CommandContext&, const Words&);

struct Verb {
    const char* keyword;
    Handler handler;
};

int runAdd(const CommandContext& c, const Words& rest) {
    return AddCommand(c).run(rest);
}
int runDelete(const CommandContext& c, const Words& rest) {
    return DeleteCommand(c).runDelete(rest);
}
int runFlush(const CommandContext& c, const Words&) {
    return DeleteCommand(c).runFlush();
}
int runZero(const CommandContext& c, const Words& rest) {
    return CounterCommand(c, false).run(rest);
}
int runResetlog(const CommandContext& c, const Words& rest) {
    return CounterCommand(c, true).run(rest);
}
int runList(const CommandContext& c, const Words& rest) {
    return ListCommand(c, false).run(rest);
}
int runShow(const CommandContext& c, const Words& rest) {
    return ListCommand(c, true).run(rest);
}
int runSet(const CommandContext& c, const Words& rest) {
    return SetCommand(c).runSet(rest);
}
int runEnable(const CommandContext& c, const Words& rest) {
    return SetCommand(c).runSwitch(rest, true);
}
int runDisable(const CommandContext& c, const Words& rest) {
    return SetCommand(c).runSwitch(rest, false);
}
int runHelp(const CommandContext& c, const Words&) {
    c.console.out(Simulator::helpText());
    return kExitOk;
}

// In the real command's order of tests, which decides what an abbreviation means.
const Verb kVerbs[] = {{"add", runAdd},       {"delete", runDelete},     {"flush", runFlush},
                       {"zero", runZero},     {"resetlog", runResetlog}, {"print", runList},
                       {"list", runList},     {"show", runShow},         {"set", runSet},
                       {"enable", runEnable}, {"disable", runDisable},   {"help", runHelp}};

int dispatch(const CommandContext& context, const std::vector<std::string>& words) {
    const std::string& verb = words[0];
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    if (verb == "packet") {
        return PacketCommand(context).run(rest);
    }
    for (const Verb& candidate : kVerbs) {
        Diagnostics diagnostics;
        if (matchesAbbreviated(verb, candidate.keyword, diagnostics)) {
            context.warnAll(diagnostics);
            return candidate.handler(context, rest);
        }
    }
    if (isOneOf(verb, {"pipe", "queue", "nat", "table", "sched", "internal", "nat64lsn", "nptv6",
                       "tables", "iflist", "talist", "sysctl"})) {
        return context.fail(Status::notModelled(verb));
    }
    return context.fail(Status::failure(kExitUsage, "bad command `" + verb + "'"));
}

}  // namespace

Simulator::Simulator(Environment& env, StateStore& store, Console& console)
    : env_(env), store_(store), console_(console) {}

int Simulator::run(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument == "--help") {
            console_.out(helpText());
            console_.flushOut();
            return kExitOk;
        }
    }
    CommandLine line;
    Status status = CommandLine::parse(arguments, line);
    CommandContext context{env_, store_, console_, line.options};
    int result = kExitOk;
    if (!status.ok()) {
        result = context.fail(status);
        if (status.code == kExitUsage && status.message.rfind("illegal", 0) == 0) {
            console_.err(kUsage);
        }
    } else if (line.options.help) {
        console_.out(helpText());
    } else if (line.words.empty()) {
        console_.err(kUsage);
        result = kExitUsage;
    } else {
        result = dispatch(context, line.words);
    }
    console_.flushOut();
    return result;
}

bool Simulator::changesState(const std::vector<std::string>& arguments) {
    CommandLine line;
    if (!CommandLine::parse(arguments, line).ok() || line.words.empty()) {
        return false;
    }
    Diagnostics ignored;
    const std::string& verb = line.words[0];
    if (matchesAbbreviated(verb, "print", ignored) || matchesAbbreviated(verb, "list", ignored) ||
        matchesAbbreviated(verb, "show", ignored) || matchesAbbreviated(verb, "help", ignored)) {
        return false;
    }
    return !(matchesAbbreviated(verb, "set", ignored) && line.words.size() > 1 &&
             matchesAbbreviated(line.words[1], "show", ignored));
}

std::string Simulator::helpText() {
    return "ipfw syntax summary (a simulator of FreeBSD's ipfw(8)):\n"
           "ipfw [-adefhnqS] add [N] [set S] [prob P] ACTION [log [logamount L]] BODY\n"
           "ipfw [-adeS] {list|show} [N|N-M ...]\n"
           "ipfw [-q] delete [set] N|N-M ...\n"
           "ipfw [-fq] flush\n"
           "ipfw [-q] {zero|resetlog} [N ...]\n"
           "ipfw set {show | enable S ... | disable S ...}\n"
           "ipfw {enable|disable} verbose\n"
           "ipfw packet PROTO SRC[:PORT] DST[:PORT] [in|out] [via IFNAME] [ifaddr ADDR]\n"
           "     [tcpflags F,..] [tcpoptions O,..] [ipoptions O,..] [iptos T,..]\n"
           "     [icmptype T[.C]] [mac DST SRC] [len BYTES]\n"
           "     runs one packet through the enabled rules, prints \"RULE ACTION\"\n"
           "     (\"(state)\" added when a dynamic entry decided), updates counters and\n"
           "     appends the kernel's log lines where syslog.conf routes \"ipfw\".\n"
           "\n"
           "The same binary run as sysctl or killall (links beside it):\n"
           "sysctl [-eNnqw] net.inet.ip.fw.verbose[=N]\n"
           "     reads or sets the switch of \"ipfw enable|disable verbose\".\n"
           "killall -HUP syslogd\n"
           "     succeeds and does nothing: syslog.conf is read for every packet.\n"
           "\n"
           "ACTION: allow | deny | reject | reset | unreach CODE | count | skipto N |\n"
           "        check-state\n"
           "BODY:   [PROTO from SRC [PORTS] to DST [PORTS]] OPTION ...\n"
           "OPTION: [not] proto P | src-ip LIST | dst-ip LIST | src-port LIST |\n"
           "        dst-port LIST | icmptypes T,.. | tcpflags F,.. | setup | established |\n"
           "        tcpoptions O,.. | ipoptions O,.. | iptos T,.. | mac DST SRC | in | out |\n"
           "        via IF | recv IF | xmit IF | keep-state\n"
           "\n"
           "Environment:\n"
           "  IPFW_SIM_STATE        rule state file (default: the one this ipfw was built\n"
           "                        with; /var/db/ipfw-sim/rules in a development build),\n"
           "                        locked through STATE.lock for each invocation\n"
           "  IPFW_SIM_LOCK_SECONDS how long to wait for that lock before giving up\n"
           "                        (default 10; 0: do not wait)\n"
           "  IPFW_SIM_SYSLOG_CONF  syslog configuration (default /etc/syslog.conf)\n"
           "  IPFW_SIM_NOW          clock in epoch seconds (default: system clock)\n"
           "  IPFW_SIM_SEED         seed of the \"prob\" draws (default: random)\n"
           "  IPFW_SIM_ME           comma list of the addresses \"me\" matches\n"
           "                        (default: this machine's IPv4 addresses)\n"
           "  IPFW_SIM_HOSTS        hosts(5) file used instead of the system resolver\n"
           "  IPFW_SIM_HOSTNAME     host name in log lines (default: this machine's)\n"
           "Exit codes: 0 ok, 64 usage, 65 bad data or corrupt state, 68 unknown host,\n"
           "  69 refused or not found, 73 state cannot be created, 74 state I/O error,\n"
           "  75 the lock's wait gave up, 77 state or lock of another user.\n";
}

}  // namespace ipfwsim
