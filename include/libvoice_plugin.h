/* SPDX-License-Identifier: MIT */
/**
 * @file libvoice_plugin.h
 * The contract between libvoice_plugin and the processes that link it.
 *
 * A gateway's telephony runs in separate processes: voice plugins, which drive FXS, FXO, DECT and DSP hardware, and the
 * voice application, which runs the call logic. Both link this library; it joins them over the gateway's local message
 * bus. A plugin registers itself and its endpoints (lines, handsets, channels), receives signals, media commands and
 * parameter requests for them, and sends events back. Every decision about telephony is the host's: the library checks
 * and moves data and calls a function of the host's callback table.
 *
 * If a function does not appear in this file it is not part of the interface.
 *
 * Rules that hold everywhere:
 * - One thread. Every function runs on the thread that runs the host's bus loop; nothing is locked. Only registration
 *   (libvoice_kex_register_plugin, libvoice_register_endpoint, libvoice_deregister_endpoint) blocks, until the answer
 *   arrives.
 * - Fixed tables. Pointers into them stay valid for the life of the process; what they show changes when the entry is
 *   reused.
 * - "code" is a result code: 0 success, else one of libvoice_result (texts: libvoice_strerror). "yes" is 1 or 0. An
 *   index or a number is -1 when there is none.
 * - A null name, handle or message and a broken record from outside are answered as documented and never crash. Cursors
 *   and output pointers must be valid.
 * - Memory that changes hands is malloc()ed and free()d.
 * - Identifiers, lengths and message heads are in the host's byte order.
 * - On failure, outputs keep what they held unless a function says otherwise.
 */
#ifndef LIBVOICE_PLUGIN_H
#define LIBVOICE_PLUGIN_H

#include <stdint.h>

#include "kex.h"
#include "libvoice_ids.h"

#ifdef __GNUC__
#pragma GCC visibility push(default) /* what stands here is exported, whatever the including file is compiled with */
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct sockaddr_in; /* <netinet/in.h> */

/* Version of this header; libvoice_version() gives that of the library that runs. */
#define LIBVOICE_VERSION_MAJOR 1
#define LIBVOICE_VERSION_MINOR 0
#define LIBVOICE_VERSION_PATCH 0
#define LIBVOICE_VERSION "1.0.0"

/** The library's version, "major.minor.patch". Constant text. */
const char *libvoice_version(void);

/* ------------------------------------------------------------------------------------------------- Result codes
 * Two families of numbers. The library's own functions answer with libvoice_result; requests to a plugin and the voice
 * application's side of the bus use voice_service_result, which shares 0 to 9. */

/** Result codes of the library. */
enum libvoice_result {
    LIBVOICE_OK = 0,                   /**< success */
    LIBVOICE_ERR_NOT_CONNECTED = 1,    /**< no connection to the voice application, or it was lost */
    LIBVOICE_ERR_INVALID_ENDPOINT = 2, /**< no endpoint has that number or name */
    LIBVOICE_ERR_INVALID_TYPE = 3,     /**< unknown signal or event */
    LIBVOICE_ERR_INVALID_ARG = 4,      /**< an argument is missing or wrong */
    LIBVOICE_ERR_MEDIA_FAILED = 5,     /**< media could not be set up */
    LIBVOICE_ERR_MEDIA_INACTIVE = 6,   /**< there is no media to act on */
    LIBVOICE_ERR_PARAM_NOT_FOUND = 7,  /**< the buffer holds no such item (from here on) */
    LIBVOICE_ERR_PARAM_FORMAT = 8,     /**< the buffer ends inside an item's head */
    LIBVOICE_ERR_PARAM_NO_SPACE = 9,   /**< the item does not fit; nothing was written */
};

/** Result codes of the voice service. 11 is deliberately empty. */
enum voice_service_result {
    VOICE_SERVICE_OK = 0,                    /**< success; for requests: handed to the bus */
    VOICE_SERVICE_ERR_NOT_CONNECTED = 1,     /**< no connection, or it was lost */
    VOICE_SERVICE_ERR_INVALID_ENDPOINT = 2,  /**< no endpoint has that number */
    VOICE_SERVICE_ERR_INVALID_TYPE = 3,      /**< unknown signal or event */
    VOICE_SERVICE_ERR_INVALID_ARG = 4,       /**< an argument is wrong; context requests: the send failed */
    VOICE_SERVICE_ERR_MEDIA_FAILED = 5,      /**< media could not be set up, or the send failed */
    VOICE_SERVICE_ERR_MEDIA_INACTIVE = 6,    /**< there is no media to act on */
    VOICE_SERVICE_ERR_PARAM_NOT_FOUND = 7,   /**< no such parameter */
    VOICE_SERVICE_ERR_PARAM_FORMAT = 8,      /**< malformed parameter buffer */
    VOICE_SERVICE_ERR_PARAM_NO_SPACE = 9,    /**< the item does not fit */
    VOICE_SERVICE_ERR_UNKNOWN_PLUGIN = 10,   /**< a plugin that never registered */
    VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE = 12 /**< no room for an endpoint; requests: the request could not be made */
};

#define LIBVOICE_RESULT_TEXTS 10      /**< Entries of libvoice_result_texts. */
#define VOICE_SERVICE_RESULT_TEXTS 13 /**< Entries of voice_service_result_texts. */

/** The texts of libvoice_result, indexed by code. Read-only. */
extern const char *const libvoice_result_texts[LIBVOICE_RESULT_TEXTS];
/** The texts of voice_service_result, indexed by code; that of 11 is NULL. Read-only. */
extern const char *const voice_service_result_texts[VOICE_SERVICE_RESULT_TEXTS];

/** The text of a library result code. Never NULL: "Uknowm error value" from 10 on. Constant text, no trace. */
const char *libvoice_strerror(uint32_t code);
/** The text of a voice service result code: NULL for 11; "invalid error code" and one level-200 trace message from 13
 * on. */
const char *voice_service_strerror(uint32_t code);

/* ---------------------------------------------------------------------------------------------- Parameter buffer
 * Every signal, event and parameter set carries its arguments as a flat run of items, without a head, a count or an end
 * mark:
 *
 *      0         4         8            8+length
 *     +---------+---------+------------+-------------+
 *     | id      | length  | value ...  | 0 to 3 zeros|   whole 32-bit words, host byte order
 *     +---------+---------+------------+-------------+
 *
 * A buffer starts on a word boundary. It travels as a pair: `cursor`, the next byte to write or read, and `remaining`,
 * the bytes still free or unread. Writing starts with the capacity, reading with the used size. */

/**
 * Appends one item at *cursor and moves the pair behind it.
 * @param id      identifier (libvoice_ids.h)
 * @param length  bytes of value, without padding
 * @param value   the bytes; not read when length is 0
 * @return LIBVOICE_OK; LIBVOICE_ERR_PARAM_NO_SPACE, or LIBVOICE_ERR_INVALID_ARG for a null value with a length: then
 *         nothing is written and nothing moves
 */
