/* SPDX-License-Identifier: MIT */
/**
 * @file kex_tap.h
 * Watching a bus: a tap on a listening process receives a copy of all that passes through it, with times and names.
 *
 * A tap is a second kind of connection with the same credentials check. It can only look. One that reads too slowly
 * loses copies, which are counted; it never slows a call. Descriptors are shown as numbers (the sender's own), not
 * passed.
 */
#ifndef KEX_TAP_H
#define KEX_TAP_H

#include "kex.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kex_tap kex_tap_t; /**< A watching connection. */

/** What a record tells. */
enum kex_tap_kind {
    KEX_TAP_CONNECTED = 1, /**< a peer has said hello (from = peer, to = listener); text "before": it had already when
                                   the tap came, and is told of behind the first record */
    KEX_TAP_CLOSED = 2,    /**< a peer is gone; text: why */
    KEX_TAP_CALL = 3,      /**< a call that expects a reply */
    KEX_TAP_ONE_WAY_CALL = 4, /**< a call that expects none */
    KEX_TAP_REPLY = 5,        /**< the reply to `serial`, or the notice that this one-way call found nothing */
    KEX_TAP_REFUSED = 6,      /**< a packet or connection was refused; text: why */
    KEX_TAP_WAITING = 7,      /**< a side says that it waits for the reply to `serial` */
    KEX_TAP_LOST = 8,         /**< `lost` copies were dropped before this record because the tap was slow */
    KEX_TAP_WATCHING = 9,     /**< the first record: all that passes from here on is copied (to = this tap) */
};

/** Who sends or receives a message. */
typedef struct kex_tap_end {
    int32_t process_id;  /**< as the kernel vouches for it */
    uint32_t connection; /**< number of the connection at the listener, from 1; 0: the listener itself */
    char name[64];       /**< process name from its hello, zero-terminated */
} kex_tap_end_t;

/** One record. Texts and values live until the next kex_tap_next() or kex_tap_close(). */
typedef struct kex_tap_record {
    int32_t kind;                      /**< a kex_tap_kind; unknown kinds are to be passed over */
    uint64_t time_ns;                  /**< CLOCK_REALTIME when the listener sent or received it */
    kex_tap_end_t from;                /**< who sent it */
    kex_tap_end_t to;                  /**< who received it */
    uint32_t serial;                   /**< of the call; a reply carries that of its call */
    uint32_t flags;                    /**< of the request */
    const char *path;                  /**< calls: the object; else "" */
    const char *function;              /**< calls: the function; else "" */
    const char *text;                  /**< closed, refused: why; connected: "before" or ""; else "" */
    uint32_t argument_count;           /**< calls: named arguments; replies: 0 or 1, the return value, named "" */
    const char *const *argument_names; /**< argument_count texts */
    const variant_t *const *arguments; /**< a descriptor is readable as a number with variant_fd(); never close it */
    uint32_t error_count;              /**< replies: error items */
    const uint32_t *error_codes;       /**< error_count numbers */
    const char *const *error_descriptions; /**< error_count texts */
    const char *const *error_infos;        /**< error_count texts */
    uint32_t lost;                         /**< lost: how many copies were dropped */
    uint32_t bytes;                        /**< size of the message as it travelled */
} kex_tap_record_t;

/** Connects a tap to the listener at a URI, "kex://ipc:[/path]". @return NULL with errno and, in `why` when not null
 *  (a buffer of `size` bytes), a sentence. */
kex_tap_t *kex_tap_open(const char *uri, char *why, size_t size);
/** Becomes readable when a record may be there; for poll(2). Records may come together: read them until there is none. */
int kex_tap_descriptor(const kex_tap_t *tap);
/** Reads the next record without blocking. @return 1 a record, 0 none now, -1 the listener is gone or broken. */
int kex_tap_next(kex_tap_t *tap, kex_tap_record_t *record);
/**
 * The message that the record at hand tells of, byte for byte as it travelled, in its sender's byte order: for files that
 * keep traffic. It is one message, whatever else shared its packet; of a packet that was no message of the bus nothing
 * is kept. @param size  becomes the number of its bytes, the record's `bytes`. @return NULL for a record that has none
 * (connected, closed, lost, watching), and before the first one. It lives as long as the record's texts.
 */
const void *kex_tap_packet(const kex_tap_t *tap, uint32_t *size);
/** Ends the watching and frees what belongs to it. */
void kex_tap_close(kex_tap_t *tap);

#ifdef __cplusplus
}
#endif

#endif
