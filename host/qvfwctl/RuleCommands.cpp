// The sub-commands that add, change, list, apply and check rules.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <time.h>

#include <sstream>

#include "AddressWords.h"
#include "CtlArguments.h"
#include "DryRunDiff.h"
#include "DurationWords.h"
#include "InputText.h"
#include "JsonWriter.h"
#include "MessageJson.h"
#include "QvControl.h"
#include "QvControlErrors.h"
#include "QvControlStatus.h"
#include "QvFirewall.h"
#include "QvFrame.h"
#include "RuleArguments.h"
#include "RuleTable.h"
#include "SubCommand.h"
#include "VelaCommonMsg.pb.h"

namespace qvctl {

namespace {

using qor::vela::FwRule;
using qor::vela::FwRuleInfoList;
using qor::vela::FwRuleList;

enum class RuleSet { kNormal, kException };

const char* SetName(RuleSet set) {
    return set == RuleSet::kNormal ? "normal" : "exception";
}

bool NeedArguments(CtlContext& context, size_t count, int* status) {
    if (context.arguments.positional.size() == count) {
        return true;
    }
    *status = Fail(context, kExitUsage,
                   context.arguments.command + " takes " + std::to_string(count) +
                       " argument(s); see qvfwctl " + context.arguments.command + " --help");
    return false;
}

bool ReadNumber(CtlContext& context, size_t index, unsigned int* number, int* status) {
    const std::string& text = context.arguments.positional[index];
    if (!ParseUnsigned(text, number)) {
        *status = Fail(context, kExitUsage, "'" + text + "' is not a rule number");
        return false;
    }
    return true;
}

// The plug-in's `command`, or with --for the daemon's wrapper that gives its rules a deadline.
int CallAdding(CtlContext& context, uint32_t command, const std::string& request,
               std::string* reply, int32_t* code) {
    if (context.arguments.forSeconds <= 0) {
        return CallDaemon(context, command, request, code, reply) ? kExitOk : kExitUnreachable;
    }
    std::string wrapped(8, '\0');
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&wrapped[0]);
    ipc::StoreLittleEndian32(command, bytes);
    ipc::StoreLittleEndian32(static_cast<uint32_t>(context.arguments.forSeconds), bytes + 4);
    return CallDaemon(context, kAddExpiring, wrapped + request, code, reply) ? kExitOk
                                                                             : kExitUnreachable;
}

std::string ExpiryWords(CtlContext& context) {
    return context.arguments.forSeconds > 0
               ? ", expires in " + FormatTimeLeft(context.arguments.forSeconds)
               : "";
}

int AddRuleTo(CtlContext& context, uint32_t command, RuleSet set) {
    int status = kExitOk;
    FwRule rule;
    if (!ReadRuleArguments(context, 0, &rule, &status)) {
        return status;
    }
    std::string reply;
    int32_t code = 0;
    status = CallAdding(context, command, rule.SerializeAsString(), &reply, &code);
    status = status == kExitOk ? CodeStatus(context, code) : status;
    if (status != kExitOk) {
        return status;
    }
    qor::vela::UIntType number;
    if (!ReadReply(context, reply, "add", &number, &status)) {
        return status;
    }
    if (!number.has_value()) {
        return Fail(context, kExitFailed, "qvfwd's reply to add names no rule number");
    }
    if (context.arguments.json) {
        JsonObject added;
        added.Number("rule_index", number.value()).Text("set", SetName(set));
        if (context.arguments.forSeconds > 0) {
            added.Number("expires_in_seconds", context.arguments.forSeconds);
        }
        fprintf(context.out, "%s\n", added.str().c_str());
    } else {
        fprintf(context.out, "added rule %u to the %s set%s\n", number.value(), SetName(set),
                ExpiryWords(context).c_str());
    }
    return kExitOk;
}

int DeleteRuleFrom(CtlContext& context, uint32_t command) {
    int status = kExitOk;
    unsigned int number = 0;
    if (!NeedArguments(context, 1, &status) || !ReadNumber(context, 0, &number, &status)) {
        return status;
    }
    qor::vela::UIntType request;
    request.set_value(number);
    std::string reply;
    status = CallForStatus(context, command, request.SerializeAsString(), &reply);
    return status == kExitOk ? PrintDone(context) : status;
}

int PrintPairs(CtlContext& context, const std::string& reply) {
    qor::vela::UIntPairArray pairs;
    int status = kExitOk;
    if (!ReadReply(context, reply, "the rule list", &pairs, &status)) {
        return status;
    }
    JsonArray array;
    for (const qor::vela::UIntPair& pair : pairs.values()) {
        if (context.arguments.json) {
            array.Raw(JsonObject()
                          .Number("order", pair.first())
                          .Number("rule_index", pair.second())
                          .str());
        } else {
            fprintf(context.out, "order %u -> rule %u\n", pair.first(), pair.second());
        }
    }
    if (context.arguments.json) {
        fprintf(context.out, "%s\n", array.str().c_str());
    }
    return kExitOk;
}

int SendRuleList(CtlContext& context, uint32_t command) {
    int status = kExitOk;
    FwRuleInfoList list;
    if (!ReadRuleListArguments(context, &list, &status)) {
        return status;
    }
    std::string reply;
    int32_t code = 0;
    if (CallAdding(context, command, list.SerializeAsString(), &reply, &code) != kExitOk) {
        return kExitUnreachable;
    }
    // The numbers of the rules that went in are worth showing even when one failed.
    status = PrintPairs(context, reply);
    if (code != 0) {
        return Fail(context, kExitFailed, DescribeCode(code));
    }
    return status;
}

int SetNumberOf(CtlContext& context, RuleSet set) {
    int32_t code = 0;
    std::string reply;
    if (!context.client.Call(kStatus, "", &code, &reply) || code != 0) {
        return 0;
    }
    DaemonStatus status = ParseStatus(reply);
    return static_cast<int>(set == RuleSet::kNormal ? status.normalSet : status.exceptionSet);
}

std::string IpfwTextOf(CtlContext& context, const FwRule& rule) {
    int32_t code = 0;
    std::string text;
    if (!context.client.Call(kRuleText, rule.SerializeAsString(), &code, &text)) {
        return "(" + context.client.error() + ")";
    }
    return code == 0 ? text : "(" + DescribeCode(code) + ")";
}

// ipfw's counters by rule number; none when ipfw cannot be asked, and the list goes on.
std::optional<std::map<uint32_t, RuleCounters>> CountersOf(CtlContext& context) {
    int32_t code = 0;
    std::string listing;
    if (!context.client.Call(kRuleCounters, "", &code, &listing) || code != 0) {
        return std::nullopt;
    }
    return ParseIpfwShow(listing);
}

// When each rule of `set` expires (seconds since the epoch), by number.
std::map<uint32_t, int64_t> DeadlinesOf(CtlContext& context, RuleSet set) {
    int32_t code = 0;
    std::string text;
    std::map<uint32_t, int64_t> deadlines;
    if (!context.client.Call(kDeadlines, "", &code, &text) || code != 0) {
        return deadlines;
    }
    std::istringstream lines(text);
    std::string list;
    long long number = 0;
    long long when = 0;
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        if (words >> list >> number >> when && list == SetName(set)) {
            deadlines[static_cast<uint32_t>(number)] = when;
        }
    }
    return deadlines;
}