uint32_t libvoice_add_param(uint32_t id, uint32_t length, const void *value, uint8_t **cursor, uint32_t *remaining);

/**
 * Finds the next item with an identifier, from *cursor on. Every item examined is consumed, so that a second call finds
 * the next occurrence. To look up several identifiers, restart each search from a saved pair.
 * @param length  out: bytes of value
 * @param value   out: pointer into the buffer, no copy; valid as long as the buffer
 * @return LIBVOICE_OK: found, or the item is cut off by the end of the buffer (then one level-100 trace message, and
 *         the outputs keep what they held: preset them); LIBVOICE_ERR_PARAM_NOT_FOUND; LIBVOICE_ERR_PARAM_FORMAT: a
 *         length word is cut off
 */
uint32_t libvoice_get_param(uint32_t id, uint32_t *length, uint8_t **value, uint8_t **cursor, uint32_t *remaining);

/**
 * Reads the item at *cursor, whatever it is, and moves behind it: walk a buffer while *remaining is not 0.
 * @return LIBVOICE_OK: the item, or it is cut off (outputs keep what they held: preset them);
 *         LIBVOICE_ERR_PARAM_FORMAT: fewer than 8 bytes were left
 */
uint32_t libvoice_get_current_param(uint32_t *id, uint32_t *length, uint8_t **value, uint8_t **cursor,
                                    uint32_t *remaining);

/* ---------------------------------------------------------------------------------------------- Names of identifiers
 * libvoice_ids.h lists the vocabulary (packages of ITU-T H.248 and the system's own). Look-ups take constant time and
 * no heap. */

/** An identifier's name ("LIBVOICE_SIGNAL_cg_dt"); "sig_nil" for 0, "????" for any other unknown. Constant text. */
const char *libvoice_param_str(uint32_t id);
/** The identifier of a name, compared exactly; 0xFFFFFFFF for NULL, an unknown name, and "sig_nil". */
uint32_t libvoice_str_to_param(const char *name);

/**
 * Prints a parameter buffer as one text: class, name and value of each item, a blank after each. The text is cut at the
 * buffer's end and always terminated there. 800 bytes per 64 bytes of parameters always suffice.
 * @param text      buffer of `size` bytes; untouched when `length` is 0
 * @param position  where in text to start, 0 to size
 * @param params    parameter buffer of `length` bytes
 */
void dump_msg(char *text, int32_t position, int32_t size, const void *params, uint32_t length);

/** Writes a level-100 trace message "%p %08X" for each of the first length/4 byte positions: address and the word read
 * there. */
void debug_libvoice_print_buffer(const void *buffer, uint32_t length);

/* ------------------------------------------------------------------------------------- Codec numbers, handset types
 * A codec number (LIBVOICE_PARAM_sdp_*_codec, libvoice_ep_supported_codec) is not the RTP payload type (sdp_*_payload):
 * 0 to 95 is the codec's static payload type (RFC 3551, IANA), 96 to 127 never a codec, 128 to 191 codecs with dynamic
 * payload types, frozen here, 192 to 255 the vendor's. */

/** Codec numbers. The static ones carry their RFC 3551 payload type. */
enum libvoice_codec {
    LIBVOICE_CODEC_PCMU = 0,              /**< ITU-T G.711 mu-law, RFC 3551 */
    LIBVOICE_CODEC_GSM_FR = 3,            /**< GSM full rate, RFC 3551 */
    LIBVOICE_CODEC_G723 = 4,              /**< ITU-T G.723.1, RFC 3551 */
    LIBVOICE_CODEC_DVI4_8000 = 5,         /**< DVI4, 8 kHz, RFC 3551 */
    LIBVOICE_CODEC_DVI4_16000 = 6,        /**< DVI4, 16 kHz */
    LIBVOICE_CODEC_LPC = 7,               /**< LPC, RFC 3551 */
    LIBVOICE_CODEC_PCMA = 8,              /**< ITU-T G.711 A-law, RFC 3551 */
    LIBVOICE_CODEC_G722 = 9,              /**< ITU-T G.722: audio 16 kHz, RTP clock 8 kHz, RFC 3551 */
    LIBVOICE_CODEC_L16_STEREO = 10,       /**< linear 16 bit, two channels, RFC 3551 */
    LIBVOICE_CODEC_L16_MONO = 11,         /**< linear 16 bit, one channel, RFC 3551 */
    LIBVOICE_CODEC_QCELP = 12,            /**< QCELP, RFC 2658 */
    LIBVOICE_CODEC_CN = 13,               /**< comfort noise, RFC 3389 */
    LIBVOICE_CODEC_G728 = 15,             /**< ITU-T G.728, RFC 3551 */
    LIBVOICE_CODEC_DVI4_11025 = 16,       /**< DVI4, 11.025 kHz */
    LIBVOICE_CODEC_DVI4_22050 = 17,       /**< DVI4, 22.05 kHz */
    LIBVOICE_CODEC_G729 = 18,             /**< ITU-T G.729 and its annex A, RFC 3551 */
    LIBVOICE_CODEC_G726_16 = 128,         /**< ITU-T G.726 at 16 kbit/s, RFC 3551 packing */
    LIBVOICE_CODEC_G726_24 = 129,         /**< ... at 24 kbit/s */
    LIBVOICE_CODEC_G726_32 = 130,         /**< ... at 32 kbit/s */
    LIBVOICE_CODEC_G726_40 = 131,         /**< ... at 40 kbit/s */
    LIBVOICE_CODEC_AAL2_G726_16 = 132,    /**< G.726 at 16 kbit/s, AAL2 packing */
    LIBVOICE_CODEC_AAL2_G726_24 = 133,    /**< ... at 24 kbit/s */
    LIBVOICE_CODEC_AAL2_G726_32 = 134,    /**< ... at 32 kbit/s */
    LIBVOICE_CODEC_AAL2_G726_40 = 135,    /**< ... at 40 kbit/s */
    LIBVOICE_CODEC_G729D = 136,           /**< ITU-T G.729 annex D */
    LIBVOICE_CODEC_G729E = 137,           /**< ITU-T G.729 annex E */
    LIBVOICE_CODEC_G729_1 = 138,          /**< ITU-T G.729.1, RFC 4749 */
    LIBVOICE_CODEC_G722_1 = 139,          /**< ITU-T G.722.1, RFC 5577 */
    LIBVOICE_CODEC_G722_1C = 140,         /**< ITU-T G.722.1 annex C */
    LIBVOICE_CODEC_AMR = 141,             /**< AMR, RFC 4867 */
    LIBVOICE_CODEC_AMR_WB = 142,          /**< AMR-WB, RFC 4867 */
    LIBVOICE_CODEC_EVS = 143,             /**< EVS at its default bandwidth, 3GPP TS 26.445 */
    LIBVOICE_CODEC_ILBC = 144,            /**< iLBC, RFC 3952 */
    LIBVOICE_CODEC_GSM_EFR = 145,         /**< GSM enhanced full rate, RFC 3551 */
    LIBVOICE_CODEC_GSM_HR = 146,          /**< GSM half rate, RFC 5993 */
    LIBVOICE_CODEC_SPEEX_NB = 147,        /**< Speex narrowband, RFC 5574 */
    LIBVOICE_CODEC_SPEEX_WB = 148,        /**< Speex wideband */
    LIBVOICE_CODEC_SPEEX_UWB = 149,       /**< Speex ultra-wideband */
    LIBVOICE_CODEC_OPUS = 150,            /**< Opus, RFC 7587 */
    LIBVOICE_CODEC_L16_8000 = 151,        /**< linear 16 bit mono, 8 kHz */
    LIBVOICE_CODEC_L16_16000 = 152,       /**< ... 16 kHz */
    LIBVOICE_CODEC_L16_48000 = 153,       /**< ... 48 kHz */
    LIBVOICE_CODEC_CLEARMODE = 154,       /**< 64 kbit/s transparent data, RFC 4040 */
    LIBVOICE_CODEC_TELEPHONE_EVENT = 155, /**< DTMF and other events, RFC 4733 */
    LIBVOICE_CODEC_TONE = 156,            /**< tones, RFC 4733 */
    LIBVOICE_CODEC_RED = 157,             /**< redundant audio, RFC 2198 */
    LIBVOICE_CODEC_T38 = 158,             /**< ITU-T T.38 fax over RTP, RFC 4612 */
    LIBVOICE_CODEC_LC3PLUS_8000 = 159,    /**< LC3plus, 8 kHz, ETSI TS 103 634 */
    LIBVOICE_CODEC_LC3PLUS_16000 = 160,   /**< ... 16 kHz */
    LIBVOICE_CODEC_LC3PLUS_24000 = 161,   /**< ... 24 kHz */
    LIBVOICE_CODEC_LC3PLUS_32000 = 162,   /**< ... 32 kHz */
    LIBVOICE_CODEC_LC3PLUS_48000 = 163,   /**< ... 48 kHz */
    LIBVOICE_CODEC_AAC_LD = 164,          /**< MPEG-4 ER AAC-LD, the codec of DECT super-wideband */
    LIBVOICE_CODEC_EVRC = 165,            /**< EVRC, RFC 3558 */
    LIBVOICE_CODEC_EVRC_B = 166,          /**< EVRC-B, RFC 4788 */
    LIBVOICE_CODEC_G711_0 = 167,          /**< ITU-T G.711.0, RFC 7655 */
    LIBVOICE_CODEC_G711_1 = 168,          /**< ITU-T G.711.1, RFC 5391 */
};

