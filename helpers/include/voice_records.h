/* SPDX-License-Identifier: MIT */
/**
 * @file voice_records.h
 * The records that voice_application and the plugin hosts agreed on: what stands in the bytes that the library carries
 * unread; and functions that write and read them by type.
 *
 * What does it do?
 *   Signals, events, parameter sets, connection and stream information are built by adding typed values, and read by
 *   asking for a typed value:
 *
 *       voice_event_message_t event;
 *       voice_event_begin(&event, endpoint, LIBVOICE_EVENT_dd_ce, 0);
 *       voice_event_add_text(&event, LIBVOICE_PARAM_dd_ce_ds, "201");
 *       const char *wrong = voice_event_send(&event);
 *
 *       char number[32];
 *       if (!voice_params_get_text(voice_event_params(message), LIBVOICE_PARAM_dd_ce_ds, number, sizeof number))
 *           return -1;
 *
 * What does it check?
 *   An identifier carries the type of its value in bits 27 to 24; adding or asking for another type is answered no. A
 *   writer remembers the first thing that went wrong: test the result of the send, not of each addition. A reader
 *   believes a value only when it has the length that its type needs, and leaves its outputs alone otherwise.
 *
 * Rules that hold everywhere:
 * - Every field is a 32-bit word in host byte order and none is a pointer, so that builds of any pointer width
 *   understand each other.
 * - yes/no is an int, 1 or 0. A "sentence" is a constant text that says what is wrong, for people; NULL: nothing is.
 * - Nothing is allocated. What a reader points at stands in the record that was read and lives as long as that.
 * - C11 or C++17, and libvoice_plugin.h; the bus may be any.
 *
 * A driver author who keeps voice_application uses this file as it stands; one who writes a whole gateway is free to
 * agree on something else. hosts/README.md has the records in prose, docs/write-a-plugin.md what stands in which.
 */
#ifndef VOICE_RECORDS_H
#define VOICE_RECORDS_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include "libvoice_plugin.h"

/* ---------------------------------------------------------------------------------------------------- The records */

/** Types of endpoints: the "type" that a plugin gives when it registers one. */
enum voice_endpoint_type {
    VOICE_ENDPOINT_FXS = 1,  /**< an analogue telephone line */
    VOICE_ENDPOINT_DECT = 2, /**< a cordless handset */
    VOICE_ENDPOINT_FXO = 3,  /**< a line to the exchange */
};

/** Flags of a signal. */
#define VOICE_SIGNAL_STOP 0x00000001u /**< Stop this signal instead of starting it. */

/** Signal: libvoice_signal_t with its four carried words named. */
typedef struct voice_signal {
    int32_t endpoint;    /**< endpoint number, as the application gave it at registration */
    uint32_t signal;     /**< LIBVOICE_SIGNAL_..., what to do; its parameters stand in the parameter buffer */
    uint32_t line;       /**< call appearance on that endpoint: 0 or 1 */
    uint32_t message_id; /**< get_new_msg_id() of the sender, for the log */
    uint32_t flags;      /**< VOICE_SIGNAL_... */
    uint32_t params;     /**< pointer word: never read it, see libvoice_signal_params() */
    uint32_t length;     /**< bytes of parameter buffer behind the head */
} voice_signal_t;

/** Event: libvoice_event_t with its two carried words named. */
typedef struct voice_event {
    int32_t endpoint; /**< endpoint number */
    uint32_t event;   /**< LIBVOICE_EVENT_..., what happened; its parameters stand in the parameter buffer */
    uint32_t line;    /**< call appearance on that endpoint: 0 or 1 */
    uint32_t params;  /**< pointer word */
    uint32_t length;  /**< bytes of parameter buffer behind the head */
} voice_event_t;

/** One codec that an endpoint offers: libvoice_codec_record_t with its four words named. Best first. */
typedef struct voice_codec {
    uint32_t codec;        /**< LIBVOICE_CODEC_... */
    uint32_t payload_type; /**< RTP payload type, 0 to 127 */
    uint32_t ptime_mask;   /**< packet times: bit n stands for (n + 1) * 10 ms; bit 1 is 20 ms */
    uint32_t max_bitrate;  /**< bit/s */
} voice_codec_t;

#define VOICE_PTIME_20MS (1u << 1) /**< The bit of ptime_mask for packets of 20 ms. */

/* Initialisers of voice_codec_t, with the static payload types of RFC 3551. */
#define VOICE_CODEC_PCMA \
    { LIBVOICE_CODEC_PCMA, 8, VOICE_PTIME_20MS, 64000 } /**< ITU-T G.711 A-law, 20 ms. */
#define VOICE_CODEC_PCMU \
    { LIBVOICE_CODEC_PCMU, 0, VOICE_PTIME_20MS, 64000 } /**< ITU-T G.711 mu-law, 20 ms. */

/** Directions of a stream, seen from the endpoint (LIBVOICE_PARAM_sdp_stream_mode): one bit each, to be tested by &. */
enum voice_stream_mode {
    VOICE_MODE_INACTIVE = 0,     /**< on hold */
    VOICE_MODE_SEND_ONLY = 1,    /**< the endpoint sends */
    VOICE_MODE_RECEIVE_ONLY = 2, /**< it receives */
    VOICE_MODE_SEND_RECEIVE = 3, /**< both */
};

#define VOICE_CNX_VERSION 1u          /**< Version of the two records below; a receiver rejects any other. */
#define VOICE_CNX_PARAMETER_BYTES 696 /**< Room for `sdp` items. */

/**
 * Connection information of "create" and "modify". `sdp` items: LIBVOICE_PARAM_sdp_stream_mode, then codec, ptime (ms)
 * and payload of upstream (sent by the endpoint) and downstream (received by it). Descriptors travel beside it: 0
 * media, 1 control, 2 fax or -1; a "modify" whose descriptors are all -1 keeps the sockets. With convert-media on the
 * two addresses are sent as well and the plugin's library opens the sockets.
 */
typedef struct voice_cnx_info {
    uint32_t version;                               /**< VOICE_CNX_VERSION */
    uint32_t length;                                /**< bytes used of params */
    uint32_t params[VOICE_CNX_PARAMETER_BYTES / 4]; /**< parameter buffer */
    uint32_t local[4];                              /**< convert-media: struct sockaddr_in, copied */
    uint32_t remote[4];                             /**< convert-media: struct sockaddr_in, copied */
} voice_cnx_info_t;

/** Stream information of "add_stream" and "modify_stream": which stream of the context, then as above. */
typedef struct voice_stream_info {
    uint32_t stream;                                /**< stream id within the context, chosen by the application */
    uint32_t mode;                                  /**< voice_stream_mode */
    uint32_t version;                               /**< VOICE_CNX_VERSION */
    uint32_t length;                                /**< bytes used of params */
    uint32_t params[VOICE_CNX_PARAMETER_BYTES / 4]; /**< parameter buffer */
} voice_stream_info_t;

