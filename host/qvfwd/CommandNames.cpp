#include "CommandNames.h"

#include "QvFirewall.h"

namespace qvfwd {

namespace {

constexpr CommandInfo kCommands[] = {
    {QV_CMD_ADD_RULE, "add", true, RequestKind::kRule, "normal"},
    {QV_CMD_DELETE_RULE, "delete", true, RequestKind::kNumber, "normal"},
    {QV_CMD_FLUSH_RULES, "flush", true, RequestKind::kNone, ""},
    {QV_CMD_FLUSH_NORMAL_RULES, "flush-normal", true, RequestKind::kNone, "normal"},
    {QV_CMD_ENABLE_FW, "enable", true, RequestKind::kNone, ""},
    {QV_CMD_DISABLE_FW, "disable", true, RequestKind::kNone, ""},
    {QV_CMD_IS_FW_ENABLE, "is-enabled", false, RequestKind::kNone, ""},
    {QV_CMD_GET_ALL_RULES, "list", false, RequestKind::kNone, "normal"},
    {QV_CMD_ADD_RULE_LIST, "add-rules", true, RequestKind::kRuleList, "normal"},
    {QV_CMD_SWAP_RULES, "swap", true, RequestKind::kPair, "normal"},
    {QV_CMD_ENABLE_NOTIFY, "notify-on", true, RequestKind::kNone, ""},
    {QV_CMD_DISABLE_NOTIFY, "notify-off", true, RequestKind::kNone, ""},
    {QV_CMD_IS_NOTIFY_ENABLE, "is-notify", false, RequestKind::kNone, ""},
    {QV_CMD_SET_RULE_LIST, "set-rules", true, RequestKind::kRuleList, "normal"},
    {QV_CMD_ADD_EXCP_RULE, "add-exception", true, RequestKind::kRule, "exception"},
    {QV_CMD_DELETE_EXCP_RULE, "delete-exception", true, RequestKind::kNumber, "exception"},
    {QV_CMD_FLUSH_EXCP_RULES, "flush-exceptions", true, RequestKind::kNone, "exception"},
    {QV_CMD_SET_EXCP_RULE_LIST, "set-exception-rules", true, RequestKind::kRuleList, "exception"},
    {QV_CMD_GET_EXCP_RULES, "list-exceptions", false, RequestKind::kNone, "exception"},
    {QV_CMD_MODIFY_RULE, "modify", true, RequestKind::kRule, "normal"},
    {QV_CMD_SET_DEBUG_LEVEL, "debug-level", true, RequestKind::kDebugLevel, ""},
};

}  // namespace

const CommandInfo* FindCommand(uint32_t command) {
    for (const CommandInfo& info : kCommands) {
        if (info.command == command) {
            return &info;
        }
    }
    return nullptr;
}

const char* CommandName(uint32_t command) {
    const CommandInfo* info = FindCommand(command);
    return info != nullptr ? info->name : "other";
}

}  // namespace qvfwd