/** Sampling rate of a codec's audio in Hz (not its RTP clock: they differ for G.722). 0 and one level-100 trace message
 * of zone "MEDIA" for a number without one fixed rate. */
uint32_t libvoice_codec_sampling_rate(int32_t codec);

/** Text of a DECT handset type (the value of LIBVOICE_PARAM_zil_dect_pp_type): 0 "unknown", 1 "GAP" (EN 300 444), 2 to
 * 5 "CAT-iq 1.0", "2.0", "2.1", "3.0" (TS 102 527), 6 "ULE" (TS 102 939), 7 "HAN-FUN", 8 "repeater" (EN 300 700), 9
 * "headset"; else "????". Constant text, no trace. */
const char *libvoice_dect_pp_type_str(int32_t type);

/* -------------------------------------------------------------------------------------------------- Message records
 * What travels as bytes: a fixed head, then `length` bytes of parameter buffer. The heads have the same size on every
 * host. The pointer word has 32 bits: it holds the pointer where pointers have 32 bits and its low half elsewhere, so
 * use the inline accessors below. When a record is sent, the pointer word goes out as it stands.
 *
 *     signal  0 endpoint | 4 .. 19 the two hosts' own words | 20 pointer | 24 length | 28 parameter buffer ...
 *     event   0 endpoint | 4 .. 11 the two hosts' own words | 12 pointer | 16 length | 20 parameter buffer ...
 *     set     0 pointer | 4 length | 8 parameter buffer ...
 *
 * A record that a callback receives is the library's and freed when the callback returns: copy what you keep. */

/** Signal message: the voice application tells an endpoint to do something. 28 bytes. */
typedef struct libvoice_signal {
    int32_t endpoint;    /**< endpoint number; selects the receiver */
    uint32_t carried[4]; /**< carried unread; agreed between application and plugin */
    uint32_t params;     /**< pointer word */
    uint32_t length;     /**< bytes of parameter buffer behind the head */
} libvoice_signal_t;

/** Event message: an endpoint reports what happened. 20 bytes. */
typedef struct libvoice_event {
    int32_t endpoint;    /**< endpoint number; in a plugin's own event callback its local endpoint */
    uint32_t carried[2]; /**< carried unread; agreed between application and plugin */
    uint32_t params;     /**< pointer word */
    uint32_t length;     /**< bytes of parameter buffer behind the head */
} libvoice_event_t;

/** Parameter set: head of a run of parameters, asked for or given. 8 bytes. */
typedef struct libvoice_param_set {
    uint32_t params; /**< pointer word */
    uint32_t length; /**< bytes of parameter buffer behind the head */
} libvoice_param_set_t;

#define LIBVOICE_PARAM_BLOCK_BYTES 256 /**< Capacity of a parameter block's buffer. */

/** A parameter set with room to fill it: what param_set_initialize() makes. 264 bytes. */
typedef struct libvoice_param_block {
    libvoice_param_set_t head;                  /**< its pointer word shows buffer; length counts the bytes used */
    uint8_t buffer[LIBVOICE_PARAM_BLOCK_BYTES]; /**< parameter buffer */
} libvoice_param_block_t;

/** The parameter buffer of a signal: the byte after its head. Valid on hosts of any pointer width. */
static inline uint8_t *libvoice_signal_params(libvoice_signal_t *message) {
    return (uint8_t *)(message + 1);
}
/** The parameter buffer of an event. */
static inline uint8_t *libvoice_event_params(libvoice_event_t *message) {
    return (uint8_t *)(message + 1);
}
/** The parameter buffer of a parameter set. */
static inline uint8_t *libvoice_set_params_of(libvoice_param_set_t *set) {
    return (uint8_t *)(set + 1);
}

#define LIBVOICE_DESCRIPTORS 10 /**< Length of the descriptor array that media callbacks receive; -1 is none. */

/** Sizes of "cnx_info", the connection information of create and modify: with descriptors beside it, and with
 * convert-media on, when two IPv4 socket addresses of 16 bytes stand at LIBVOICE_CNX_INFO_LOCAL and
 * LIBVOICE_CNX_INFO_REMOTE. The first 704 bytes are agreed between application and plugin. */
