// The sub-commands that add, change, list and check rules.
#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CtlArguments.h"
#include "InputText.h"
#include "JsonWriter.h"
#include "MessageJson.h"
#include "QvControl.h"
#include "QvControlErrors.h"
#include "QvControlStatus.h"
#include "QvFirewall.h"
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

int AddRuleTo(CtlContext& context, uint32_t command, RuleSet set) {
    int status = kExitOk;
    FwRule rule;
    if (!ReadRuleArguments(context, 0, &rule, &status)) {
        return status;
    }
    std::string reply;
    status = CallForStatus(context, command, rule.SerializeAsString(), &reply);
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
        fprintf(context.out, "%s\n",
                JsonObject()
                    .Number("rule_index", number.value())
                    .Text("set", SetName(set))
                    .str()
                    .c_str());
    } else {
        fprintf(context.out, "added rule %u to the %s set\n", number.value(), SetName(set));
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
    if (!CallDaemon(context, command, list.SerializeAsString(), &code, &reply)) {
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
    std::vector<ListedRule> listed;
    for (const FwRule& rule : rules.rules()) {
        listed.push_back(ListedRule{rule, IpfwTextOf(context, rule), std::nullopt});
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

}  // namespace

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
