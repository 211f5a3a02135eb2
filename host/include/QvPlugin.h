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
 * called on a thread of the plug-in's own. */
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
 *  in/inLen:   the serialized request (protobuf wire format); owned by the caller and read
 *              only during the call. Handlers that take no request ignore both.
 *  out/outLen: where a handler that answers stores a malloc'ed buffer and its length. The
 *              host owns the buffer from then on and gives it back with QvPluginFree. An
 *              empty response is a null buffer with length 0. Handlers that give no
 *              response leave both untouched.
 * Returns 0 or a result code. */
typedef int (*QvCommandHandler)(int cmd, const void* in, int inLen, void** out, int* outLen);

/* One row of the command table. */
typedef struct QvHandlerEntry {
    int cmd;                  /* command number */
    char desc[36];            /* NUL-terminated English description */
    QvCommandHandler handler; /* called with this row's cmd */
} QvHandlerEntry;

/* Receives each event as `length` serialized bytes under the plug-in's event `code`.
 * `data` belongs to the plug-in and is valid only during the call. */
typedef void (*QvNotifyCallback)(int code, const void* data, int length);

/* The command table, in its stored order. Read-only. */
extern const QvHandlerEntry handlerArr[];

/* The plug-in's identifier. */
int QvPluginGetId(void);

/* Sets up the plug-in. `reserved` is not read. Returns 0, or QV_ERR_INIT when the
 * plug-in failed to come up; its handlers then answer QV_ERR_INIT, and QvPluginFinalize
 * must be called all the same. */
int QvPluginInitialize(void* reserved);

/* Stops the plug-in and releases everything it holds. */
void QvPluginFinalize(void);

/* Releases a response buffer. Null is accepted. Returns 0. */
int QvPluginFree(void* buffer);

/* Stores the table, its row count and the handler for command numbers not in the table.
 * Returns QV_ERR_INVALID_ARG and writes nothing when any pointer is null, else 0. */
int QvPluginGetHandlers(const QvHandlerEntry** table, int* count, QvCommandHandler* defaultHandler);

/* Sets the callback for events; null restores QvPluginNullNotify. */
void QvPluginSetNotificationCallback(QvNotifyCallback callback);

/* The do-nothing callback. */
void QvPluginNullNotify(int code, const void* data, int length);

#ifdef __cplusplus
}
#endif

#endif /* QV_PLUGIN_H */