#define LIBVOICE_CNX_INFO_BYTES 704
#define LIBVOICE_CNX_INFO_SOCKET_BYTES 736 /**< Size of "cnx_info" with convert-media on. */
#define LIBVOICE_CNX_INFO_LOCAL 704  /**< Offset of the local address, struct sockaddr_in, port in network order. */
#define LIBVOICE_CNX_INFO_REMOTE 720 /**< Offset of the remote address. */
/** Size of "stream_info", agreed between application and plugin. */
#define LIBVOICE_STREAM_INFO_BYTES 712

/* -------------------------------------------------------------------------------------------------- Plugin table
 * The voice application's table of registered plugins. Exported arrays are ABI, size included. */

#define LIBVOICE_PLUGINS 8            /**< Entries of voice_plugin_table. */
#define LIBVOICE_PLUGIN_NAME_BYTES 20 /**< A registered plugin's name with its terminator: 19 characters are kept. */

/** One registered plugin. Freeing an entry clears only `used`. */
typedef struct voice_plugin_entry {
    uint32_t used;                                /**< 1 in use, 0 free */
    char plugin_name[LIBVOICE_PLUGIN_NAME_BYTES]; /**< zero-terminated */
    peer_t *peer; /**< its connection; what the entry held before when made by libvoice_plugin_add() */
} voice_plugin_entry_t;

/** The table. Zero at load. */
extern voice_plugin_entry_t voice_plugin_table[LIBVOICE_PLUGINS];

/** Clears the whole table, names and peers too. */
void libvoice_plugin_init_table(void);
/** Writes four level-400 trace messages per entry; only used ones when the argument is not 0. */
void libvoice_plugin_print_table(int32_t only_used);
/** The entry at an index, or NULL: free, or 8 and above (one level-100 trace message). */
voice_plugin_entry_t *libvoice_plugin_get_entry_by_index(uint32_t index);
/** The first used entry of a name, compared exactly, or NULL. */
voice_plugin_entry_t *libvoice_plugin_get_entry(const char *name);
/** The peer of the first used entry of a name, or NULL. */
peer_t *libvoice_plugin_get_peer_by_name(const char *name);
/** The index of the first used entry of a name, or -1. */
int32_t libvoice_plugin_get_index(const char *name);
/** The lowest free index, or -1. */
int32_t libvoice_plugin_get_next_free_index(void);
/** The index of the first used entry of a peer, or -1. */
int32_t libvoice_plugin_get_index_by_peer(peer_t *peer);
/** The first used entry of a peer, or NULL. */
voice_plugin_entry_t *libvoice_plugin_get_entry_by_peer(peer_t *peer);
/** Names the plugin of a peer: its entry, or the lowest free one. At most 19 characters are kept.
 * @return its index, or -1. */
int32_t libvoice_plugin_set_name_by_peer(peer_t *peer, const char *name);
/** The entry of a name, made when there is none; a made one keeps the entry's old peer. @return its index, or -1. */
int32_t libvoice_plugin_add(const char *name);
/** Frees an entry; its endpoints stay. @return 0. */
int32_t libvoice_plugin_free_entry(voice_plugin_entry_t *entry);
/** Frees the first used entry of a name; its endpoints stay. @return 0, or -1: none. */
int32_t libvoice_plugin_free(const char *name);
/** Deletes the plugin's endpoints (each reaches voice_app_endpoint_deleted) and frees its entry.
 * @return 0, or -1: none. */
int32_t libvoice_plugin_deregister(const char *name);
/** The same, found by peer: call it when a plugin's connection closes. @return 0, or -1: none. */
int32_t libvoice_plugin_deregister_by_peer(peer_t *peer);
/** Writes a heading and one level-400 trace message per used entry. */
void libvoice_plugin_list_registered(void);

/* ------------------------------------------------------------------------------------------------- Endpoint table
 * A plugin lists its own endpoints here, the voice application those of all plugins. Searches run in index order and
 * stop at the first match. Unless a function says otherwise, "the endpoint" is a used entry. */

#define LIBVOICE_ENDPOINTS 32            /**< Entries of endpt_table. */
#define LIBVOICE_ENDPOINT_NAME_BYTES 16  /**< An endpoint's name with its terminator: 15 characters are kept. */
#define LIBVOICE_ENDPOINT_PATH_BYTES 256 /**< An endpoint's object path with its terminator. */
#define LIBVOICE_ENDPOINT_CODECS 16      /**< Codec records an endpoint can hold. */
#define LIBVOICE_CODEC_RECORD_BYTES 16   /**< Size of a codec record. */

/** One codec that an endpoint offers. The library copies it unread; its layout is agreed between plugin and
 * application. */
typedef struct libvoice_codec_record {
    uint8_t bytes[LIBVOICE_CODEC_RECORD_BYTES]; /**< the record */
} libvoice_codec_record_t;

/** One endpoint. Deleting it clears only `used`. */
typedef struct libvoice_endpoint {
    uint32_t used;                                                /**< 1 in use, 0 free */
    char name[LIBVOICE_ENDPOINT_NAME_BYTES];                      /**< zero-terminated; unique by convention only */
    int32_t endpoint;                                             /**< endpoint number; -1 not assigned yet */
    void *userdata;                                               /**< the host's own; never read by the library */
    int32_t type;                                                 /**< endpoint type as registered */
    uint32_t encaps_capab;                                        /**< encapsulation capabilities */
    uint32_t num_of_codecs;                                       /**< valid records in codec_list */
    libvoice_codec_record_t codec_list[LIBVOICE_ENDPOINT_CODECS]; /**< codecs offered, in the order received */
    char endpoint_path[LIBVOICE_ENDPOINT_PATH_BYTES];             /**< "plugin.EndPoint.name" */
    voice_plugin_entry_t *plugin_table;                           /**< owning plugin; NULL on the plugin side */
} libvoice_endpoint_t;

/** The table. Zero at load. */
extern libvoice_endpoint_t endpt_table[LIBVOICE_ENDPOINTS];