int ListSet(CtlContext& context, uint32_t command, RuleSet set) {
    int status = kExitOk;
    if (!NeedArguments(context, 0, &status)) {
        return status;
    }
    std::string reply;
    status = CallForStatus(context, command, "", &reply);
    if (status != kExitOk) {
        return status;
    }
    FwRuleList rules;
    if (!ReadReply(context, reply, "the list", &rules, &status)) {
        return status;
    }
    const auto counters = CountersOf(context);
    const std::map<uint32_t, int64_t> deadlines = DeadlinesOf(context, set);
    const int64_t now = static_cast<int64_t>(time(nullptr));
    std::vector<ListedRule> listed;
    for (const FwRule& rule : rules.rules()) {
        listed.push_back(ListedRule{rule, IpfwTextOf(context, rule), std::nullopt, std::nullopt});
        auto deadline = deadlines.find(rule.rule_index());
        if (deadline != deadlines.end()) {
            listed.back().secondsLeft = std::max<int64_t>(0, deadline->second - now);
        }
        // A stored rule that ipfw does not hold has no counters to show.
        auto found = counters ? counters->find(rule.rule_index()) : decltype(counters->end()){};
        if (counters && found != counters->end()) {
            listed.back().counters = found->second;
        }
    }
    // In ipfw's order, which is the order the rules are matched in.
    std::stable_sort(listed.begin(), listed.end(), [](const ListedRule& a, const ListedRule& b) {
        return a.rule.rule_index() < b.rule.rule_index();
    });
    int setNumber = SetNumberOf(context, set);
    std::string text = context.arguments.json ? RuleTableJson(setNumber, listed) + "\n"
                                              : FormatRuleTable(setNumber, listed);
    fputs(text.c_str(), context.out);
    return kExitOk;
}

