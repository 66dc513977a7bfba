/* SPDX-License-Identifier: MIT */
/**
 * @file kex.h
 * The message bus that the host process provides: the platform contract of libvoice_plugin (with ziltrace.h).
 *
 * The library links with these functions undefined. On a gateway the gateway's own bus library defines them; on a
 * workstation the bundled bus (bus/) does. To bind another bus, define exactly what stands here with C linkage: nothing
 * above this header is recompiled. kex_conformance tells whether it keeps what stands here.
 *
 * Rules that hold for every function:
 * - Handles are opaque. A null handle never crashes: creators return NULL, actions return 0 (variant_fd: -1),
 *   destroyers do nothing.
 * - "yes/no" is an int, non-zero for yes.
 * - One thread: everything runs on the thread that runs the bus's loop. Nothing is locked.
 * - A null text where a text is expected is an error of the caller and answered with no.
 * - Flags of objects, attributes of getters and reserved words: the library gives 0, 1, a request's flags or null, and
 *   a bus may ignore them.
 * - Functions and handlers may wait. A bus that is made of another one calls them when that one is not in the middle of
 *   its own work: whatever they call must not enter it a second time.
 */
#ifndef KEX_H
#define KEX_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h> /* struct timeval */

#ifdef __cplusplus
extern "C" {
#define KEX_ALIGNAS(n) alignas(n)
#else
#define KEX_ALIGNAS(n) _Alignas(n)
#endif

typedef struct kex kex_t;                     /**< A process's bus context. */
typedef struct connection connection_t;       /**< What a bus context listens with. */
typedef struct peer peer_t;                   /**< The handle of one connection; never used for another one. */
typedef struct kex_timer kex_timer_t;         /**< A one-shot timer. */
typedef struct object object_t;               /**< A node of the local data model. */
typedef struct request request_t;             /**< A call that leaves, or the answer side of a call that arrived. */
typedef struct reply reply_t;                 /**< What came back: error items, then at most one return value. */
typedef struct reply_item reply_item_t;       /**< One item of a reply. */
typedef struct function_call function_call_t; /**< A call that has arrived and runs now. */
typedef struct argument_list argument_list_t; /**< The named arguments of that call. */
typedef struct variant_list variant_list_t;   /**< An ordered list of values. */

/* ---------------------------------------------------------------------------------------------------- Variants */

/** Type codes of a value. */
enum variant_type_code {
    VARIANT_TEXT = 0,   /**< Zero-terminated text: any other bytes, in whatever encoding. */
    VARIANT_INT16 = 3,  /**< signed 16 bits */
    VARIANT_INT32 = 4,  /**< signed 32 bits */
    VARIANT_UINT16 = 7, /**< unsigned 16 bits */
    VARIANT_UINT32 = 8, /**< unsigned 32 bits */
    VARIANT_BOOL = 10,  /**< yes or no */
    VARIANT_LIST = 13,  /**< An ordered list of values. */
    VARIANT_FD = 18,    /**< a file descriptor, or -1 */
    VARIANT_BYTES = 19, /**< a run of bytes */
    VARIANT_NONE = 255, /**< no value set */
};

/**
 * One typed value. The caller allocates it; its contents are the bus's own. A zero-filled variant is valid (an empty
 * text). Whoever fills one calls variant_cleanup() on it in the end.
 */
typedef struct variant {
    KEX_ALIGNAS(8) uint64_t opaque[4]; /**< the bus's own */
} variant_t;

/**
 * Makes *v an empty value of the type: "", 0, false, no bytes, descriptor -1, an empty list. Does not look at what *v
 * held before, so that it serves on uninitialised memory. @return no for an unknown type code.
 */
int variant_initialize(variant_t *v, uint32_t type);
/* Setters set type and value and release what was there. Text and bytes are copied. */
int variant_setChar(variant_t *v, const char *text);
int variant_setBool(variant_t *v, int value);
int variant_setInt16(variant_t *v, int16_t value);
int variant_setInt32(variant_t *v, int32_t value);
int variant_setUInt16(variant_t *v, uint16_t value);
int variant_setUInt32(variant_t *v, uint32_t value);
int variant_setByteArray(variant_t *v, const void *data, uint32_t length);
/** Borrows the descriptor until the variant is copied into a request or list and sent. A negative one is a value
 * too. */
int variant_setFd(variant_t *v, int fd);

/* A conversion that does not apply (another type, no value, a null variant, a number that does not fit) answers no and
 * leaves *value alone. */
int variant_toBool(const variant_t *v, int *value);      /**< From booleans and integers; 0 or 1. */
int variant_toInt16(const variant_t *v, int16_t *value); /**< From integers that fit; never from a boolean. */
/** The descriptor, or -1. Whoever reads a received descriptor owns it from then on and closes it. A second variant_fd()
 * tells the same number. Descriptors that nobody read are closed with their list, or with their call. */
int variant_fd(const variant_t *v);
/** Releases what the variant holds and leaves it empty. Calling it twice is harmless. */
void variant_cleanup(variant_t *v);

/** The list inside a list variant, to be filled in place; it lives as long as the variant. NULL on failure. */
variant_list_t *variant_da_list(variant_t *v);
int variant_list_add(variant_list_t *list, const variant_t *v);               /**< Appends a copy. */
uint32_t variant_list_size(const variant_list_t *list);                       /**< How many values it holds. */
const variant_t *variant_list_at(const variant_list_t *list, uint32_t index); /**< NULL past the end. */
/** For lists from argument_getList(); closes descriptors nobody read. */
void variant_list_destroy(variant_list_t *list);

/* For hosts and tools; the library does not use them. What they point at lives inside the variant. */
uint32_t variant_type(const variant_t *v); /**< A variant_type_code; VARIANT_NONE for NULL. */
int variant_toChar(const variant_t *v, const char **text);
int variant_toUInt16(const variant_t *v, uint16_t *value);
int variant_toInt32(const variant_t *v, int32_t *value);
int variant_toUInt32(const variant_t *v, uint32_t *value);
int variant_toByteArray(const variant_t *v, const void **data, uint32_t *length);

/* ------------------------------------------------------------------------------------------ Requests and replies */

/** Item types of a reply. */
enum reply_item_type_code {
    REPLY_ITEM_ERROR = 3,        /**< an error number with description and info */
    REPLY_ITEM_RETURN_VALUE = 4, /**< the function's return value */
};

/**
 * A call to a function of the object at a dotted path ("VoiceService.VoiceApplication") in the other process.
 * @param flags  32 bits, carried to the receiver as they are, who reads them with request_attributes(). What a bus
 *         makes of single bits is its own business; the bundled one makes nothing of them
 * @return the request, the caller's to destroy; NULL when path or function is null, empty or too long. The bundled bus
 *         answers a request for which there is no memory too: kex_sendRequest() says no to it
 */
request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags);
/** Adds a named argument. The value is copied: clean your own variant right after. Descriptors are borrowed. */
int request_addParameter(request_t *r, const char *name, const variant_t *value);
/**
 * Installs a handler for the reply, before it is sent. It runs once for each item and once more with a null item when
 * the reply is complete or the peer has closed; in that last call its owner destroys the request. Destroying it earlier
 * suppresses the rest. A later one replaces it; null takes it away.
 */
