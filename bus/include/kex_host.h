/* SPDX-License-Identifier: MIT */
/**
 * @file kex_host.h
 * What a host process adds to kex.h when it runs on the bundled bus: making a bus, running its loop, declaring objects.
 *
 * The platform contract (kex.h) says what a library may call; a gateway's own bus has other ways to do what stands
 * here. A host keeps these calls together in its start-up so that only that file changes with the bus. The bus knows
 * nothing of voice: names, classes and functions are all the host's. Programs that were linked with the bundled bus ask
 * for functions of version KEX_1.
 *
 * A process may hold several buses (tests do). Timers have no bus argument in the contract: they belong to the bus
 * that is dispatching when they are created, else to the process's first bus.
 */
#ifndef KEX_HOST_H
#define KEX_HOST_H

#include "kex.h"

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------- Bus and its loop */

/**
 * Makes a bus. @param process_name how this process shows to its peers and to the tap ("fxs_plugin"), at most 63
 * bytes kept. Reads the environment once: see the table in bus/README.md. @return NULL when the kernel gives no
 * descriptors, or without memory. It is the host's, until kex_destroy().
 */
kex_t *kex_create(const char *process_name);
/** Sends what is still queued for at most 1 s, closes every peer, frees everything that belongs to the bus. Inside one
 * of its handlers it does nothing but write a level-100 trace message. */
void kex_destroy(kex_t *bus);
/** The listening side of a bus, for connection_listenOnIPC(). Lives with the bus. NULL without one. */
connection_t *kex_connection(kex_t *bus);

/** Runs turns until kex_stop(). @return 0 after kex_stop(), -1 with errno when the loop itself fails, EINVAL without a
 * bus. */
int kex_run(kex_t *bus);
/** Ends kex_run() and makes a running wait fail, within 100 ms, or at once when called in a signal handler.
 * Async-signal-safe; may be called before kex_run(). */
void kex_stop(kex_t *bus);

/** For hosts with a loop of their own: becomes readable whenever kex_dispatch() has something to do. Lives with the
 * bus, which closes it. -1 without one. */
int kex_pollDescriptor(kex_t *bus);
/** One turn: reads, dispatches, sends; never blocks. Call it when kex_pollDescriptor() is readable.
 *  @return how many calls, handlers, timers and close events ran, or -1 once kex_stop() was called. */
int kex_dispatch(kex_t *bus);

/** Watches a descriptor of the host's own (standard input, a media socket) from the same loop. `handler` runs when it
 * can be read or has hung up. One watch per descriptor; a later one replaces it. The descriptor stays the host's. A
 * file, which cannot be waited for, counts as readable in every turn.
 * @return yes; no for a negative or closed descriptor, without a handler, or without memory */
int kex_watch(kex_t *bus, int fd, void *userdata, void (*handler)(int fd, void *userdata));
/** Ends a watch, also from inside its handler. Call it before closing the descriptor.
 *  @return yes; no when it is not watched */
int kex_unwatch(kex_t *bus, int fd);

/** Replaces the clock of timers: `now` returns monotonic nanoseconds. For tests; a process run may instead be sped up
 * by the environment variable KEX_TIME_FACTOR (timers of 10 s fire after 1 s at factor 10). Null: the kernel's
 * monotonic clock again. */
void kex_setClock(kex_t *bus, uint64_t (*now)(void *userdata), void *userdata);

/* ------------------------------------------------------------------------------------------------------- Data model */

/**
 * Declares functions by plain names, in rows of `columns` texts: class ("" for objects without one), function, then up
 * to columns-2 argument names, unused ones null. An argument name "a|b" is also taken under its second name b. Each
 * function is looked up once, here, under its exported name.
 * @return yes; no when a symbol is missing (each one is traced at level 100) or a row is malformed
 */
int kex_declareFunctions(kex_t *bus, const char *const *rows, uint32_t row_count, uint32_t columns);

/** Declares an object at a dotted path whose parents exist or are made, without a class when null.
 *  "A.B" makes A (no class) and B. @return NULL for a malformed path or one that is taken with another class. */
object_t *kex_declareObject(kex_t *bus, const char *path, const char *class_name);
/** Declares a template: object_createInstance() makes instances of its class under it, by name ("P.EndPoint" gives
 *  "P.EndPoint.FXS1"). A template may hold templates; they are cloned with each instance. Calls to a template are
 * refused. @return NULL as kex_declareObject() */
object_t *kex_declareTemplate(kex_t *bus, const char *path, const char *class_name);

/* ------------------------------------------------------------------------------------------------------------ Calls */

/** Bytes of a packet where they lie: not zero-terminated, and a zero byte may stand anywhere. */
typedef struct kex_text {
    const char *bytes; /**< the first one */
    uint32_t length;   /**< how many */
} kex_text_t;

