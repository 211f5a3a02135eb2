/* The contract between the host and a plug-in it loads: seven entry points and a table of
 * numbered command handlers. A plug-in's own vocabulary (its command numbers, events and
 * result codes) comes in a header of its own; the firewall's is QvFirewall.h.
 *
 * Calling order: QvPluginGetId, QvPluginInitialize, QvPluginGetHandlers,
 * QvPluginSetNotificationCallback (at any time, repeatable), any number of handler calls
 * (each followed by QvPluginFree of its response), and last QvPluginFinalize.
 *
 * Threads: handlers may be called from any number of host threads at once. Initialize and
 * Finalize must not overlap each other or any handler call. The notification callback is
 * called on a thread of the plug-in's own. Each entry point below states what must hold
 * before it, its arguments and who owns them, the threads that may call it, and what it
 * returns. */
#ifndef QV_PLUGIN_H
#define QV_PLUGIN_H

#ifdef __cplusplus
extern "C" {
#endif

/* Result codes of the frame, which every plug-in answers. */
enum QvPluginCode {
    QV_OK = 0,
    QV_ERR_SERIALIZE = 20001,   /* a response could not be serialized */
    QV_ERR_INVALID_ARG = 20002, /* null pointer, zero or negative length, value out of range */
    QV_ERR_NO_MEMORY = 20006,   /* no memory for a response buffer */
    QV_ERR_INCOMPLETE = 20010,  /* the request bytes did not make a complete message */
    QV_ERR_INIT = 20013         /* the plug-in failed to initialise, or is not initialised */
};

/* A command handler.
 *  Before:    QvPluginInitialize returned (0 or not: a plug-in that failed to come up
 *             answers QV_ERR_INIT and changes nothing); QvPluginFinalize not yet called.
 *  Arguments: cmd is the row's command number. in/inLen: the serialized request (protobuf
 *             wire format), owned by the caller and read only during the call; handlers
 *             that take no request ignore both. out/outLen: where a handler that answers
 *             stores a malloc'ed buffer and its length; the host owns the buffer from then
 *             on and gives it back with QvPluginFree. An empty response is a null buffer
 *             with length 0. Handlers that give no response leave both untouched.
 *  Threads:   any number of host threads at once, never overlapping Initialize or
 *             Finalize.
 *  Returns:   0 or a result code (QvPluginCode, or the plug-in's own). */
typedef int (*QvCommandHandler)(int cmd, const void* in, int inLen, void** out, int* outLen);

/* One row of the command table. */
typedef struct QvHandlerEntry {
    int cmd;                  /* command number */
    char desc[36];            /* NUL-terminated English description */
    QvCommandHandler handler; /* called with this row's cmd */
} QvHandlerEntry;

/* Receives each event as `length` serialized bytes under the plug-in's event `code`.
 *  Arguments: `data` belongs to the plug-in and is valid only during the call.
 *  Threads:   called on a thread of the plug-in's own, one event at a time; it must not
 *             call QvPluginFinalize. */
typedef void (*QvNotifyCallback)(int code, const void* data, int length);

/* The command table, in its stored order. Read-only; valid while the library is loaded. */
extern const QvHandlerEntry handlerArr[];

/* The plug-in's identifier.
 *  Before:  nothing; it touches no state.
 *  Threads: any, at any time.
 *  Returns: the identifier. */
int QvPluginGetId(void);

/* Sets up the plug-in: its configuration, its rules, its event watcher.
 *  Before:    first call, or after QvPluginFinalize.
 *  Arguments: `reserved` is not read.
 *  Threads:   one host thread, with no handler call, Finalize or other Initialize running.
 *  Returns:   0, or QV_ERR_INIT when the plug-in failed to come up; its handlers then
 *             answer QV_ERR_INIT, and QvPluginFinalize must be called all the same. */
int QvPluginInitialize(void* reserved);

/* Stops the plug-in and releases everything it holds; events stop before it returns.
 *  Before:  QvPluginInitialize was called (whatever it returned).
 *  Threads: one host thread, with no handler call or Initialize running; not the
 *           notification callback's.
 *  Returns: nothing. Handlers called afterwards answer QV_ERR_INIT. */
void QvPluginFinalize(void);

/* Releases a response buffer.
 *  Arguments: a buffer a handler stored in `out`, or null; the host's no more once given.
 *  Threads:   any, at any time while the library is loaded.
 *  Returns:   0. */
int QvPluginFree(void* buffer);

/* Hands out the command table.
 *  Arguments: table, count, defaultHandler: where to store the table, its row count and
 *             the handler for command numbers not in the table; the host's to own, the
 *             stored values the plug-in's, valid while the library is loaded.
 *  Threads:   any, at any time.
 *  Returns:   QV_ERR_INVALID_ARG, writing nothing, when any pointer is null; else 0. */
int QvPluginGetHandlers(const QvHandlerEntry** table, int* count, QvCommandHandler* defaultHandler);

/* Sets the callback for events; null restores QvPluginNullNotify.
 *  Arguments: a function that stays callable until it is replaced or Finalize returned.
 *  Threads:   any host thread, at any time, repeatable; the next event goes to the new one.
 *  Returns:   nothing. */
void QvPluginSetNotificationCallback(QvNotifyCallback callback);

/* The do-nothing callback. Threads: any. */
void QvPluginNullNotify(int code, const void* data, int length);

#ifdef __cplusplus
}
#endif

#endif /* QV_PLUGIN_H */