void request_setReplyHandler(request_t *r, void (*handler)(request_t *r, reply_item_t *item));
/**
 * Installs a handler for the completed reply. It runs exactly once, also when the peer closes: the reply then holds one
 * error item. It owns the request from then on: it destroys it, then or later; the bus destroys none. With both handlers
 * the done handler runs last, unless the reply handler has destroyed the request. A later one replaces it; null takes it
 * away.
 */
void request_setDoneHandler(request_t *r, void (*handler)(request_t *r));
void request_setData(request_t *r, void *data); /**< A word that travels with the request, for its handlers. */
void *request_data(request_t *r);               /**< That word, or NULL. */
uint32_t request_attributes(request_t *r); /**< The flags given at creation; at the receiver, those that arrived. */
reply_t *request_reply(request_t *r); /**< What has come back, or NULL; inside a function, the reply being built. */
void request_destroy(request_t *r);   /**< Allowed inside a handler of r. */

/**
 * Queues a copy for the peer, in order. It leaves at the next turn of the loop, at a wait, or when enough is queued.
 * Descriptors are duplicated here. A request destroyed before it has left, without a handler, leaves as a one-way call:
 * no reply is sent for it. With a handler it leaves as any other; the reply is dropped, and no handler runs. What a
 * function sends to its caller arrives before its reply. The bus has no limit of time for a reply: one that comes after
 * an hour counts.
 * @return no for a null or closed peer, a full queue, a request over the limits, or a descriptor that cannot be
 *         duplicated. After a no, no handler of the request ever runs. A listener is nobody to send to: no. A request
 *         that was sent is not sent again: no
 */
