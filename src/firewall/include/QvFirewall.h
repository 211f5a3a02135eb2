/* The firewall plug-in's vocabulary, for its hosts and clients: the command numbers of its
 * table with their messages (package qor.vela), its events, and every result code it
 * answers with what the code means to a person. The calling contract is QvPlugin.h.
 *
 * libQvFw.so: identifier 128, 21 table rows. Initialize loads the configuration, routes
 * ipfw's log, enables or disables the sets as stored, starts the event watcher and
 * re-installs every stored rule; Finalize stops the watcher and deletes both ipfw sets,
 * the stored rules staying for the next Initialize. */
#ifndef QV_FIREWALL_H
#define QV_FIREWALL_H

#include "QvPlugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Command numbers, with their request and response messages. */
enum QvFwCommand {
    QV_CMD_ADD_RULE = 0x8000,           /* FwRule -> UIntType (the rule number) */
    QV_CMD_DELETE_RULE = 0x8001,        /* UIntType (rule number) */
    QV_CMD_FLUSH_RULES = 0x8002,        /* both sets */
    QV_CMD_FLUSH_NORMAL_RULES = 0x8003, /* the normal set */
    QV_CMD_ENABLE_FW = 0x8004,          /* both sets */
    QV_CMD_DISABLE_FW = 0x8005,         /* both sets */
    QV_CMD_IS_FW_ENABLE = 0x8006,       /* -> BoolType */
    QV_CMD_GET_ALL_RULES = 0x8007,      /* -> FwRuleList (normal set) */
    QV_CMD_ADD_RULE_LIST = 0x8008,      /* FwRuleInfoList -> UIntPairArray (order, number) */
    QV_CMD_SWAP_RULES = 0x8009,       /* UIntPair (two normal rule numbers); FW_ERR_RULE_NOT_FOUND,
                                         nothing changed, unless both are stored */
    QV_CMD_ENABLE_NOTIFY = 0x800a,    /* events reach the notification callback */
    QV_CMD_DISABLE_NOTIFY = 0x800b,   /* events reach only the host service */
    QV_CMD_IS_NOTIFY_ENABLE = 0x800c, /* -> BoolType */
    QV_CMD_SET_RULE_LIST = 0x800d,    /* FwRuleInfoList -> UIntPairArray; replaces the set */
    QV_CMD_ADD_EXCP_RULE = 0x800e,    /* FwRule -> UIntType */
    QV_CMD_DELETE_EXCP_RULE = 0x800f, /* UIntType */
    QV_CMD_FLUSH_EXCP_RULES = 0x8010, /* the exception set */
    QV_CMD_SET_EXCP_RULE_LIST = 0x8011, /* FwRuleInfoList -> UIntPairArray; replaces the set */
    QV_CMD_GET_EXCP_RULES = 0x8012,     /* -> FwRuleList (exception set) */
    QV_CMD_MODIFY_RULE = 0x8013,        /* FwRule carrying its rule_index (normal set) */
    QV_CMD_SET_DEBUG_LEVEL = 258        /* DebugOption (debug_level 0..7) */
};

/* The notification callback's event code, and the host service's command that receives
 * every event (request EventLogItemFw, reply NullObject). */
enum QvFwEvent { QV_EVENT_FW_LOG = 1207, QV_IPC_FW_EVENT = 65567 };

/* What the configuration file's options ("FwOptions") are when the file leaves them out:
 * the normal and the exception ipfw set (each 1..30), the firewall log and the system
 * logger's configuration; the firewall and notification are on. */
#define QV_FW_DEFAULT_NORMAL_SET 19
#define QV_FW_DEFAULT_EXCEPTION_SET 18
#define QV_FW_DEFAULT_LOG_PATH "/var/log/Quorvane/QvrnCore/ipfw.log"
#define QV_FW_DEFAULT_SYSLOG_CONF "/etc/syslog.conf"

/* The firewall's result codes, beside the frame's (QvPlugin.h). */
enum QvFwCode {
    FW_ERR_IPFW_PRINTED = -2,      /* ipfw printed an error for a command meant to be quiet */
    FW_ERR_FLUSH = 1,              /* flushing both sets failed (QV_CMD_FLUSH_RULES only) */
    QV_ERR_CMD = 20016,            /* a command line could not be run, or failed */
    FW_ERR_RULE_NOT_FOUND = 20701, /* no rule with that number in the stored list */
    FW_ERR_MAC = 20702,            /* MAC address missing or invalid */
    FW_ERR_NO_RULE_NUM = 20703,    /* no rule number could be allocated */
    FW_ERR_RULE_REFUSED = 20704,   /* ipfw refused a rule */
    FW_ERR_ACTION = 20705,         /* action without a keyword */
    FW_ERR_UNSAFE_TEXT = 20706,    /* host or interface text that must not reach the shell */
    FW_ERR_DUP_ORDER = 20707       /* two entries of a rule list share one order */
};

/* What a code the firewall answers means, in words a person reads; null for a code it
 * never answers. The one table of these meanings. */
static inline const char* QvFwCodeMeaning(int code) {
    static const struct {
        int code;
        const char* meaning;
    } meanings[] = {
        {QV_OK, "success"},
        {FW_ERR_IPFW_PRINTED, "ipfw reported an error"},
        {FW_ERR_FLUSH, "the rules could not be flushed"},
        {QV_ERR_SERIALIZE, "the response could not be serialized"},
        {QV_ERR_INVALID_ARG, "invalid argument"},
        {QV_ERR_NO_MEMORY, "out of memory for the response"},
        {QV_ERR_INCOMPLETE, "the request was not a complete message"},
        {QV_ERR_INIT, "the firewall manager failed to initialise (is QvFw.conf.plist in place?)"},
        {QV_ERR_CMD, "a command line could not be run"},
        {FW_ERR_RULE_NOT_FOUND, "rule not found"},
        {FW_ERR_MAC, "MAC address missing or invalid"},
        {FW_ERR_NO_RULE_NUM, "no rule number could be allocated"},
        {FW_ERR_RULE_REFUSED, "ipfw refused the rule"},
        {FW_ERR_ACTION, "action without a keyword"},
        {FW_ERR_UNSAFE_TEXT, "host or interface name unsafe for the shell"},
        {FW_ERR_DUP_ORDER, "two entries of the rule list share one order"},
    };
    for (unsigned i = 0; i < sizeof meanings / sizeof meanings[0]; ++i) {
        if (meanings[i].code == code) {
            return meanings[i].meaning;
        }
    }
    return 0;
}

#ifdef __cplusplus
}
#endif

#endif /* QV_FIREWALL_H */