/** One tone of LIBVOICE_PARAM_tonegen_pt_tl, played in turn. */
typedef struct voice_tone {
    uint32_t frequency; /**< Hz; 0 is a pause */
    int32_t level;      /**< tenths of dBm0 */
    uint32_t on_ms;     /**< how long it sounds, in ms */
    uint32_t off_ms;    /**< the pause behind it, in ms */
} voice_tone_t;

/** General causes of LIBVOICE_PARAM_g_cause_generalcause (ITU-T H.248.1 Annex E.1). */
enum voice_general_cause {
    VOICE_CAUSE_NORMAL_RELEASE = 1,        /**< it was ended */
    VOICE_CAUSE_UNAVAILABLE_RESOURCES = 2, /**< nothing is free for it */
    VOICE_CAUSE_FAILURE_TEMPORARY = 3,     /**< it may work later */
    VOICE_CAUSE_FAILURE_PERMANENT = 4,     /**< it will not work later */
    VOICE_CAUSE_INTERWORKING_ERROR = 5,    /**< the two sides do not understand each other */
    VOICE_CAUSE_UNSUPPORTED = 6,           /**< this endpoint cannot do it */
};

/* Also agreed, without a record of their own:
 * - LIBVOICE_PARAM_andisp_data_db, LIBVOICE_PARAM_andisp_dwa_ddb and LIBVOICE_PARAM_fxo_ri_cid carry the hexadecimal
 * text that libvoice_db_..._encode() wrote, with its terminator;
 * - LIBVOICE_PARAM_al_ri_cad is a run of words: milliseconds on and off in turn, repeated until the signal is stopped.
 */

/* The records travel as bytes: a change here is a change of what other processes read. */
#define VOICE_AT(type, field, at) static_assert(offsetof(type, field) == (at), #type "." #field)
VOICE_AT(voice_signal_t, endpoint, 0);
VOICE_AT(voice_signal_t, signal, 4);
VOICE_AT(voice_signal_t, line, 8);
VOICE_AT(voice_signal_t, message_id, 12);
VOICE_AT(voice_signal_t, flags, 16);
VOICE_AT(voice_signal_t, params, 20);
VOICE_AT(voice_signal_t, length, 24);
static_assert(sizeof(voice_signal_t) == 28 && sizeof(voice_signal_t) == sizeof(libvoice_signal_t), "signal head");
VOICE_AT(libvoice_signal_t, params, 20);
VOICE_AT(libvoice_signal_t, length, 24);
VOICE_AT(voice_event_t, endpoint, 0);
VOICE_AT(voice_event_t, event, 4);
VOICE_AT(voice_event_t, line, 8);
VOICE_AT(voice_event_t, params, 12);
VOICE_AT(voice_event_t, length, 16);
static_assert(sizeof(voice_event_t) == 20 && sizeof(voice_event_t) == sizeof(libvoice_event_t), "event head");
VOICE_AT(libvoice_event_t, params, 12);
VOICE_AT(libvoice_event_t, length, 16);
VOICE_AT(voice_codec_t, codec, 0);
VOICE_AT(voice_codec_t, payload_type, 4);
VOICE_AT(voice_codec_t, ptime_mask, 8);
VOICE_AT(voice_codec_t, max_bitrate, 12);
static_assert(sizeof(voice_codec_t) == LIBVOICE_CODEC_RECORD_BYTES, "codec record");
VOICE_AT(voice_cnx_info_t, version, 0);
VOICE_AT(voice_cnx_info_t, length, 4);
VOICE_AT(voice_cnx_info_t, params, 8);
VOICE_AT(voice_cnx_info_t, local, LIBVOICE_CNX_INFO_LOCAL);
VOICE_AT(voice_cnx_info_t, remote, LIBVOICE_CNX_INFO_REMOTE);
static_assert(sizeof(voice_cnx_info_t) == LIBVOICE_CNX_INFO_SOCKET_BYTES, "connection information");
VOICE_AT(voice_stream_info_t, stream, 0);
VOICE_AT(voice_stream_info_t, mode, 4);
VOICE_AT(voice_stream_info_t, version, 8);
VOICE_AT(voice_stream_info_t, length, 12);
VOICE_AT(voice_stream_info_t, params, 16);
static_assert(sizeof(voice_stream_info_t) == LIBVOICE_STREAM_INFO_BYTES, "stream information");
VOICE_AT(voice_tone_t, frequency, 0);
VOICE_AT(voice_tone_t, level, 4);
VOICE_AT(voice_tone_t, on_ms, 8);
VOICE_AT(voice_tone_t, off_ms, 12);
static_assert(sizeof(voice_tone_t) == 16, "tone");
#undef VOICE_AT

/* -------------------------------------------------------------------------------------------- Types of identifiers */

/** Value types of identifiers (libvoice_ids.h). */
enum voice_value_type {
    VOICE_VALUE_NONE = 0,    /**< a signal or an event itself */
    VOICE_VALUE_INTEGER = 1, /**< one word */
    VOICE_VALUE_STRING = 2,  /**< a text with its terminator */
    VOICE_VALUE_HEX = 3,     /**< words or bytes: each identifier says which */
    VOICE_VALUE_BOOLEAN = 4, /**< one word, 0 or 1 */
};

#define VOICE_CLASS_SIGNAL 1u /**< Class of a signal and of its parameters. */
#define VOICE_CLASS_EVENT 2u  /**< Class of an event and of its parameters. */

/** The value type of an identifier, a voice_value_type. */
static inline uint32_t voice_id_value_type(uint32_t id) {
    return id >> 24 & 0xFu;
}
/** The class of an identifier: 0 property, VOICE_CLASS_SIGNAL, VOICE_CLASS_EVENT. */
static inline uint32_t voice_id_class(uint32_t id) {
    return id >> 28;
}

/* ---------------------------------------------------------------------------------------------- What can be wrong */

#define VOICE_WRONG_TYPE "a parameter's identifier is not of the type of its value" /**< Sentence of an addition. */
#define VOICE_WRONG_ROOM "the parameters do not fit into the record"                /**< Sentence of an addition. */
#define VOICE_WRONG_VALUE "a parameter has no value"                                /**< Sentence of an addition. */
#define VOICE_WRONG_EVENT "the identifier is not that of an event"                  /**< Sentence of an event. */
#define VOICE_WRONG_KEY "a telephone has no such key"                               /**< Sentence of a digit. */
#define VOICE_WRONG_SIGNAL "the identifier is not that of a signal"                 /**< Sentence of a signal. */
#define VOICE_WRONG_ENDPOINT "no endpoint has that number"                          /**< Sentence of a signal. */
#define VOICE_WRONG_NOT_SENT "not sent: there is no connection"                     /**< Sentence of a send. */
#define VOICE_WRONG_BLOCK "there is no memory for the parameter set"                /**< Sentence of a set. */