int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r);
/**
 * Blocks until the reply is complete. Nothing else is dispatched meanwhile, neither calls nor timers: what arrives from
 * that peer is kept in order and handled after the wait. A request that has a handler may be waited for: its handlers
 * run in a later turn. After a no the request is as it was: it can be waited for again.
 * @param timeout  NULL: no limit
 * @return no when the time is up or the peer has closed (at once)
 */
int kex_waitForReply(kex_t *bus, request_t *r, const struct timeval *timeout);

/* A reply's items, in order: errors, then at most one return value. Items live as long as the reply. */
reply_item_t *reply_firstItem(reply_t *reply);
reply_item_t *reply_nextItem(reply_item_t *item);
int32_t reply_item_type(reply_item_t *item); /**< A reply_item_type_code. */
/** The number that the function gave. Those that a bus gives itself (no such object, the peer closed) are its own, and
 * the library makes no difference between them. */
uint32_t reply_item_error(reply_item_t *item);
const char *reply_item_errorDescription(reply_item_t *item);
const char *reply_item_errorInfo(reply_item_t *item);
const variant_t *reply_item_returnValue(reply_item_t *item);
/** Adds an error item to the reply of a running call (request_reply(fcall_request(call))). Texts are copied. */
int reply_addError(reply_t *reply, uint32_t code, const char *description, const char *info);

/* ------------------------------------------------------------------------------------------- Calls that arrive */

/** What a bus function answers to the bus. It adds nothing to the reply. */
enum kex_function_status {
    KEX_FUNCTION_DONE = 0,   /**< it did what was asked */
    KEX_FUNCTION_FAILED = 2, /**< it did not */
};

/**
 * A bus function. The bus finds a declared function once by its exported name: `__<Class>_<function>` for an object
 * with a class, `__<function>` for one without.
 *
 * return_value enters as VARIANT_NONE, belongs to the bus and stays valid after fcall_destroy(). Left as it came, the
 * reply has no return value. Object, peer and request of the call stay valid until the function returns.
 *
 * A call to an unknown object, to a template, to an instance that is not committed, or to a function that is not
 * declared runs nothing and is answered with one error; a one-way call with nothing. No name that comes from a peer is
 * looked up among the program's symbols.
 */