/** 1 when an entry marked exactly 1 has the number, else 0. */
int is_valid_endpoint(int32_t endpoint);
/** The first entry that has the number, used or not, or NULL. */
libvoice_endpoint_t *get_endpt_entry(int32_t endpoint);
/** Stores the host's pointer with the endpoint of a name. @return yes. */
int libvoice_set_endpoint_userdata_by_name(const char *name, void *userdata);
/** Stores the host's pointer with an endpoint. @return yes. */
int libvoice_set_endpoint_userdata_by_endpoint(int32_t endpoint, void *userdata);
/** Claims the first free entry: name (15 characters kept), number, pointer. @return yes; 0: all 32 are used. */
int libvoice_set_endpoint(const char *name, int32_t endpoint, void *userdata);
/** Claims the free entry that already bears the name. @return yes. */
int libvoice_set_endpoint_by_name(const char *name, int32_t endpoint, void *userdata);
/** The table index of a name, 0 to 31, or -1. */
int32_t libvoice_get_endpoint_index_by_name(const char *name);
/** The endpoint number of a name, or -1. */
int32_t libvoice_get_endpoint_by_name(const char *name);
/** The table index of an endpoint number, or -1. */
int32_t libvoice_get_endpoint_index_by_endpoint(int32_t endpoint);
/** The name of an endpoint, inside the table; NULL: none. */
char *libvoice_get_name_by_endpoint(int32_t endpoint);
/** As libvoice_get_name_by_endpoint(), without a trace. */
char *libvoice_get_endpoint_name(int32_t endpoint);
/** The object path of an endpoint, inside the table; NULL: none. No trace. */
char *libvoice_get_endpoint_path(int32_t endpoint);
/** The object path of a name, inside the table; NULL: none. */
char *libvoice_get_endpoint_path_by_name(const char *name);
/** The connection of the plugin that owns an endpoint, or NULL. No trace. */
peer_t *libvoice_get_endpoint_peer(int32_t endpoint);
/** The name of the plugin that owns an endpoint, inside the plugin table; NULL: no such endpoint, or no owner. */
char *libvoice_get_plugin_name_by_endpoint(int32_t endpoint);
/** The first free entry, or NULL. */
libvoice_endpoint_t *libvoice_get_next_free_endpoint(void);
/** The name that the first free entry bears, or NULL. */
char *libvoice_get_next_free_endpoint_name(void);
/** The entry of a name, or NULL. */
libvoice_endpoint_t *libvoice_get_endpoint_entry_by_name(const char *name);
/** The entry of an endpoint number, or NULL. */
libvoice_endpoint_t *libvoice_get_endpoint_entry_by_endpoint(int32_t endpoint);
/** Clears `used`, then calls voice_app_endpoint_deleted when set. */
void libvoice_delete_endpoint_entry(libvoice_endpoint_t *entry);
/** Deletes an endpoint by number. @return its index, or -1. */
int32_t libvoice_delete_endpoint_entry_by_endpoint(int32_t endpoint);
/** Deletes the endpoint with the number that a name has; an unknown name has -1, which an entry without a number bears.
 * @return its index, or -1. */
int32_t libvoice_delete_endpoint_entry_by_name(const char *name);
/** Writes eleven level-400 trace messages per entry; only used ones when the argument is not 0. */
void libvoice_print_endpoints(int32_t only_used);
/** A new message identifier: 0, 1, 2, ... per process, wrapping at 2^32. */
uint32_t get_new_msg_id(void);

/* --------------------------------------------------------------------------------------------------- Callbacks
 * Each host fills one table, in its order, and hands it over by value. Callbacks run on the bus thread, synchronously;
 * they may call the library, and must not throw. 0 is success, any other value failure (only traced). */

/** Plugin side. All callbacks but voice_plugin_event must be set. */
typedef struct libvoice_callbacks {
    /** Bring up the lines for a country (two letters). Failure ends the process. */
    int32_t (*voice_plugin_init)(const char *country);
    /** Shut down; reason 32: the plugin deregistered. Result ignored. */
    int32_t (*voice_plugin_exit)(uint32_t reason);
    /** Play or do what a signal says. */
    int32_t (*voice_plugin_signal)(libvoice_signal_t *message);
    /** Take an event meant for a line's channel. May be unset. */
    int32_t (*voice_plugin_event)(libvoice_event_t *message, uint32_t channel_id);
    /** Set up media of an endpoint's line. The descriptors are the callback's from here on. */
    int32_t (*voice_plugin_create)(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors);
    /** Change media of an endpoint's line. The descriptors are the callback's from here on. */
    int32_t (*voice_plugin_modify)(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors);
    /** Tear media down. */
    int32_t (*voice_plugin_destroy)(int32_t endpoint, uint32_t line);
    /** Answer a parameter request: set *result to a malloc()ed set, which the library frees. `reserved` is 0. */
    int32_t (*voice_plugin_get)(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved);
    /** Take parameters. */
    int32_t (*voice_plugin_set)(libvoice_param_set_t *params);
    /** Make a media context. */
    int32_t (*voice_plugin_create_ctx)(uint32_t context);
    /** Add a stream to a context. stream_info passes to the callback, which free()s it, also when it fails; so do the
     *  descriptors, up to LIBVOICE_DESCRIPTORS. Places that none came for hold -1 here; another library of this
     *  contract need not fill more than the three that libvoice_add_stream() sends. */
    int32_t (*voice_plugin_add_stream)(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint,
                                       uint32_t line);
    /** Change a stream. stream_info passes to the callback, which free()s it, also when it fails. */
    int32_t (*voice_plugin_modify_stream)(uint32_t context, void *stream_info);
    /** Remove a stream. */
    int32_t (*voice_plugin_remove_stream)(uint32_t context, uint32_t stream);
    /** Destroy a context. */
    int32_t (*voice_plugin_destroy_ctx)(uint32_t context);
} libvoice_callbacks_t;

/** Voice application side. The first three must be set. */
typedef struct libvoice_app_callbacks {
    /** Write the country code, two letters and a zero, into a buffer of `size` (3) bytes. Negative: failure. */
    int32_t (*voice_app_get_country)(char *country, uint32_t size);
    /** Take an event. Result ignored. */
    int32_t (*voice_app_event)(libvoice_event_t *message);
    /** Accept an endpoint that was just filled in, and give it its number. Before failing give it a number of its own
     * or clear `used`: the entry is then released by its number. */
    int32_t (*voice_app_register_endpoint)(libvoice_endpoint_t *entry);
    /** An endpoint is gone; its entry still shows what it was. May be unset. */
    void (*voice_app_endpoint_deleted)(libvoice_endpoint_t *entry);
    /** A "get" request is complete; request_data() is a malloc()ed uint32_t, the context value: free it and the
     * request. Unset, both stay alive for ever. */
    void (*voice_app_get_done)(request_t *request);
    /** Reply to "init"; set, it owns the request and destroys it when item is NULL, and after a failed send nobody gets
     * the request. May be unset. */
    void (*voice_app_init_reply)(request_t *request, reply_item_t *item);
    /** Reply to "exit"; as voice_app_init_reply. May be unset. */
    void (*voice_app_exit_reply)(request_t *request, reply_item_t *item);
} libvoice_app_callbacks_t;

/** DSP plugin side. An unset callback fails the call. The channel name is that of the called DSP_CHANNEL object. */
typedef struct libvoice_dsp_callbacks {
    /** Play or do what a signal says. Its parameters follow the head; its pointer word is as received. */
    int32_t (*dsp_plugin_signal)(const char *channel, libvoice_signal_t *message);
    /** Set up a channel's media. The descriptors are the callback's from here on. */
    int32_t (*dsp_plugin_create)(const char *channel, uint32_t line, void *cnx_info, int32_t **descriptors,
                                 const char *endpoint_path);
    /** Change a channel's media. The descriptors are the callback's from here on. */
    int32_t (*dsp_plugin_modify)(const char *channel, uint32_t line, void *cnx_info, int32_t **descriptors);
    /** Tear a channel's media down. */
    int32_t (*dsp_plugin_destroy)(const char *channel, uint32_t line);
} libvoice_dsp_callbacks_t;