/** A call from a peer while its function runs. */
typedef struct kex_call {
    peer_t *peer;        /**< who calls */
    kex_text_t path;     /**< the object */
    kex_text_t function; /**< without its class */
} kex_call_t;

/**
 * Which call runs: for code that a function has called without saying for whom it works.
 * @param call  filled in; its texts live until the function returns
 * @return no when no function runs: in a timer, a reply handler, a close event, or outside of a turn
 */
int kex_currentCall(kex_t *bus, kex_call_t *call);
/** A text argument of the call that runs, by one of its names, as argument_getChar() finds it; lives until the function
 *  returns. @return no when there is no such argument, when it is no text, or when no function runs. */
int kex_currentText(kex_t *bus, const char *argument, kex_text_t *text);
/** A number of the call that runs, by the name of its argument, as argument_getUInt32() finds it. @return no when there
 *  is no such argument, when it is none or does not fit, or when no function runs. */
int kex_currentUInt32(kex_t *bus, const char *argument, uint32_t *number);
/**
 * One handler that is asked before each function of the host's: kex_currentCall() tells it about which. When it answers
 * no the function does not run, and the caller gets the error KEX_ERROR_REFUSED. For hosts that do not trust all peers
 * alike.
 */
void kex_onCall(kex_t *bus, int (*handler)(kex_t *bus, void *userdata), void *userdata);

/** A call whose function has ended with KEX_FUNCTION_FAILED. All texts live until the handler returns. */
typedef struct kex_failed_call {
    kex_t *bus;               /**< whose function it was */
    peer_t *peer;             /**< who called; its connection may have ended meanwhile */
    const char *process_name; /**< of the peer, as peer_processName() gives it: "" for one without a name */
    int32_t process_id;       /**< of the peer, as peer_processId() gives it: 0 when the kernel knows none */
    kex_text_t path;          /**< the object */
    kex_text_t function;      /**< without its class */
} kex_failed_call_t;

/**
 * One handler that is told of each function of the host's that has ended with KEX_FUNCTION_FAILED: the status adds
 * nothing to the reply, so that the caller learns only what the function itself has added. It runs at once, before the
 * reply is queued: a request that it sends to the peer arrives in front of the reply. kex_currentCall() and its
 * relatives still tell what was called; the function_call_t is gone. Not told of: calls that found no object or no
 * function, and calls that the handler of kex_onCall() has rejected.
 * @param handler  null: nobody is told any more. A later one replaces it.
 */
void kex_onFailed(kex_t *bus, void (*handler)(const kex_failed_call_t *call, void *userdata), void *userdata);

/* ------------------------------------------------------------------------------------------------------------ Peers */

/**
 * Keeps places for a user among the bus's 64 connections, so that others cannot take them all; a host calls it before
 * it listens, for the user of a plugin that must always find room. Users other than the own one and root have 32 places
 * together; reserved ones come on top of these. The 8 connections that one process may have hold for reserved places
 * too.
 * @param uid     the user. Reserving alone lets nobody in: see KEX_ALLOW_UIDS in bus/README.md
 * @param places  how many connections, in place of what was reserved for this user before; 0 gives them up
 * @return yes; no when there would be more than 64 reserved places, or more than 8 users with such
 */
int kex_reserve(kex_t *bus, uid_t uid, unsigned places);
/** One handler for the closing of any peer of the bus. Runs once per peer, after its last queued call and after
 *  its own handler; the handle still compares equal to what calls gave, and is good for nothing else. */
void kex_onPeerClosed(kex_t *bus, void (*handler)(kex_t *bus, peer_t *peer, void *userdata), void *userdata);
/** The process name a peer gave in its hello, or "". Lives with the peer. */
const char *peer_processName(peer_t *peer);
/** The process id the kernel vouches for, or 0. */
int32_t peer_processId(peer_t *peer);
/** Closes a connection from this side; its close event follows in a later turn. What is queued for the peer leaves
 *  before, as far as it takes that at once. With the handle of a listener it ends that, and removes the socket that it
 *  has made. @return yes; no for a handle that has closed already */
int peer_disconnect(peer_t *peer);

/** Error numbers of the bus's own in a reply's error items. They are outside the range that the library uses. */
enum kex_error {
    KEX_ERROR_NO_OBJECT = 0x00010001,   /**< the path names nothing, or a template */
    KEX_ERROR_NO_FUNCTION = 0x00010002, /**< not declared for the object's class */
    KEX_ERROR_REFUSED = 0x00010003,     /**< not allowed, or the packet was broken */
    KEX_ERROR_TOO_LARGE = 0x00010004,   /**< over a limit */
    KEX_ERROR_PEER_CLOSED = 0x00010005, /**< the peer closed before it answered */
};

/** Path and function of the built-in call that lists the tree and its functions: one text per object in a list. */
#define KEX_BUILTIN_PATH "kex"
#define KEX_BUILTIN_LIST "list" /**< See KEX_BUILTIN_PATH. */

#ifdef __cplusplus
}
#endif

#endif
