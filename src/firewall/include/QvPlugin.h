/* The firewall plug-in's contract with its host: seven entry points and a table of
 * numbered command handlers. This is the only header a host needs; libQvFw.so exports
 * these symbols and nothing else.
 *
 * Calling order: QvPluginGetId, QvPluginInitialize, QvPluginGetHandlers,
 * QvPluginSetNotificationCallback (at any time, repeatable), any number of handler calls
 * (each followed by QvPluginFree of its response), and last QvPluginFinalize.
 *
 * Threads: handlers may be called from any number of host threads at once. Initialize and
 * Finalize must not overlap each other or any handler call. The notification callback is
 * called on the plug-in's own event-watcher thread.
 *
 * Codes: 0 success; 20001 a response could not be serialized; 20002 invalid argument;
 * 20006 out of memory for a response; 20010 the request bytes did not make a complete
 * message; 20013 the firewall manager failed to initialise, or does not exist (a handler
 * called before Initialize or after Finalize); 20016 a command line could not be run;
 * 20701 rule not in the stored list; 20702 MAC address invalid; 20703 no rule number
 * could be allocated; 20704 ipfw refused a rule; 20705 action without a keyword; 20706
 * host or interface text unsafe for the shell; 20707 two list entries share one order. */
#ifndef QV_PLUGIN_H
#define QV_PLUGIN_H

#ifdef __cplusplus
extern "C" {
#endif

/* Command numbers, with their request and response messages (package qor.vela). */
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
    QV_CMD_SWAP_RULES = 0x8009,         /* UIntPair (two normal rule numbers) */
    QV_CMD_ENABLE_NOTIFY = 0x800a,      /* events reach the notification callback */
    QV_CMD_DISABLE_NOTIFY = 0x800b,     /* events reach only the host service */
    QV_CMD_IS_NOTIFY_ENABLE = 0x800c,   /* -> BoolType */
    QV_CMD_SET_RULE_LIST = 0x800d,      /* FwRuleInfoList -> UIntPairArray; replaces the set */
    QV_CMD_ADD_EXCP_RULE = 0x800e,      /* FwRule -> UIntType */
    QV_CMD_DELETE_EXCP_RULE = 0x800f,   /* UIntType */
    QV_CMD_FLUSH_EXCP_RULES = 0x8010,   /* the exception set */
    QV_CMD_SET_EXCP_RULE_LIST = 0x8011, /* FwRuleInfoList -> UIntPairArray; replaces the set */
    QV_CMD_GET_EXCP_RULES = 0x8012,     /* -> FwRuleList (exception set) */
    QV_CMD_MODIFY_RULE = 0x8013,        /* FwRule carrying its rule_index (normal set) */
    QV_CMD_SET_DEBUG_LEVEL = 258        /* DebugOption (debug_level 0..7) */
};

/* The notification callback's event code, and the host service's command that receives
 * every event (request EventLogItemFw, reply NullObject). */
enum { QV_EVENT_FW_LOG = 1207, QV_IPC_FW_EVENT = 65567 };

/* A command handler.
 *  in/inLen:   the serialized request (protobuf wire format); owned by the caller and read
 *              only during the call. Handlers that take no request ignore both.
 *  out/outLen: where a handler that answers stores a malloc'ed buffer and its length. The
 *              host owns the buffer from then on and gives it back with QvPluginFree. An
 *              empty response is a null buffer with length 0. Handlers that give no
 *              response leave both untouched.
 * Returns one of the codes above. */
typedef int (*QvCommandHandler)(int cmd, const void* in, int inLen, void** out, int* outLen);

/* One row of the command table. */
typedef struct QvHandlerEntry {
    int cmd;                  /* command number */
    char desc[36];            /* NUL-terminated English description */
    QvCommandHandler handler; /* called with this row's cmd */
} QvHandlerEntry;

/* Receives each firewall event (code 1207) as a serialized qor.vela.EventLogItemFw of
 * `length` bytes. `data` belongs to the plug-in and is valid only during the call. */
typedef void (*QvNotifyCallback)(int code, const void* data, int length);

/* The command table, 21 rows in their stored order. Read-only. */
extern const QvHandlerEntry handlerArr[21];

/* The plug-in's identifier: 128. */
int QvPluginGetId(void);

/* Sets up the debug log (once) and brings up the firewall manager: loads the
 * configuration, routes ipfw's log, enables or disables the sets as stored, starts the
 * event watcher and re-installs every stored rule. `reserved` is not read. Returns 0, or
 * 20013 when the manager failed (call QvPluginFinalize all the same). */
int QvPluginInitialize(void* reserved);

/* Releases the debug log, stops the event watcher, deletes both ipfw sets and destroys
 * the manager. The stored rules stay for the next Initialize. */
void QvPluginFinalize(void);

/* Releases a response buffer. Null is accepted. Returns 0. */
int QvPluginFree(void* buffer);

/* Stores the table, its row count and the handler for command numbers not in the table.
 * Returns 20002 and writes nothing when any pointer is null, else 0. */
int QvPluginGetHandlers(const QvHandlerEntry** table, int* count, QvCommandHandler* defaultHandler);

/* Sets the callback for events; null restores QvPluginNullNotify. */
void QvPluginSetNotificationCallback(QvNotifyCallback callback);

/* The do-nothing callback. */
void QvPluginNullNotify(int code, const void* data, int length);

#ifdef __cplusplus
}
#endif

#endif /* QV_PLUGIN_H */
