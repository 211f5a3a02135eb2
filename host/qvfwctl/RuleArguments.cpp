#include "RuleArguments.h"

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "InputText.h"
#include "MessageJson.h"
#include "RuleReader.h"

namespace qvctl {

namespace {

using qor::vela::FwRule;

bool StartsWithAny(const std::string& text, const char* characters) {
    size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string::npos && strchr(characters, text[first]) != nullptr;
}

// JSON, standard input or a file, rather than the first of the rule's words. A rule's
// first word is never taken for a file of that name.
bool NamesInput(const std::vector<std::string>& arguments, size_t index) {
    const std::string& first = arguments[index];
    const std::vector<std::string> words = SplitWords(first);
    if (arguments.size() != index + 1 || (!words.empty() && StartsRuleWords(words[0]))) {
        return false;
    }
    return StartsWithAny(first, "{[") || first == "-" || access(first.c_str(), F_OK) == 0;
}

std::string JoinFrom(const std::vector<std::string>& arguments, size_t index) {
    std::string text;
    for (size_t i = index; i < arguments.size(); ++i) {
        text += (i == index ? "" : " ") + arguments[i];
    }
    return text;
}

bool ReadWords(CtlContext& context, const std::string& text, const std::string& which, FwRule* rule,
               int* status) {
    ReadResult read = ReadRuleText(text, rule);
    if (!read.ok) {
        *status = Fail(context, kExitUsage, which + read.Describe());
        return false;
    }
    return true;
}

bool ReadInput(CtlContext& context, const std::string& argument, std::string* text, int* status) {
    std::string error;
    if (!ReadInputText(argument, context.in, text, &error)) {
        *status = Fail(context, kExitUsage, error);
        return false;
    }
    return true;
}

std::vector<std::string> RuleLines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        std::string line = text.substr(start, end - start);
        if (!SplitWords(line).empty() && !StartsWithAny(line, "#")) {
            lines.push_back(line);
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return lines;
}

bool ReadRuleLines(CtlContext& context, const std::vector<std::string>& rules,
                   qor::vela::FwRuleInfoList* list, int* status) {
    if (rules.empty()) {
        *status = Fail(context, kExitUsage, "the list holds no rule");
        return false;
    }
    for (size_t i = 0; i < rules.size(); ++i) {
        qor::vela::FwRuleInfo* info = list->add_rules();
        info->set_order(static_cast<int32_t>(i + 1));
        if (!ReadWords(context, rules[i], "rule " + std::to_string(i + 1) + ": ",
                       info->mutable_rule(), status)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ReadRuleArguments(CtlContext& context, size_t index, FwRule* rule, int* status) {
    const std::vector<std::string>& arguments = context.arguments.positional;
    if (arguments.size() <= index) {
        *status = Fail(context, kExitUsage,
                       context.arguments.command + " needs a rule; see qvfwctl " +
                           context.arguments.command + " --help");
        return false;
    }
    if (!NamesInput(arguments, index)) {
        return ReadWords(context, JoinFrom(arguments, index), "", rule, status);
    }
    std::string text;
    std::string error;
    if (!ReadInput(context, arguments[index], &text, status)) {
        return false;
    }
    if (!StartsWithAny(text, "{")) {
        return ReadWords(context, text, "", rule, status);
    }
    if (!ParseRuleJson(text, rule, &error)) {
        *status = Fail(context, kExitUsage, error);
        return false;
    }
    return true;
}

bool ReadRuleListArguments(CtlContext& context, qor::vela::FwRuleInfoList* list, int* status) {
    const std::vector<std::string>& arguments = context.arguments.positional;
    if (arguments.empty()) {
        *status = Fail(context, kExitUsage,
                       context.arguments.command + " needs a list of rules; see qvfwctl " +
                           context.arguments.command + " --help");
        return false;
    }
    if (!NamesInput(arguments, 0)) {
        return ReadRuleLines(context, arguments, list, status);
    }
    std::string text;
    std::string error;
    if (!ReadInput(context, arguments[0], &text, status)) {
        return false;
    }
    if (!StartsWithAny(text, "[")) {
        return ReadRuleLines(context, RuleLines(text), list, status);
    }
    if (!ParseRuleListJson(text, list, &error)) {
        *status = Fail(context, kExitUsage, error);
        return false;
    }
    return true;
}

}  // namespace qvctl