/* ---------------------------------------------------------------------------------------------------- Reading items
 * A view of a parameter buffer, to be handed about by value, and one item of it. */

/** A parameter buffer that is read. */
typedef struct voice_params {
    const uint8_t *bytes; /**< its first byte; whoever made the record owns it */
    uint32_t length;      /**< bytes */
} voice_params_t;

/** One item. */
typedef struct voice_item {
    uint32_t id;          /**< identifier */
    uint32_t length;      /**< bytes of value, without padding; 0 in what a "get" asks for */
    const uint8_t *value; /**< the bytes, inside the buffer */
} voice_item_t;

/** The parameters of a signal that a callback received. */
static inline voice_params_t voice_signal_params(const libvoice_signal_t *message) {
    const voice_params_t params = {(const uint8_t *)(message + 1), message->length};
    return params;
}
/** The parameters of an event. */
static inline voice_params_t voice_event_params(const libvoice_event_t *message) {
    const voice_params_t params = {(const uint8_t *)(message + 1), message->length};
    return params;
}
/** The parameters of a set: of what voice_plugin_get is asked for, of what voice_plugin_set is given. */
static inline voice_params_t voice_set_params(const libvoice_param_set_t *set) {
    const voice_params_t params = {(const uint8_t *)(set + 1), set->length};
    return params;
}

/** The head of a signal, by names. */
static inline voice_signal_t voice_signal_head(const libvoice_signal_t *message) {
    voice_signal_t head;
    memcpy(&head, message, sizeof head);
    return head;
}
/** The head of an event, by names. */
static inline voice_event_t voice_event_head(const libvoice_event_t *message) {
    voice_event_t head;
    memcpy(&head, message, sizeof head);
    return head;
}

/**
 * Takes the next item out of a view: `while (voice_params_next(&rest, &item))` walks a buffer.
 * @return no at the end, and for an item that is cut off
 */
static inline int voice_params_next(voice_params_t *rest, voice_item_t *item) {
    uint8_t *cursor = (uint8_t *)rest->bytes, *value = NULL;
    uint32_t id = 0, length = 0;
    if (rest->length == 0 || libvoice_get_current_param(&id, &length, &value, &cursor, &rest->length) != LIBVOICE_OK ||
        value == NULL) {
        rest->length = 0;
        return 0;
    }
    rest->bytes = cursor;
    item->id = id;
    item->length = length;
    item->value = value;
    return 1;
}
/** Finds the first item of an identifier. @return no: it is not there, or cut off. */
static inline int voice_params_find(voice_params_t params, uint32_t id, voice_item_t *item) {
    uint8_t *cursor = (uint8_t *)params.bytes, *value = NULL;
    uint32_t length = 0;
    if (libvoice_get_param(id, &length, &value, &cursor, &params.length) != LIBVOICE_OK || value == NULL)
        return 0;
    item->id = id;
    item->length = length;
    item->value = value;
    return 1;
}

/** The word of an item, whatever its type. For the functions below. */
static inline int voice_item_get_word(const voice_item_t *item, uint32_t type, uint32_t *word) {
    if (voice_id_value_type(item->id) != type || item->length != sizeof *word)
        return 0;
    memcpy(word, item->value, sizeof *word);
    return 1;
}
/** The value of an integer item. @return no: it is no integer, or not of four bytes. */
static inline int voice_item_get_i32(const voice_item_t *item, int32_t *value) {
    uint32_t word;
    if (!voice_item_get_word(item, VOICE_VALUE_INTEGER, &word))
        return 0;
    memcpy(value, &word, sizeof *value);
    return 1;
}
/** The value of an integer item that counts something: the same 32 bits, without a sign. */
static inline int voice_item_get_u32(const voice_item_t *item, uint32_t *value) {
    return voice_item_get_word(item, VOICE_VALUE_INTEGER, value);
}
/** The value of a boolean item. @param value  out: 0 or 1; any other word counts as 1 */
static inline int voice_item_get_bool(const voice_item_t *item, int *value) {
    uint32_t word;
    if (!voice_item_get_word(item, VOICE_VALUE_BOOLEAN, &word))
        return 0;
    *value = word != 0;
    return 1;
}
/** Copies a text of a type. For voice_item_get_text() and voice_item_get_block(). */
static inline int voice_item_copy_text(const voice_item_t *item, uint32_t type, char *out, uint32_t size) {
    uint32_t length = 0;
    if (size == 0 || voice_id_value_type(item->id) != type)
        return 0;
    while (length < item->length && item->value[length] != 0)
        length++;
    const uint32_t copied = length < size ? length : size - 1;
    memcpy(out, item->value, copied);
    out[copied] = 0;
    return copied == length ? 1 : 2;
}
/**
 * Copies the text of a string item. A text without a terminator ends with its item.
 * @param out  always terminated after a yes
 * @param size bytes of out
 * @return 0: it is no string; 1: the whole text; 2: the text, cut to fit
 */
static inline int voice_item_get_text(const voice_item_t *item, char *out, uint32_t size) {
    return voice_item_copy_text(item, VOICE_VALUE_STRING, out, size);
}
/** As voice_item_get_text(), for a data block of caller display: the hexadecimal text of libvoice_db_..._encode(). */
static inline int voice_item_get_block(const voice_item_t *item, char *out, uint32_t size) {
    return voice_item_copy_text(item, VOICE_VALUE_HEX, out, size);
}
/** The bytes of a hex item, inside the buffer. */
static inline int voice_item_get_bytes(const voice_item_t *item, const uint8_t **value, uint32_t *length) {
    if (voice_id_value_type(item->id) != VOICE_VALUE_HEX)
        return 0;
    *value = item->value;
    *length = item->length;
    return 1;
}
/**
 * Copies the words of a hex item.
 * @param room   words that fit into `words`; further ones are left out
 * @param count  out: words copied
 * @return no: it is not hex, is empty, or ends inside a word
 */
static inline int voice_item_get_words(const voice_item_t *item, uint32_t *words, uint32_t room, uint32_t *count) {
    if (voice_id_value_type(item->id) != VOICE_VALUE_HEX || item->length == 0 || item->length % sizeof *words != 0)
        return 0;
    *count = item->length / (uint32_t)sizeof *words;
    if (*count > room)
        *count = room;
    memcpy(words, item->value, *count * sizeof *words);
    return 1;
}

/* The same for the first item of an identifier. No: it is not there either. */