typedef int kex_function_t(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

request_t *fcall_request(function_call_t *call); /**< The request that arrived: its attributes, its reply to fill. */
object_t *fcall_object(function_call_t *call);   /**< The object that was called. */
peer_t *fcall_peer(function_call_t *call);       /**< Who called. */
/** Every bus function calls it once, before it returns. After it neither the call nor its arguments are used; what they
 * gave before stays, and the reply leaves when the function returns. */
void fcall_destroy(function_call_t *call);
const char *object_name(object_t *object, uint32_t flags); /**< The last part of its path; lives with the object. */

/* Getters answer non-zero when the argument is there. Text, bytes and lists are the caller's: free(), or
 * variant_list_destroy(). Arguments match by name (a declaration may give one a second name), never by position. An
 * argument of another kind, or an integer that does not fit, counts as missing. Present without a value: non-zero with
 * a null pointer and length 0. An empty byte array has a pointer and length 0. Arguments that nobody declared do no
 * harm. `attributes` are 0 or the request's flags; a bus may ignore them. A second argument_getList() of the same
 * argument finds -1 in place of each descriptor. */
int argument_getChar(argument_list_t *a, const char *name, uint32_t attributes, char **text);
int argument_getUInt16(argument_list_t *a, const char *name, uint32_t attributes, uint16_t *value);
int argument_getUInt32(argument_list_t *a, const char *name, uint32_t attributes, uint32_t *value);
int argument_getInt32(argument_list_t *a, const char *name, uint32_t attributes, int32_t *value);
/** Bytes come in a block of at least 1,024 bytes, zero-filled behind the data, so that a fixed head can always be
 * read. */
int argument_getByteArray(argument_list_t *a, const char *name, uint32_t attributes, void **data, uint32_t *length);
int argument_getList(argument_list_t *a, const char *name, uint32_t attributes, variant_list_t **list);

/* -------------------------------------------------------------------------------------- Peers, timers, data model */

/** Peer events. */
enum peer_event_code {
    /** The connection is gone. Runs once, after the last call that the peer had sent, also when this side notices the
     * end first because it cannot write. */
    PEER_EVENT_CLOSED = 6,
};

/** Connects to a listening process, "kex://ipc:[/path/of/socket]". It waits for no turn of the listener: requests may be
 * queued at once. @return the peer, or NULL. */
peer_t *kex_client_connect(kex_t *bus, const char *uri);
/**
 * Listens on a local socket at a file-system path. A socket that nobody listens at any more is taken over. Whatever
 * else stands there stays untouched, and the answer is NULL: a file, a directory, a socket at which somebody listens.
 * The socket has mode 0660 whatever the umask is, or is open to more when the bus is told to trust more.
 * @return a peer that stands for the listener, or NULL. Sending to it answers no. It takes a handler, whose event does
 *         not come: the listener lives as long as its bus
 */
peer_t *connection_listenOnIPC(connection_t *connection, const char *path);
/** One handler per event; a later one replaces it. What a handler answers means nothing. A peer whose close event is
 * still to come takes a handler, although its end is known: calls that it had sent may have to run before. The handle of
 * a closed peer still compares equal to what calls gave; every operation on it answers no. @return no for a null peer,
 * for one whose close event has begun, and for another event than PEER_EVENT_CLOSED. */
int peer_setEventHandler(peer_t *peer, int event, void *userdata,
                         int (*handler)(peer_t *peer, int event, void *userdata));

/** A timer that does not run yet, or NULL. There is no bus to be told: as a rule a process has one, and the timer fires
 * in its turns. Timers go with their bus. */
kex_timer_t *kex_timer_create(void);
/** What runs, once per start, when the time is up. */
void kex_timer_setHandler(kex_timer_t *timer, void (*handler)(kex_timer_t *timer));
int kex_timer_start(kex_timer_t *timer, uint32_t milliseconds); /**< One shot, from the loop; starting again re-arms. */
void kex_timer_destroy(kex_timer_t *timer);                     /**< Allowed inside its handler. */

/** The object of a dotted path in the local tree, or NULL. */
object_t *kex_getObject(kex_t *bus, const char *path, uint32_t flags);
/** A child, or NULL. `reserved` is null. */
object_t *object_getObject(object_t *parent, const char *name, uint32_t flags, void *reserved);
/**
 * A new instance of a template, or NULL: also when the template has one of that name. It is found from now on, and can
 * be called after its commit. @param index  the library gives 0, and a bus may ignore it
 */
object_t *object_createInstance(object_t *template_object, uint32_t index, const char *name);
/** Marks an instance for deletion; object_commit() carries it out: until then it is found and can be called, and its
 * name is taken. After that commit the name is free. */
int object_delete(object_t *object);
/** Applies what is pending at and below the object. */
int object_commit(object_t *object);

#ifdef __cplusplus
}
#endif

#endif