// The rule texts of a held list in ipfw's order, and of a wanted one in its own order.
std::vector<std::string> TextsOf(CtlContext& context, const FwRuleList& held) {
    std::vector<const FwRule*> rules;
    for (const FwRule& rule : held.rules()) {
        rules.push_back(&rule);
    }
    std::stable_sort(rules.begin(), rules.end(), [](const FwRule* a, const FwRule* b) {
        return a->rule_index() < b->rule_index();
    });
    std::vector<std::string> texts;
    for (const FwRule* rule : rules) {
        texts.push_back(WithDottedAddresses(IpfwTextOf(context, *rule)));
    }
    return texts;
}

std::vector<std::string> TextsOf(CtlContext& context, const FwRuleInfoList& wanted) {
    std::vector<const qor::vela::FwRuleInfo*> rules;
    for (const qor::vela::FwRuleInfo& info : wanted.rules()) {
        rules.push_back(&info);
    }
    std::stable_sort(rules.begin(), rules.end(),
                     [](const qor::vela::FwRuleInfo* a, const qor::vela::FwRuleInfo* b) {
                         return a->order() < b->order();
                     });
    std::vector<std::string> texts;
    for (const qor::vela::FwRuleInfo* info : rules) {
        texts.push_back(WithDottedAddresses(IpfwTextOf(context, info->rule())));
    }
    return texts;
}

int PrintDryRun(CtlContext& context, RuleSet set, const FwRuleInfoList& wanted) {
    std::string reply;
    int status = CallForStatus(
        context, set == RuleSet::kNormal ? QV_CMD_GET_ALL_RULES : QV_CMD_GET_EXCP_RULES, "",
        &reply);
    FwRuleList held;
    if (status != kExitOk || !ReadReply(context, reply, "the list", &held, &status)) {
        return status;
    }
    const RuleDiff diff = DiffRuleLists(TextsOf(context, held), TextsOf(context, wanted));
    if (!context.arguments.json) {
        fputs(FormatRuleDiff(diff).c_str(), context.out);
        return kExitOk;
    }
    JsonArray removed;
    JsonArray added;
    for (const std::string& rule : diff.removed) {
        removed.Raw(JsonQuote(rule));
    }
    for (const std::string& rule : diff.added) {
        added.Raw(JsonQuote(rule));
    }
    fprintf(context.out, "%s\n",
            JsonObject()
                .Text("list", SetName(set))
                .Raw("remove", removed.str())
                .Raw("add", added.str())
                .str()
                .c_str());
    return kExitOk;
}

}  // namespace

int RunApply(CtlContext& context) {
    int status = kExitOk;
    FwRuleInfoList list;
    if (!ReadRuleListArguments(context, &list, &status)) {
        return status;
    }
    const RuleSet set = context.arguments.exceptions ? RuleSet::kException : RuleSet::kNormal;
    if (context.arguments.dryRun) {
        return PrintDryRun(context, set, list);
    }
    std::string request(8, '\0');
    uint8_t* bytes = reinterpret_cast<uint8_t*>(&request[0]);
    ipc::StoreLittleEndian32(set == RuleSet::kException ? kApplyExceptions : 0u, bytes);
    ipc::StoreLittleEndian32(static_cast<uint32_t>(context.arguments.confirmSeconds), bytes + 4);
    std::string reply;
    int32_t code = 0;
    if (!CallDaemon(context, kApply, request + list.SerializeAsString(), &code, &reply)) {
        return kExitUnreachable;
    }
    status = PrintPairs(context, reply);
    if (code != 0) {
        return Fail(context, kExitFailed, DescribeCode(code));
    }
    if (context.arguments.confirmSeconds > 0 && !context.arguments.json) {
        fprintf(context.out,
                "confirm within %s with 'qvfwctl confirm', or the %s list as it was comes back\n",
                FormatTimeLeft(context.arguments.confirmSeconds).c_str(), SetName(set));
    }
    return status;
}