/** See voice_item_get_i32(). */
static inline int voice_params_get_i32(voice_params_t params, uint32_t id, int32_t *value) {
    voice_item_t item;
    return voice_params_find(params, id, &item) && voice_item_get_i32(&item, value);
}
/** See voice_item_get_u32(). */
static inline int voice_params_get_u32(voice_params_t params, uint32_t id, uint32_t *value) {
    voice_item_t item;
    return voice_params_find(params, id, &item) && voice_item_get_u32(&item, value);
}
/** See voice_item_get_bool(). */
static inline int voice_params_get_bool(voice_params_t params, uint32_t id, int *value) {
    voice_item_t item;
    return voice_params_find(params, id, &item) && voice_item_get_bool(&item, value);
}
/** See voice_item_get_text(): 0 no, 1 the whole text, 2 cut to fit. */
static inline int voice_params_get_text(voice_params_t params, uint32_t id, char *out, uint32_t size) {
    voice_item_t item;
    return voice_params_find(params, id, &item) ? voice_item_get_text(&item, out, size) : 0;
}
/** See voice_item_get_block(): 0 no, 1 the whole text, 2 cut to fit. LIBVOICE_DB_TEXT_BYTES * 2 always suffice. */
static inline int voice_params_get_block(voice_params_t params, uint32_t id, char *out, uint32_t size) {
    voice_item_t item;
    return voice_params_find(params, id, &item) ? voice_item_get_block(&item, out, size) : 0;
}
/** See voice_item_get_bytes(). */
static inline int voice_params_get_bytes(voice_params_t params, uint32_t id, const uint8_t **value, uint32_t *length) {
    voice_item_t item;
    return voice_params_find(params, id, &item) && voice_item_get_bytes(&item, value, length);
}
/** See voice_item_get_words(). */
static inline int voice_params_get_words(voice_params_t params, uint32_t id, uint32_t *words, uint32_t room,
                                         uint32_t *count) {
    voice_item_t item;
    return voice_params_find(params, id, &item) && voice_item_get_words(&item, words, room, count);
}
/**
 * The ring cadence of LIBVOICE_SIGNAL_al_ri: milliseconds on and off in turn, repeated until the signal is stopped.
 * @param ms     room for `room` times
 * @param count  out: how many, always even; further ones are left out
 * @return no: there is none, or it ends with a time on
 */
static inline int voice_params_get_cadence(voice_params_t params, uint32_t *ms, uint32_t room, uint32_t *count) {
    voice_item_t item;
    if (!voice_params_find(params, LIBVOICE_PARAM_al_ri_cad, &item) || item.length % (2 * sizeof *ms) != 0)
        return 0;
    return voice_item_get_words(&item, ms, room & ~1u, count);
}
/**
 * The tones of LIBVOICE_SIGNAL_tonegen_pt, played in turn.
 * @param tones  room for `room` tones
 * @param count  out: how many; further ones are left out
 * @return no: there is none, or the list ends inside a tone
 */
static inline int voice_params_get_tones(voice_params_t params, voice_tone_t *tones, uint32_t room, uint32_t *count) {
    voice_item_t item;
    if (!voice_params_find(params, LIBVOICE_PARAM_tonegen_pt_tl, &item) || item.length == 0 ||
        item.length % sizeof *tones != 0)
        return 0;
    *count = item.length / (uint32_t)sizeof *tones;
    if (*count > room)
        *count = room;
    memcpy(tones, item.value, *count * sizeof *tones);
    return 1;
}

/* ---------------------------------------------------------------------------------------------------- Writing items */

/**
 * Appends an item of a type to any parameter buffer. Everything below comes through here.
 * @param params    buffer of `capacity` bytes on a word boundary
 * @param length    in and out: bytes used
 * @param type      the type that the value has, a voice_value_type
 * @return NULL, or a sentence: then nothing is written
 */
static inline const char *voice_params_add(void *params, uint32_t capacity, uint32_t *length, uint32_t id,
                                           uint32_t type, const void *value, uint32_t bytes) {
    uint8_t *cursor = (uint8_t *)params + *length;
    uint32_t remaining = capacity - *length;
    if (voice_id_value_type(id) != type)
        return VOICE_WRONG_TYPE;
    if (value == NULL)
        return VOICE_WRONG_VALUE;
    if (libvoice_add_param(id, bytes, value, &cursor, &remaining) != LIBVOICE_OK)
        return VOICE_WRONG_ROOM;
    *length = capacity - remaining;
    return NULL;
}
/** Keeps the first thing that went wrong. @return whether `wrong` is nothing. */
static inline int voice_keep_wrong(const char **kept, const char *wrong) {
    if (*kept == NULL)
        *kept = wrong;
    return wrong == NULL;
}
/** Bytes of a text with its terminator; 0 for NULL. */
static inline uint32_t voice_text_bytes(const char *text) {
    return text == NULL ? 0 : (uint32_t)strlen(text) + 1;
}

#define VOICE_MESSAGE_PARAMETER_BYTES 512 /**< Room for the parameters of a signal or event. */

/** An event with room for its parameters. */
typedef struct voice_event_message {
    libvoice_event_t record;                            /**< what is sent */
    uint32_t params[VOICE_MESSAGE_PARAMETER_BYTES / 4]; /**< parameter buffer, right behind the record */
    const char *wrong;                                  /**< the first thing that went wrong, or NULL */
} voice_event_message_t;

/** A signal with room for its parameters. */
typedef struct voice_signal_message {
    libvoice_signal_t record;                           /**< what is sent */
    uint32_t params[VOICE_MESSAGE_PARAMETER_BYTES / 4]; /**< parameter buffer, right behind the record */
    const char *wrong;                                  /**< the first thing that went wrong, or NULL */
} voice_signal_message_t;

static_assert(offsetof(voice_event_message_t, params) == sizeof(libvoice_event_t), "parameters behind the head");
static_assert(offsetof(voice_signal_message_t, params) == sizeof(libvoice_signal_t), "parameters behind the head");

/* ------------------------------------------------------------------------------------------ Events (a plugin sends) */

/**
 * Begins an event.
 * @param endpoint  endpoint number, as voice_endpoint_register() gave it
 * @param id        LIBVOICE_EVENT_...
 * @param line      call appearance: 0 or 1
 */
