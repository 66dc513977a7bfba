/* SPDX-License-Identifier: MIT */
/**
 * @file voice_records.h
 * The records that voice_application and the plugin hosts agreed on: what stands in the bytes that the library carries
 * unread.
 *
 * Every field is a 32-bit word in host byte order and none is a pointer, so that builds of any pointer width understand
 * each other. A driver author who keeps voice_application copies this file; one who writes a whole gateway is free to
 * agree on something else. hosts/README.md has the same in prose.
 */
#ifndef VOICE_RECORDS_H
#define VOICE_RECORDS_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#include "libvoice_plugin.h"

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
    uint32_t params;     /**< slot of the parameter pointer: never read it, see libvoice_signal_params() */
    uint32_t length;     /**< bytes of parameter buffer behind the head */
} voice_signal_t;

/** Event: libvoice_event_t with its two carried words named. */
typedef struct voice_event {
    int32_t endpoint; /**< endpoint number */
    uint32_t event;   /**< LIBVOICE_EVENT_..., what happened; its parameters stand in the parameter buffer */
    uint32_t line;    /**< call appearance on that endpoint: 0 or 1 */
    uint32_t params;  /**< slot of the parameter pointer */
    uint32_t length;  /**< bytes of parameter buffer behind the head */
} voice_event_t;

/** One codec that an endpoint offers: libvoice_codec_record_t with its four words named. Best first. */
typedef struct voice_codec {
    uint32_t codec;        /**< LIBVOICE_CODEC_... */
    uint32_t payload_type; /**< RTP payload type, 0 to 127 */
    uint32_t ptime_mask;   /**< packet times: bit n stands for (n + 1) * 10 ms; bit 1 is 20 ms */
    uint32_t max_bitrate;  /**< bit/s */
} voice_codec_t;

/** Directions of a stream, seen from the endpoint (LIBVOICE_PARAM_sdp_stream_mode). */
enum voice_stream_mode {
    VOICE_MODE_INACTIVE = 0,
    VOICE_MODE_SEND_ONLY = 1,
    VOICE_MODE_RECEIVE_ONLY = 2,
    VOICE_MODE_SEND_RECEIVE = 3,
};

#define VOICE_CNX_VERSION 1u          /**< Version of the two records below; a receiver refuses any other. */
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
    uint32_t on_ms;
    uint32_t off_ms;
} voice_tone_t;

/** General causes of LIBVOICE_PARAM_g_cause_generalcause (ITU-T H.248.1 Annex E.1). */
enum voice_general_cause {
    VOICE_CAUSE_NORMAL_RELEASE = 1,
    VOICE_CAUSE_UNAVAILABLE_RESOURCES = 2,
    VOICE_CAUSE_FAILURE_TEMPORARY = 3,
    VOICE_CAUSE_FAILURE_PERMANENT = 4,
    VOICE_CAUSE_INTERWORKING_ERROR = 5,
    VOICE_CAUSE_UNSUPPORTED = 6,
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

#endif