/** The plugin's table, as libvoice_init() received it. */
extern libvoice_callbacks_t libvoice_registered_callbacks;
/** The application's table, as libvoice_app_init() received it. */
extern libvoice_app_callbacks_t libvoice_app_registered_callbacks;
/** The DSP plugin's table, as libvoice_dsp_init() received it. */
extern libvoice_dsp_callbacks_t libvoice_dsp_registered_callbacks;

/* ----------------------------------------------------------------------------------- Identity, start-up, connection
 * A plugin: libvoice_set_kex_handler, libvoice_set_pluginname, libvoice_set_ep_suffix, libvoice_init, then run the bus
 * loop. The application: libvoice_set_kex_handler, libvoice_app_init, libvoice_plugin_init_table, libvoice_app_connect.
 */

#define LIBVOICE_NAME_BYTES 256       /**< Size of _PLUGIN_NAME: 255 characters are kept. */
#define LIBVOICE_EP_SUFFIX_BYTES 14   /**< Size of ep_suffix: 13 characters are kept. */
#define LIBVOICE_RETRY_MS 10000       /**< Interval of connection and registration attempts, in bus milliseconds. */
#define LIBVOICE_EXIT_DEREGISTERED 32 /**< The reason that "exit" carries when a plugin deregisters. */

/** Object path under which the voice application publishes itself. */
#define LIBVOICE_APPLICATION_PATH "VoiceService.VoiceApplication"
/** Object class of the voice application. */
#define LIBVOICE_APPLICATION_CLASS "VoiceService"

/** The plugin name, empty until set. */
extern char _PLUGIN_NAME[LIBVOICE_NAME_BYTES];
/** The stem of default endpoint names, empty until set. */
extern char ep_suffix[LIBVOICE_EP_SUFFIX_BYTES];

/** Sets the plugin name, under which the plugin registers and its objects are found. Before libvoice_init(). */
void libvoice_set_pluginname(const char *name);
/** The plugin name, inside the library. */
char *libvoice_get_pluginname(void);
/** Sets the stem of the default endpoint names ("FXS" gives FXS1 to FXS32). Before libvoice_init(). */
void libvoice_set_ep_suffix(const char *stem);
/** The stem, inside the library. */
char *libvoice_get_ep_suffix(void);

/** Starts a plugin: presets the endpoint table, keeps the callbacks, starts the connection cycle on the bus loop.
 * Returns at once. */
void libvoice_init(libvoice_callbacks_t callbacks);
/** Starts the voice application's side: each entry's number is its index, none is used; keeps the callbacks. */
void libvoice_app_init(libvoice_app_callbacks_t callbacks);
/** Keeps a DSP plugin's callbacks. */
void libvoice_dsp_init(libvoice_dsp_callbacks_t callbacks);

/** Hands the bus to the library, before anything is sent. The bus stays the host's. */
void libvoice_set_kex_handler(kex_t *bus);
/** The bus, or NULL before it was set. */
kex_t *libvoice_get_kex_handler(void);
/** Stores the connection to the voice application and watches it. @return what peer_setEventHandler() answered. */
int libvoice_set_kex_peer_handler(peer_t *peer);
/** The connection to the voice application; NULL while there is none. */
peer_t *libvoice_get_kex_peer_handler(void);
/** Chooses the form of media commands: 0 descriptors travel, else the plugin opens sockets. Only the low 8 bits count.
 * Both sides of a connection must agree. */
void libvoice_set_convert_media(uint8_t flag);
/** The flag. */
uint8_t libvoice_get_convert_media(void);
/** Does nothing; the counterpart of the initialisation calls. */
void libvoice_kex_final(void);

/** Where plugins connect: $ZIL_VOIP_IPC_SOCKET_URI if it exists, else "kex://ipc:[/var/run/voip_ipc_sock]". Read at
 * each call. */
const char *libvoice_get_ipc_socket_uri(void);
/** Where the application listens: $ZIL_VOIP_IPC_SOCKET if it exists, else "/var/run/voip_ipc_sock". Read at each
 * call. */
const char *libvoice_get_ipc_socket(void);
/** Application: listens at a path.
 * @return the listening peer; NULL for a null or empty path, or on failure (one level-100 trace message). */
peer_t *libvoice_app_connect(connection_t *connection, const char *path);
/** Plugin: connects once, without storing the peer. @return the peer, or NULL. libvoice_init() does this for you. */
peer_t *libvoice_plugin_connect(void);
/** Plugin: starts a connection cycle: connect and register now, then every 10 s until both worked. libvoice_init()
 * does this. */
void libvoice_register_datamodel_cb(void);

/* ------------------------------------------------------------------------------------------- Requests of a plugin
 * To the voice application, over the stored connection. */

/** Registers the plugin by name and waits. @return what the application answered; 0 on any failure. */
int libvoice_kex_register_plugin(const char *plugin_name);
/**
 * Publishes an endpoint, registers it with the application (waits), and stores it in the table under the number
 * received. Call it from voice_plugin_init.
 * @param type      endpoint type; its low 16 bits travel
 * @param name      15 characters at most
 * @param ignored   not used
 * @param codecs    null-terminated array of pointers to 16-byte codec records; the first 16 travel; NULL: none
 * @param endpoint  out: the number received, also when the table turns out to be full
 * @return LIBVOICE_OK, or LIBVOICE_ERR_INVALID_ARG: rejected, not connected, or the table is full
 */
uint32_t libvoice_register_endpoint(int32_t type, const char *name, void *ignored, const void *const *codecs,
                                    int32_t *endpoint);
/** The request alone, without data model and table. @return yes. */
int libvoice_kex_register_endpoint(int32_t type, const char *name, void *ignored, const void *const *codecs,
                                   int32_t *endpoint);
/** Deregisters an endpoint (waits), withdraws it and frees its entry.
 * @return LIBVOICE_OK or LIBVOICE_ERR_INVALID_ENDPOINT. */
uint32_t libvoice_deregister_endpoint(int32_t endpoint);
/** The request alone. @return yes. */
int libvoice_kex_deregister_endpoint(int32_t endpoint);
/** Publishes an endpoint object under "<plugin>.EndPoint". @return yes; 0: it exists, or the data model failed. */
int libvoice_kex_datamodel_add_endpoint(const char *name);
/** Withdraws an endpoint object. @return yes; 0: it does not exist, or the data model failed. */
int libvoice_kex_datamodel_delete_endpoint(const char *name);
/** Sends an event: 20 + length bytes, without waiting.
 * @return 0: handed to the bus; 1: not (one level-100 trace message). */
uint32_t libvoice_send_event(libvoice_event_t *event);

/* ---------------------------------------------------------------------------- Requests of the voice application
 * To a plugin or one of its endpoints, never waiting. What a plugin answers reaches the application only through
 * the callbacks voice_app_init_reply, voice_app_exit_reply and voice_app_get_done. */