int RunAddRule(CtlContext& context) {
    return AddRuleTo(context, QV_CMD_ADD_RULE, RuleSet::kNormal);
}

int RunAddException(CtlContext& context) {
    return AddRuleTo(context, QV_CMD_ADD_EXCP_RULE, RuleSet::kException);
}

int RunDeleteRule(CtlContext& context) {
    return DeleteRuleFrom(context, QV_CMD_DELETE_RULE);
}

int RunDeleteException(CtlContext& context) {
    return DeleteRuleFrom(context, QV_CMD_DELETE_EXCP_RULE);
}

int RunModifyRule(CtlContext& context) {
    int status = kExitOk;
    unsigned int number = 0;
    FwRule rule;
    if (context.arguments.positional.empty()) {
        return Fail(context, kExitUsage, "modify needs a rule number and a rule");
    }
    if (!ReadNumber(context, 0, &number, &status) ||
        !ReadRuleArguments(context, 1, &rule, &status)) {
        return status;
    }
    rule.set_rule_index(number);
    std::string reply;
    status = CallForStatus(context, QV_CMD_MODIFY_RULE, rule.SerializeAsString(), &reply);
    return status == kExitOk ? PrintDone(context) : status;
}

int RunSwapRules(CtlContext& context) {
    int status = kExitOk;
    unsigned int first = 0;
    unsigned int second = 0;
    if (!NeedArguments(context, 2, &status) || !ReadNumber(context, 0, &first, &status) ||
        !ReadNumber(context, 1, &second, &status)) {
        return status;
    }
    qor::vela::UIntPair pair;
    pair.set_first(first);
    pair.set_second(second);
    std::string reply;
    status = CallForStatus(context, QV_CMD_SWAP_RULES, pair.SerializeAsString(), &reply);
    return status == kExitOk ? PrintDone(context) : status;
}

int RunListRules(CtlContext& context) {
    return ListSet(context, QV_CMD_GET_ALL_RULES, RuleSet::kNormal);
}

int RunListExceptions(CtlContext& context) {
    return ListSet(context, QV_CMD_GET_EXCP_RULES, RuleSet::kException);
}

int RunAddRuleList(CtlContext& context) {
    return SendRuleList(context, QV_CMD_ADD_RULE_LIST);
}

int RunSetRuleList(CtlContext& context) {
    return SendRuleList(context, QV_CMD_SET_RULE_LIST);
}

int RunSetExceptionList(CtlContext& context) {
    return SendRuleList(context, QV_CMD_SET_EXCP_RULE_LIST);
}

int RunCheckRule(CtlContext& context) {
    int status = kExitOk;
    FwRule rule;
    if (!ReadRuleArguments(context, 0, &rule, &status)) {
        return status;
    }
    int32_t code = 0;
    std::string report;
    if (!CallDaemon(context, kCheckRule, rule.SerializeAsString(), &code, &report)) {
        return kExitUnreachable;
    }
    size_t newline = report.find('\n');
    std::string text = report.substr(0, newline);
    std::string verdict = newline == std::string::npos ? "" : report.substr(newline + 1);
    verdict.erase(verdict.find_last_not_of(" \n") + 1);
    if (context.arguments.json) {
        fprintf(context.out, "%s\n",
                JsonObject()
                    .Text("ipfw", text)
                    .Bool("accepted", code == 0)
                    .Number("code", code)
                    .Text("message", code == 0 ? verdict : DescribeCode(code) + ": " + verdict)
                    .str()
                    .c_str());
    } else if (!text.empty()) {
        fprintf(context.out, "ipfw text: %s\n", text.c_str());
    }
    if (code != 0) {
        return Fail(context, kExitFailed,
                    DescribeCode(code) + (verdict.empty() ? "" : ": " + verdict));
    }
    if (!context.arguments.json) {
        fputs("ipfw accepts it\n", context.out);
    }
    return kExitOk;
}

}  // namespace qvctl