static inline void voice_event_begin(voice_event_message_t *event, int32_t endpoint, uint32_t id, uint32_t line) {
    memset(&event->record, 0, sizeof event->record);
    event->record.endpoint = endpoint;
    event->record.carried[0] = id;
    event->record.carried[1] = line;
    event->wrong = NULL;
    if (voice_id_class(id) != VOICE_CLASS_EVENT || voice_id_value_type(id) != VOICE_VALUE_NONE)
        event->wrong = VOICE_WRONG_EVENT;
}
/** Appends a value of a type. For the functions below. */
static inline int voice_event_add(voice_event_message_t *event, uint32_t id, uint32_t type, const void *value,
                                  uint32_t bytes) {
    return voice_keep_wrong(&event->wrong, voice_params_add(event->params, sizeof event->params, &event->record.length,
                                                            id, type, value, bytes));
}
/** Adds an integer. @return no: the identifier is not that of an integer, or there is no room. */
static inline int voice_event_add_i32(voice_event_message_t *event, uint32_t id, int32_t value) {
    return voice_event_add(event, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Adds an integer that counts something: the same 32 bits, without a sign. */
static inline int voice_event_add_u32(voice_event_message_t *event, uint32_t id, uint32_t value) {
    return voice_event_add(event, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Adds a boolean: 0, or anything else for 1. */
static inline int voice_event_add_bool(voice_event_message_t *event, uint32_t id, int value) {
    const uint32_t word = value != 0;
    return voice_event_add(event, id, VOICE_VALUE_BOOLEAN, &word, sizeof word);
}
/** Adds a text with its terminator to a string's identifier. */
static inline int voice_event_add_text(voice_event_message_t *event, uint32_t id, const char *text) {
    return voice_event_add(event, id, VOICE_VALUE_STRING, text, voice_text_bytes(text));
}
/** Adds a data block of caller display: the hexadecimal text of libvoice_db_..._encode(), with its terminator. */
static inline int voice_event_add_block(voice_event_message_t *event, uint32_t id, const char *text) {
    return voice_event_add(event, id, VOICE_VALUE_HEX, text, voice_text_bytes(text));
}
/** Adds bytes to a hex identifier. */
static inline int voice_event_add_bytes(voice_event_message_t *event, uint32_t id, const void *value, uint32_t bytes) {
    return voice_event_add(event, id, VOICE_VALUE_HEX, value, bytes);
}
/** Sends it to the application, without waiting. @return NULL: handed to the bus; or the first thing that went wrong:
 * then nothing is sent. */
static inline const char *voice_event_send(voice_event_message_t *event) {
    if (event->wrong != NULL)
        return event->wrong;
    return libvoice_send_event(&event->record) == 0 ? NULL : VOICE_WRONG_NOT_SENT;
}
/** Sends an event without parameters. @return as voice_event_send(). */
static inline const char *voice_event_report(int32_t endpoint, uint32_t id, uint32_t line) {
    voice_event_message_t event;
    voice_event_begin(&event, endpoint, id, line);
    return voice_event_send(&event);
}
#define VOICE_KEYS "0123456789ABCD*#" /**< The keys of a telephone (ITU-T Q.23). */

/** The event that reports a key, or 0: there is no such key. The identifiers do not follow one upon the other. */
static inline uint32_t voice_key_event(char key) {
    static const uint32_t events[sizeof VOICE_KEYS - 1] = {
        LIBVOICE_EVENT_dd_d0, LIBVOICE_EVENT_dd_d1, LIBVOICE_EVENT_dd_d2, LIBVOICE_EVENT_dd_d3,
        LIBVOICE_EVENT_dd_d4, LIBVOICE_EVENT_dd_d5, LIBVOICE_EVENT_dd_d6, LIBVOICE_EVENT_dd_d7,
        LIBVOICE_EVENT_dd_d8, LIBVOICE_EVENT_dd_d9, LIBVOICE_EVENT_dd_da, LIBVOICE_EVENT_dd_db,
        LIBVOICE_EVENT_dd_dc, LIBVOICE_EVENT_dd_dd, LIBVOICE_EVENT_dd_ds, LIBVOICE_EVENT_dd_do,
    };
    for (uint32_t i = 0; i < sizeof VOICE_KEYS - 1; i++)
        if (VOICE_KEYS[i] == key)
            return events[i];
    return 0;
}
/** The key that an event reports, or 0: it reports none. */
static inline char voice_event_key(uint32_t id) {
    for (const char *key = VOICE_KEYS; *key != 0; key++)
        if (voice_key_event(*key) == id)
            return *key;
    return 0;
}
/** Sends the event of a key. @param key  one of VOICE_KEYS @return as voice_event_send(), or VOICE_WRONG_KEY. */
static inline const char *voice_event_report_digit(int32_t endpoint, uint32_t line, char key) {
    const uint32_t id = voice_key_event(key);
    return id == 0 ? VOICE_WRONG_KEY : voice_event_report(endpoint, id, line);
}
/**
 * Sends LIBVOICE_EVENT_g_cause: a media command cannot be followed, or media has failed. The application ends the call
 * of that line and shows `why`.
 * @param cause  voice_general_cause
 * @return as voice_event_send()
 */
static inline const char *voice_event_report_cause(int32_t endpoint, uint32_t line, int32_t cause, const char *why) {
    voice_event_message_t event;
    voice_event_begin(&event, endpoint, LIBVOICE_EVENT_g_cause, line);
    voice_event_add_i32(&event, LIBVOICE_PARAM_g_cause_generalcause, cause);
    voice_event_add_text(&event, LIBVOICE_PARAM_g_cause_failurecause, why);
    return voice_event_send(&event);
}

/* ---------------------------------------------------------------------------------- Signals (the application sends) */

/**
 * Begins a signal, with a new message identifier.
 * @param endpoint  endpoint number: selects the receiver
 * @param id        LIBVOICE_SIGNAL_...
 * @param line      call appearance: 0 or 1
 */
static inline void voice_signal_begin(voice_signal_message_t *signal, int32_t endpoint, uint32_t id, uint32_t line) {
    memset(&signal->record, 0, sizeof signal->record);
    signal->record.endpoint = endpoint;
    signal->record.carried[0] = id;
    signal->record.carried[1] = line;
    signal->record.carried[2] = get_new_msg_id();
    signal->wrong = NULL;
    if (voice_id_class(id) != VOICE_CLASS_SIGNAL || voice_id_value_type(id) != VOICE_VALUE_NONE)
        signal->wrong = VOICE_WRONG_SIGNAL;
}
/** Sets the flags: VOICE_SIGNAL_... */
static inline void voice_signal_set_flags(voice_signal_message_t *signal, uint32_t flags) {
    signal->record.carried[3] = flags;
}
/** Appends a value of a type. For the functions below. */
static inline int voice_signal_add(voice_signal_message_t *signal, uint32_t id, uint32_t type, const void *value,
                                   uint32_t bytes) {
    return voice_keep_wrong(&signal->wrong, voice_params_add(signal->params, sizeof signal->params,
                                                             &signal->record.length, id, type, value, bytes));
}
/** Adds an integer. @return no: the identifier is not that of an integer, or there is no room. */
static inline int voice_signal_add_i32(voice_signal_message_t *signal, uint32_t id, int32_t value) {
    return voice_signal_add(signal, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Adds an integer that counts something: the same 32 bits, without a sign. */
static inline int voice_signal_add_u32(voice_signal_message_t *signal, uint32_t id, uint32_t value) {
    return voice_signal_add(signal, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Adds a boolean: 0, or anything else for 1. */
static inline int voice_signal_add_bool(voice_signal_message_t *signal, uint32_t id, int value) {
    const uint32_t word = value != 0;
    return voice_signal_add(signal, id, VOICE_VALUE_BOOLEAN, &word, sizeof word);
}
/** Adds a text with its terminator to a string's identifier. */
static inline int voice_signal_add_text(voice_signal_message_t *signal, uint32_t id, const char *text) {
    return voice_signal_add(signal, id, VOICE_VALUE_STRING, text, voice_text_bytes(text));
}
/** Adds a data block of caller display: the hexadecimal text of libvoice_db_..._encode(), with its terminator. */
static inline int voice_signal_add_block(voice_signal_message_t *signal, uint32_t id, const char *text) {
    return voice_signal_add(signal, id, VOICE_VALUE_HEX, text, voice_text_bytes(text));
}
/** Adds bytes to a hex identifier. */
static inline int voice_signal_add_bytes(voice_signal_message_t *signal, uint32_t id, const void *value,
                                         uint32_t bytes) {
    return voice_signal_add(signal, id, VOICE_VALUE_HEX, value, bytes);
}
/** Adds the cadence of LIBVOICE_SIGNAL_al_ri. @param ms  milliseconds on and off in turn @param count  how many, even
 * and not 0 @return no: another count, or there is no room. */
static inline int voice_signal_add_cadence(voice_signal_message_t *signal, const uint32_t *ms, uint32_t count) {
    if (count == 0 || count % 2 != 0)
        return voice_keep_wrong(&signal->wrong, VOICE_WRONG_VALUE);
    return voice_signal_add_bytes(signal, LIBVOICE_PARAM_al_ri_cad, ms, count * (uint32_t)sizeof *ms);
}
/** Adds the tones of LIBVOICE_SIGNAL_tonegen_pt, to be played in turn. @return no: there is none, or no room. */
static inline int voice_signal_add_tones(voice_signal_message_t *signal, const voice_tone_t *tones, uint32_t count) {
    if (count == 0)
        return voice_keep_wrong(&signal->wrong, VOICE_WRONG_VALUE);
    return voice_signal_add_bytes(signal, LIBVOICE_PARAM_tonegen_pt_tl, tones, count * (uint32_t)sizeof *tones);
}
/** Sends it to the endpoint that it names, without waiting. @return NULL: handed to the library, whose trace tells what
 * the bus rejects; or the first thing that went wrong: then nothing is sent. */
static inline const char *voice_signal_send(voice_signal_message_t *signal) {
    if (signal->wrong != NULL)
        return signal->wrong;
    libvoice_send_signal(&signal->record); /* traces an unknown endpoint, and has no result */
    return libvoice_get_endpoint_path(signal->record.endpoint) != NULL ? NULL : VOICE_WRONG_ENDPOINT;
}
/** Starts a signal without parameters. @return as voice_signal_send(). */
static inline const char *voice_signal_start(int32_t endpoint, uint32_t id, uint32_t line) {
    voice_signal_message_t signal;
    voice_signal_begin(&signal, endpoint, id, line);
    return voice_signal_send(&signal);
}
/** Stops a signal. @return as voice_signal_send(). */
static inline const char *voice_signal_stop(int32_t endpoint, uint32_t id, uint32_t line) {
    voice_signal_message_t signal;
    voice_signal_begin(&signal, endpoint, id, line);
    voice_signal_set_flags(&signal, VOICE_SIGNAL_STOP);
    return voice_signal_send(&signal);
}

/* -------------------------------------------------------------------------------------------------- Parameter sets
 * A set begins with LIBVOICE_PARAM_zil_ep_id, the number of the endpoint that it is about. A "set" goes on with the
 * items to take; a "get" with empty items, whose identifiers are asked for; its answer with those that the endpoint
 * has.
 */

/** The endpoint number of a set, or -1: it has none. */
static inline int32_t voice_set_endpoint(const libvoice_param_set_t *set) {
    int32_t endpoint = -1;
    voice_params_get_i32(voice_set_params(set), LIBVOICE_PARAM_zil_ep_id, &endpoint);
    return endpoint;
}

/** The answer to a "get" while it is written. */
typedef struct voice_set_message {
    libvoice_param_block_t *block; /**< what is answered: malloc()ed by the callback, free()d by the library */
    const char *wrong;             /**< the first thing that went wrong, or NULL */
} voice_set_message_t;

/** Appends a value of a type. For the functions below. */
static inline int voice_set_add(voice_set_message_t *set, uint32_t id, uint32_t type, const void *value,
                                uint32_t bytes) {
    if (set->block == NULL)
        return 0;
    return voice_keep_wrong(&set->wrong, voice_params_add(set->block->buffer, sizeof set->block->buffer,
                                                          &set->block->head.length, id, type, value, bytes));
}
/** Adds an integer. @return no: the identifier is not that of an integer, or there is no room. */
static inline int voice_set_add_i32(voice_set_message_t *set, uint32_t id, int32_t value) {
    return voice_set_add(set, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Adds an integer that counts something: the same 32 bits, without a sign. */
static inline int voice_set_add_u32(voice_set_message_t *set, uint32_t id, uint32_t value) {
    return voice_set_add(set, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Adds a boolean: 0, or anything else for 1. */
static inline int voice_set_add_bool(voice_set_message_t *set, uint32_t id, int value) {
    const uint32_t word = value != 0;
    return voice_set_add(set, id, VOICE_VALUE_BOOLEAN, &word, sizeof word);
}
/** Adds a text with its terminator to a string's identifier. */
static inline int voice_set_add_text(voice_set_message_t *set, uint32_t id, const char *text) {
    return voice_set_add(set, id, VOICE_VALUE_STRING, text, voice_text_bytes(text));
}
/** Adds bytes to a hex identifier. */
static inline int voice_set_add_bytes(voice_set_message_t *set, uint32_t id, const void *value, uint32_t bytes) {
    return voice_set_add(set, id, VOICE_VALUE_HEX, value, bytes);
}
/** Adds an empty item: what a "get" asks for. For tests; libvoice_get_params() asks for one parameter. */
static inline int voice_set_ask(voice_set_message_t *set, uint32_t id) {
    return voice_set_add(set, id, voice_id_value_type(id), "", 0);
}
/**
 * Begins the answer of voice_plugin_get.
 * @param block     malloc(sizeof *block); a null one is remembered like everything that goes wrong
 * @param endpoint  whose parameters these are: the first item
 */
static inline void voice_set_begin(voice_set_message_t *set, libvoice_param_block_t *block, int32_t endpoint) {
    set->block = block;
    set->wrong = block == NULL ? VOICE_WRONG_BLOCK : NULL;
    if (block == NULL)
        return;
    memset(block, 0, sizeof *block);
    voice_set_add_i32(set, LIBVOICE_PARAM_zil_ep_id, endpoint);
}
/**
 * Ends it: the set is the library's, also when the callback then fails.
 * @param result  that of voice_plugin_get
 * @return NULL, or the first thing that went wrong
 */
static inline const char *voice_set_end(voice_set_message_t *set, libvoice_param_set_t **result) {
    *result = set->block == NULL ? NULL : &set->block->head;
    return set->wrong;
}

/** Application: sets a parameter of an endpoint. A value of up to 236 bytes. @return NULL: handed to the bus; or a
 * sentence. */
static inline const char *voice_endpoint_set(int32_t endpoint, uint32_t id, uint32_t type, const void *value,
                                             uint32_t bytes) {
    if (voice_id_value_type(id) != type)
        return VOICE_WRONG_TYPE;
    if (value == NULL)
        return VOICE_WRONG_VALUE;
    if (libvoice_get_endpoint_path(endpoint) == NULL)
        return VOICE_WRONG_ENDPOINT;
    if (bytes > LIBVOICE_PARAM_BLOCK_BYTES - 20) /* behind the endpoint's item of 12 bytes, and a head of 8 */
        return VOICE_WRONG_ROOM;
    return libvoice_set_params(endpoint, id, value, bytes) ? NULL : VOICE_WRONG_NOT_SENT;
}
/** Application: sets an integer. @return as voice_endpoint_set(). */
static inline const char *voice_endpoint_set_i32(int32_t endpoint, uint32_t id, int32_t value) {
    return voice_endpoint_set(endpoint, id, VOICE_VALUE_INTEGER, &value, sizeof value);
}
/** Application: sets a boolean. @return as voice_endpoint_set(). */
static inline const char *voice_endpoint_set_bool(int32_t endpoint, uint32_t id, int value) {
    const uint32_t word = value != 0;
    return voice_endpoint_set(endpoint, id, VOICE_VALUE_BOOLEAN, &word, sizeof word);
}
/** Application: sets a text. @return as voice_endpoint_set(). */
static inline const char *voice_endpoint_set_text(int32_t endpoint, uint32_t id, const char *text) {
    return voice_endpoint_set(endpoint, id, VOICE_VALUE_STRING, text, voice_text_bytes(text));
}
/**
 * Application: the answer to a "get", in voice_app_get_done. It stands inside the request: read it before destroying
 * that, and free() request_data() too.
 * @param params   out: its items
 * @param context  out: what libvoice_get_params() was given
 * @return no: the plugin answered an error, nothing, or is gone; `context` is set all the same
 */
static inline int voice_get_answer(request_t *request, voice_params_t *params, uint32_t *context) {
    libvoice_param_set_t head;
    const void *bytes = NULL;
    uint32_t length = 0;
    if (request_data(request) != NULL)
        memcpy(context, request_data(request), sizeof *context);
    if (!_reply_ok(request_reply(request)) ||
        !variant_toByteArray(_reply_return_value(request_reply(request)), &bytes, &length) || length < sizeof head)
        return 0;
    memcpy(&head, bytes, sizeof head);
    if (head.length > length - sizeof head)
        return 0;
    params->bytes = (const uint8_t *)bytes + sizeof head;
    params->length = head.length;
    return 1;
}

/* ---------------------------------------------------------------------------------------------------------- Media */

/** What one direction of a stream carries. */
typedef struct voice_direction {
    uint32_t codec;        /**< LIBVOICE_CODEC_... */
    uint32_t payload_type; /**< RTP payload type, 0 to 127 */
    uint32_t ptime;        /**< packet time in ms */
} voice_direction_t;

/** Connection or stream information, read. */
typedef struct voice_media {
    uint32_t mode;              /**< voice_stream_mode */
    voice_direction_t sent;     /**< by the endpoint: upstream */
    voice_direction_t received; /**< by the endpoint: downstream */
} voice_media_t;

/** One codec in both directions, in packets of 20 ms. */
static inline voice_media_t voice_media_of(const voice_codec_t *codec, uint32_t mode) {
    const voice_direction_t way = {codec->codec, codec->payload_type, 20};
    const voice_media_t media = {mode, way, way};
    return media;
}
/** The seven `sdp` items, in the agreed order. For the functions below. */
static inline void voice_media_write(const voice_media_t *media, uint32_t *params, uint32_t *length) {
    const uint32_t items[7][2] = {
        {LIBVOICE_PARAM_sdp_stream_mode, media->mode},
        {LIBVOICE_PARAM_sdp_upstream_codec, media->sent.codec},
        {LIBVOICE_PARAM_sdp_upstream_ptime, media->sent.ptime},
        {LIBVOICE_PARAM_sdp_upstream_payload, media->sent.payload_type},
        {LIBVOICE_PARAM_sdp_downstream_codec, media->received.codec},
        {LIBVOICE_PARAM_sdp_downstream_ptime, media->received.ptime},
        {LIBVOICE_PARAM_sdp_downstream_payload, media->received.payload_type},
    };
    for (int i = 0; i < 7; i++) /* 84 bytes of 696 */
        voice_params_add(params, VOICE_CNX_PARAMETER_BYTES, length, items[i][0], VOICE_VALUE_INTEGER, &items[i][1], 4);
}
/** Reads them; a direction without packet time has 20 ms, a record without mode both directions. */
static inline const char *voice_media_read(uint32_t version, const uint32_t *words, uint32_t length,
                                           voice_media_t *media) {
    const voice_params_t params = {(const uint8_t *)words, length};
    voice_media_t read = {VOICE_MODE_SEND_RECEIVE, {0, 0, 20}, {0, 0, 20}};
    if (version != VOICE_CNX_VERSION)
        return "media record of another version";
    if (length > VOICE_CNX_PARAMETER_BYTES)
        return "media record is longer than its room";
    voice_params_get_u32(params, LIBVOICE_PARAM_sdp_stream_mode, &read.mode);
    voice_params_get_u32(params, LIBVOICE_PARAM_sdp_upstream_ptime, &read.sent.ptime);
    voice_params_get_u32(params, LIBVOICE_PARAM_sdp_downstream_ptime, &read.received.ptime);
    if (!voice_params_get_u32(params, LIBVOICE_PARAM_sdp_upstream_codec, &read.sent.codec) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_upstream_payload, &read.sent.payload_type) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_downstream_codec, &read.received.codec) ||
        !voice_params_get_u32(params, LIBVOICE_PARAM_sdp_downstream_payload, &read.received.payload_type))
        return "media record lacks a codec or its payload type";
    if (read.mode > VOICE_MODE_SEND_RECEIVE)
        return "unknown stream mode";
    if (read.sent.payload_type > 127 || read.received.payload_type > 127)
        return "a payload type is from 0 to 127";
    *media = read;
    return NULL;
}

/** The items of a media record: their length stands at byte `at` of it, they behind that. None when the length is more
 * than a record has room for. For the functions below. */
static inline voice_params_t voice_media_params(const void *record, size_t at) {
    voice_params_t params = {(const uint8_t *)record + at + sizeof(uint32_t), 0};
    memcpy(&params.length, (const uint8_t *)record + at, sizeof params.length);
    if (params.length > VOICE_CNX_PARAMETER_BYTES)
        params.length = 0;
    return params;
}

/** Fills connection information for libvoice_create_media() and libvoice_modify_media(), without addresses. */
static inline void voice_connection_begin(voice_cnx_info_t *info, const voice_media_t *media) {
    memset(info, 0, sizeof *info);
    info->version = VOICE_CNX_VERSION;
    voice_media_write(media, info->params, &info->length);
}
/** Adds the addresses that convert-media wants: where the plugin's library opens the sockets, and where they lead. */
static inline void voice_connection_set_addresses(voice_cnx_info_t *info, const struct sockaddr_in *local,
                                                  const struct sockaddr_in *remote) {
    memcpy(info->local, local, sizeof info->local);
    memcpy(info->remote, remote, sizeof info->remote);
}
/**
 * Reads the "cnx_info" of voice_plugin_create, voice_plugin_modify and their DSP sisters.
 * @return NULL; or a sentence, and `media` is as it was
 */
static inline const char *voice_connection_read(const void *cnx_info, voice_media_t *media) {
    voice_cnx_info_t info;
    memcpy(&info, cnx_info, LIBVOICE_CNX_INFO_BYTES); /* at least that many are there */
    return voice_media_read(info.version, info.params, info.length, media);
}
/** All items of connection information, also those that voice_media_t has no place for. */
static inline voice_params_t voice_connection_params(const void *cnx_info) {
    return voice_media_params(cnx_info, offsetof(voice_cnx_info_t, length));
}
/** Reads the two addresses behind it: only with convert-media on. */
static inline void voice_connection_addresses(const void *cnx_info, struct sockaddr_in *local,
                                              struct sockaddr_in *remote) {
    memcpy(local, (const uint8_t *)cnx_info + LIBVOICE_CNX_INFO_LOCAL, 16);
    memcpy(remote, (const uint8_t *)cnx_info + LIBVOICE_CNX_INFO_REMOTE, 16);
}

/** Fills stream information for libvoice_add_stream() and libvoice_modify_stream(). @param stream  its id, from 1 */
static inline void voice_stream_begin(voice_stream_info_t *info, uint32_t stream, const voice_media_t *media) {
    memset(info, 0, sizeof *info);
    info->stream = stream;
    info->mode = media->mode;
    info->version = VOICE_CNX_VERSION;
    voice_media_write(media, info->params, &info->length);
}
/**
 * Reads the "stream_info" of voice_plugin_add_stream and voice_plugin_modify_stream, which free() it themselves.
 * @param stream  out: which stream of the context; also after a sentence
 * @return NULL; or a sentence, and `media` is as it was
 */
static inline const char *voice_stream_read(const void *stream_info, voice_media_t *media, uint32_t *stream) {
    voice_stream_info_t info;
    voice_media_t read;
    memcpy(&info, stream_info, sizeof info);
    *stream = info.stream;
    const char *wrong = voice_media_read(info.version, info.params, info.length, &read);
    if (wrong != NULL || info.mode > VOICE_MODE_SEND_RECEIVE)
        return wrong != NULL ? wrong : "unknown stream mode";
    *media = read;
    media->mode = info.mode;
    return NULL;
}
/** All items of stream information, as voice_connection_params(). */
static inline voice_params_t voice_stream_params(const void *stream_info) {
    return voice_media_params(stream_info, offsetof(voice_stream_info_t, length));
}

#define VOICE_STREAM_DESCRIPTORS 3 /**< Descriptors that libvoice_add_stream() sends, by their places below. */

/** Which descriptor is which. */
enum voice_descriptor {
    VOICE_DESCRIPTOR_MEDIA = 0,   /**< RTP: a connected UDP socket; in a "modify" -1 keeps what is there */
    VOICE_DESCRIPTOR_CONTROL = 1, /**< RTCP, or -1 */
    VOICE_DESCRIPTOR_FAX = 2,     /**< or -1 */
};

/**
 * Closes the descriptors of a media callback from one on: they are the callback's, also when it rejects, and also those
 * that no well-behaved application sends.
 * @param count  LIBVOICE_DESCRIPTORS in voice_plugin_create and voice_plugin_modify, and with this library in
 *               voice_plugin_add_stream too; there VOICE_STREAM_DESCRIPTORS with another one, which need not set more
 */
static inline void voice_descriptors_close(int32_t *const *descriptors, int first, int count) {
    for (int i = first; i < count; i++)
        if ((*descriptors)[i] >= 0)
            close((*descriptors)[i]);
}

/** Application: a codec that an endpoint registered, best first. @return no: past the last. */
static inline int voice_endpoint_codec(const libvoice_endpoint_t *entry, uint32_t index, voice_codec_t *codec) {
    if (index >= entry->num_of_codecs || index >= LIBVOICE_ENDPOINT_CODECS)
        return 0;
    memcpy(codec, &entry->codec_list[index], sizeof *codec);
    return 1;
}
/** Whether a codec carries sound by itself. Comfort noise, events, tones, redundancy, data and fax go beside or instead. */
static inline int voice_codec_is_audio(uint32_t codec) {
    switch (codec) {
    case LIBVOICE_CODEC_CN:
    case LIBVOICE_CODEC_CLEARMODE:
    case LIBVOICE_CODEC_TELEPHONE_EVENT:
    case LIBVOICE_CODEC_TONE:
    case LIBVOICE_CODEC_RED:
    case LIBVOICE_CODEC_T38:
        return 0;
    default:
        return 1;
    }
}

/**
 * Application: the best codec of one endpoint that the other one offers too, with which a call can begin: one that
 * carries sound (voice_codec_is_audio). @return no: they have none in common.
 */
static inline int voice_endpoint_common_codec(const libvoice_endpoint_t *one, const libvoice_endpoint_t *other,
                                              voice_codec_t *codec) {
    voice_codec_t offered, taken;
    for (uint32_t i = 0; voice_endpoint_codec(one, i, &offered); i++)
        for (uint32_t k = 0; voice_endpoint_codec(other, k, &taken); k++)
            if (offered.codec == taken.codec && voice_codec_is_audio(offered.codec)) {
                *codec = offered;
                return 1;
            }
    return 0;
}

#endif