/** Starts a plugin with a country code. @return yes: handed to the bus. */
int libvoice_kex_init_plugin(const char *name, const char *country);
/** Stops a plugin. @return yes: handed to the bus. */
int libvoice_kex_exit_plugin(const char *name, uint32_t reason);
/** Sends a signal: 28 + length bytes, to the endpoint that it names. Failures show as level-100 trace messages only. */
void libvoice_send_signal(libvoice_signal_t *message);
/**
 * Sets up media of an endpoint's line.
 * @param cnx_info  704 bytes, or 736 with convert-media on
 * @param fd0,fd1,fd2  media, control and fax descriptors or -1; duplicated, they stay the caller's; not sent with
 *                     convert-media on
 * @return VOICE_SERVICE_OK: handed to the bus; _ERR_INVALID_ENDPOINT; _ERR_MEDIA_FAILED: not sent;
 *         _ERR_NO_ENDPOINT_SPACE: the request could not be made
 */
uint32_t libvoice_create_media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t fd0, int32_t fd1, int32_t fd2);
/** Changes media of an endpoint's line; as libvoice_create_media(). With convert-media on, plugins reject it: destroy
 * and create. */
uint32_t libvoice_modify_media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t fd0, int32_t fd1, int32_t fd2);
/** Tears media down. */
void libvoice_destroy_media(int32_t endpoint, uint32_t line);
/** Makes a parameter set whose first item is given. *out is set at once, and dangles after a failure. @return code. */
uint32_t param_set_initialize(uint32_t id, const void *value, uint32_t length, libvoice_param_block_t **out);
/** Adds an item to a set.
 * @return LIBVOICE_OK; LIBVOICE_ERR_PARAM_NO_SPACE or LIBVOICE_ERR_INVALID_ARG: the set is unchanged. */
uint32_t param_set_add(uint32_t id, const void *value, uint32_t length, libvoice_param_block_t *set);
/** Sets one parameter of an endpoint; a value of up to 236 bytes. @return yes: handed to the bus. */
int libvoice_set_params(int32_t endpoint, uint32_t id, const void *value, uint32_t length);
/** Asks for one parameter of an endpoint; voice_app_get_done receives the answer and `context`.
 * @return yes: handed to the bus. */
int libvoice_get_params(int32_t endpoint, uint32_t id, uint32_t context);
/** Makes a media context in a plugin.
 * @return VOICE_SERVICE_OK, _ERR_INVALID_ARG: not sent, or _ERR_NO_ENDPOINT_SPACE. */
uint32_t libvoice_create_ctx(const char *plugin, uint32_t context);
/** Adds a stream of an endpoint's line to a context. stream_info: 712 bytes; fds: three descriptors, duplicated.
 * @return as above. */
uint32_t libvoice_add_stream(const char *plugin, int32_t endpoint, uint32_t context, void *stream_info,
                             const int32_t *fds, uint32_t line);
/** Changes a stream. stream_info: 712 bytes. @return as above. */
uint32_t libvoice_modify_stream(const char *plugin, uint32_t context, void *stream_info);
/** Removes a stream from a context. @return as above. */
uint32_t libvoice_remove_stream(const char *plugin, uint32_t context, uint32_t stream);
/** Destroys a context. @return as above. */
uint32_t libvoice_destroy_ctx(const char *plugin, uint32_t context);

/** Request flag words: lifecycle requests and events; signals, media, parameters and contexts. */
#define LIBVOICE_REQUEST_FLAGS_LIFECYCLE 0x0001u
#define LIBVOICE_REQUEST_FLAGS_MEDIA 0x8001u /**< See LIBVOICE_REQUEST_FLAGS_LIFECYCLE. */
/** Item types of a reply, as the helpers below search for them. */
#define REPLY_ITEM_TYPE_ERROR 3
#define REPLY_ITEM_TYPE_RETURN_VALUE 4 /**< See REPLY_ITEM_TYPE_ERROR. */

/** The first item of a type in a reply, or NULL. */
reply_item_t *_find_reply_of_type(reply_t *reply, int32_t type);
/** 1 when the reply holds no error item; else 0, and one level-100 trace message with the first error's texts. */
int _reply_ok(reply_t *reply);
/** The return value in a reply, inside it, or NULL. */
const variant_t *_reply_return_value(reply_t *reply);

/* -------------------------------------------------------------------------------------------------- Media sockets */

/**
 * Opens the UDP socket pair of a media stream (RTP and RTCP, RFC 3550): the stream on the given ports, its control flow
 * on the next ones up. Both are bound to `local` and connected to `remote`; ports in network byte order.
 * @param stream,control  out: the descriptors, the caller's to close; on failure untouched
 * @return yes; 0: one level-100 trace message, and no socket is left open
 */
int libvoice_connectMediaSockets(const struct sockaddr_in *local, const struct sockaddr_in *remote, int32_t *stream,
                                 int32_t *control);

/* --------------------------------------------------------------------------------------- Caller-display data blocks
 * Caller identity and message waiting for an analogue telephone's display, in the multiple-data-message layout of ETSI
 * EN 300 659-3, carried between processes as upper-case hexadecimal text. The block's last byte is the plain sum of all
 * bytes before it; a host that modulates a block onto a line replaces it by the two's complement that the standard
 * wants there. */

/** A field: for the encoder, bytes and their count; for the decoder, a buffer and its capacity. NULL: absent, or not
 * wanted. */
typedef struct libvoice_db_field {
    void *value;     /**< the bytes, the caller's own */
    uint32_t length; /**< count of bytes, or capacity; a decoded text needs a buffer of capacity + 1 bytes */
} libvoice_db_field;

/** Fields of both message types. */
typedef struct libvoice_db_common_fields {
    libvoice_db_field date_time;         /**< 0x01: MMDDhhmm, eight ASCII digits */
    libvoice_db_field calling_number;    /**< 0x02: calling line identity, at most 20 characters */
    libvoice_db_field no_calling_number; /**< 0x04: reason for absence, one byte */
} libvoice_db_common_fields;

/** Fields that depend on the message type. */
typedef struct libvoice_db_message_fields {
    libvoice_db_field name;      /**< 0x07: calling party name, at most 50 bytes */
    libvoice_db_field no_name;   /**< 0x08: reason for absence of name, one byte */
    libvoice_db_field slot2;     /**< call setup 0x03: called line identity, at most 20; message waiting 0x0B: visual
                                    indicator, one byte */
    libvoice_db_field slot3;     /**< not used */
    libvoice_db_field call_type; /**< call setup 0x11: call type, one byte */
    libvoice_db_field slot5;     /**< not used */
    libvoice_db_field slot6;     /**< not used */
    libvoice_db_field messages;  /**< message waiting 0x13: number of messages, one byte; left out when length is 0 */
} libvoice_db_message_fields;

#define LIBVOICE_DB_CALL_SETUP 0x80u      /**< Message type: call setup. */
#define LIBVOICE_DB_MESSAGE_WAITING 0x82u /**< Message type: message waiting. */
#define LIBVOICE_DB_TEXT_BYTES 256        /**< Room that always suffices for an encoder's output. */

/** Encodes a call setup block. @param out  room of LIBVOICE_DB_TEXT_BYTES @param out_length  out: characters plus one.
 * Either record may be NULL. @return 0. */
uint32_t libvoice_db_call_setup_encode(const libvoice_db_message_fields *message,
                                       const libvoice_db_common_fields *common, char *out, uint32_t *out_length);
/** Encodes a message waiting block; as above. @return 0. */
uint32_t libvoice_db_message_waiting_encode(const libvoice_db_message_fields *message,
                                            const libvoice_db_common_fields *common, char *out, uint32_t *out_length);
/** Encodes a block of a message type; of an unknown one only the common fields. @return 0. */
uint32_t libvoice_db_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common,
                            char *out, uint32_t *out_length, uint32_t type);
/** Writes the common items in binary at out[*position] and moves it. @param count  out: bytes written. @return 0. */
uint32_t libvoice_db_encode_common(const libvoice_db_common_fields *common, char *out, uint32_t *position,
                                   uint8_t *count);
/** Decodes a call setup block. `length` is not used. Either record may be NULL: nothing is wanted of it. An item that
 * runs past the message ends the reading with 0 and without a trace message; what was read before stays.
 * @return 1: another message type; else 0, also when the checksum is wrong (then nothing is written and one level-100
 *         trace message tells). */
uint32_t libvoice_db_call_setup_decode(const char *text, uint32_t length, libvoice_db_message_fields *message,
                                       libvoice_db_common_fields *common);
/** Decodes a message waiting block; as above. */
uint32_t libvoice_db_message_waiting_decode(const char *text, uint32_t length, libvoice_db_message_fields *message,
                                            libvoice_db_common_fields *common);

/* -------------------------------------------------------------------------------------------------- Bus functions
 * The library's side of calls that arrive. The bus finds them by these names; hosts do not call them. A host declares
 * them on its objects with the table below. */

/** Plugin object: start the plugin. */
int __init(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** Plugin object: stop the plugin. */
int __exit(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** Plugin object: make a media context. */
int __create_ctx(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** Plugin object: add a stream to a context. */
int __add_stream(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** Plugin object: change a stream. */
int __modify_stream(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** Plugin object: remove a stream. */
int __remove_stream(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** Plugin object: destroy a context. */
int __destroy_ctx(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: a signal. */
int __EndPoint_signal(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: an event for a channel. */
int __EndPoint_event(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: set up media. */
int __EndPoint_create(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: change media. */
int __EndPoint_modify(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: tear media down. */
int __EndPoint_destroy(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: read parameters. */
int __EndPoint_get(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** EndPoint: write parameters. */
int __EndPoint_set(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** VoiceService: a plugin announces itself. */
int __VoiceService_register_plugin(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** VoiceService: a plugin leaves. */
int __VoiceService_deregister_plugin(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** VoiceService: a plugin adds an endpoint. */
int __VoiceService_register_endpoint(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** VoiceService: a plugin removes an endpoint. */
int __VoiceService_deregister_endpoint(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** VoiceService: a plugin reports an event. */
int __VoiceService_event(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** DSPPlugin: make a DSP. */
int __DSPPlugin_createDsp(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** DSP: make a channel. */
int __DSP_createDspChannel(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** DSP_CHANNEL: a signal. */
int __DSP_CHANNEL_signal(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** DSP_CHANNEL: set up media. */
int __DSP_CHANNEL_create(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** DSP_CHANNEL: change media. */
int __DSP_CHANNEL_modify(function_call_t *call, argument_list_t *arguments, variant_t *return_value);
/** DSP_CHANNEL: tear media down. */
int __DSP_CHANNEL_destroy(function_call_t *call, argument_list_t *arguments, variant_t *return_value);

#define LIBVOICE_BUS_FUNCTIONS 25       /**< Rows of libvoice_bus_functions(). */
#define LIBVOICE_BUS_FUNCTION_COLUMNS 7 /**< Texts per row: class ("" none), function, up to five argument names. */

/**
 * All bus functions by plain names, for the host to declare on its bus: class, function, argument names. "a|b" is an
 * argument with a second name. With the bundled bus: kex_declareFunctions(bus, libvoice_bus_functions(),
 * LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS).
 */
static inline const char *const *libvoice_bus_functions(void) {
    /* clang-format off */
    static const char *const rows[LIBVOICE_BUS_FUNCTIONS * LIBVOICE_BUS_FUNCTION_COLUMNS] = {
        "", "init", "country", NULL, NULL, NULL, NULL,
        "", "exit", "reason", NULL, NULL, NULL, NULL,
        "", "create_ctx", "ctx_id", NULL, NULL, NULL, NULL,
        "", "add_stream", "ep_id", "ctx_id", "line_id", "stream_info", "filedesc",
        "", "modify_stream", "ctx_id", "stream_info", NULL, NULL, NULL,
        "", "remove_stream", "ctx_id", "stream_id", NULL, NULL, NULL,
        "", "destroy_ctx", "ctx_id", NULL, NULL, NULL, NULL,
        "EndPoint", "signal", "signal", NULL, NULL, NULL, NULL,
        "EndPoint", "event", "event", "channel_id", NULL, NULL, NULL,
        "EndPoint", "create", "cnx_info", "filedesc", "ep_line_id", NULL, NULL,
        "EndPoint", "modify", "cnx_info", "filedesc", "ep_line_id", NULL, NULL,
        "EndPoint", "destroy", "ep_line_id", NULL, NULL, NULL, NULL,
        "EndPoint", "get", "param_set_request", NULL, NULL, NULL, NULL,
        "EndPoint", "set", "param_set_params", NULL, NULL, NULL, NULL,
        "VoiceService", "register_plugin", "plugin_name", NULL, NULL, NULL, NULL,
        "VoiceService", "deregister_plugin", "plugin_name", NULL, NULL, NULL, NULL,
        "VoiceService", "register_endpoint", "plugin_name", "endpoint_name", "endpoint_path", "type", "codeclist",
        "VoiceService", "deregister_endpoint", "endpoint|endpoint_id", NULL, NULL, NULL, NULL,
        "VoiceService", "event", "plugin_name", "event", NULL, NULL, NULL,
        "DSPPlugin", "createDsp", "name", NULL, NULL, NULL, NULL,
        "DSP", "createDspChannel", "name", NULL, NULL, NULL, NULL,
        "DSP_CHANNEL", "signal", "signal", NULL, NULL, NULL, NULL,
        "DSP_CHANNEL", "create", "cnx_info", "filedesc", "endpoint_path", "ep_line_id", NULL,
        "DSP_CHANNEL", "modify", "cnx_info", "filedesc", "ep_line_id", NULL, NULL,
        "DSP_CHANNEL", "destroy", "ep_line_id", NULL, NULL, NULL, NULL,
    };
    /* clang-format on */
    return rows;
}

#ifdef __cplusplus
}
#endif

#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#endif
