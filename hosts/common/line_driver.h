/* SPDX-License-Identifier: MIT */
/**
 * @file line_driver.h
 * A line driver's interface: what a telephone, a handset or an exchange line must be able to do to become an endpoint.
 *
 * What does it do?
 *   It parts what the voice application wants of a line from how the hardware does it. Above it stand the contract's
 *   fourteen callbacks, fulfilled once (line_plugin.h): registration, who owns which descriptor, contexts and streams,
 *   parameter sets, the loss of the application. Below it stands a driver: a table of a dozen and a half functions,
 *   each given what it needs in plain decoded terms, and ten functions by which it reports what happens on the line.
 *
 *         voice application
 *               |  signals, media, parameters              ^  events
 *       line_plugin.h (the rules of the contract)          |
 *               |  line_driver_t: play, ring, open ...     |  line_report_off_hook(), ...
 *               v                                          |
 *         a driver: hosts/simulator, or yours
 *
 * How does it work?
 *   A plugin gives each line a table and a pointer of its own with line_add(); every operation gets that pointer first.
 *   All operations are called from the bus's loop, one at a time, and must not block: nothing else runs meanwhile.
 *   A driver reads its device in the same loop, by kex_watch() (kex_host.h), and has its timers there (kex.h); the bus
 *   is libvoice_get_kex_handler(), from plugin_program_t.begin on. Reports may be made at any time from the same
 *   thread, also from inside an operation; those that come while the line is not registered are remembered where that
 *   matters (off hook) and dropped otherwise.
 *
 *   Answers: most operations return a text. NULL says done. Any other text says why it cannot be done, as a sentence
 *   without its subject ("is off hook: does not ring"): the plugin says it with the line's number before it, and the
 *   call on the bus is answered by an error. An application that sends one-way, as voice_application does, does not see
 *   that; of media it learns by the cause. The text must stay until the next call of the same line.
 *
 *   An operation that is null cannot be done by this line: what the application wants of it is rejected in the same
 *   way, or, where nothing is lost by it, passed over; each says which.
 *
 *   Everything that a pointer leads to belongs to the caller and ends with the call: copy what is kept. The two
 *   descriptors of open and change are the only exception, see line_media_t.
 *
 * C11 and C++17. tests/integration/programs/stub_driver.c is a whole driver in one page.
 */
#ifndef LINE_DRIVER_H
#define LINE_DRIVER_H

#include <stdbool.h>
#include <stdint.h>

#include "voice_records.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A line as the plugin knows it. It lives as long as the process. */
typedef struct plugin_line line_t;

#define LINE_APPEARANCES 2 /**< Calls that a line can have at once: the active and the held one. */

/** A tone for the receiver. */
typedef struct line_tone {
    uint32_t signal;          /**< LIBVOICE_SIGNAL_cg_dt and the like: packages tonegen, dg, cg, srvtn */
    uint32_t appearance;      /**< of which call, below LINE_APPEARANCES */
    const voice_tone_t *list; /**< of LIBVOICE_SIGNAL_tonegen_pt: tones played in turn; NULL for all others */
    uint32_t count;           /**< tones in the list, 1 to 32; 0 without one */
    int32_t pause_ms;         /**< between two tones of the list, as it was ordered; 0 without one */
} line_tone_t;

/** How to ring. */
typedef struct line_ring {
    const uint32_t
        *cadence_ms; /**< milliseconds on and off in turn, repeated; NULL: that of the country of `registered` */
    uint32_t count;  /**< words in the cadence, at most 64 */
    int32_t pattern; /**< LIBVOICE_PARAM_alert_ri_pattern or _andisp_dwa_pattern; -1: none was given */
} line_ring_t;

/** What a display shows: a data block, decoded. Texts are never NULL and hold nothing that breaks a line of output. */
typedef struct line_display {
    const char *block;  /**< the whole block as hexadecimal text, for a line that modulates it (ETSI EN 300 659-3, with
                              the plain sum at its end) */
    bool with_ringing;  /**< it belongs to a ring that has just been ordered; else it comes between two rings */
    bool is_messages;   /**< message waiting: only the last two fields count; else the others */
    const char *number; /**< of the caller, at most 20 characters; "" none */
    const char *name;   /**< of the caller, at most 50 characters; "" none */
    const char *called; /**< the number that was dialled, at most 20 characters; "" none */
    const char *time;   /**< MMDDhhmm; "" none */
    char no_number;     /**< why there is no number: 'O' unavailable, 'P' withheld; 0: nothing was said */
    char no_name;       /**< the same of the name */
    uint32_t messages;  /**< waiting, 0 to 255 */
    bool lamp;          /**< the message lamp is to be on */
} line_display_t;

/**
 * The media of one call: RTP between two sockets that the application has opened and connected.
 *
 * An operation that answers NULL has taken the descriptors: from then on they are the driver's to close. When it
 * answers anything else they are still the plugin's, which closes them.
 */
typedef struct line_media {
    uint32_t mode;         /**< voice_stream_mode, seen from the line; VOICE_MODE_INACTIVE: on hold */
    uint32_t codec;        /**< LIBVOICE_CODEC_..., the same both ways */
    uint32_t payload_type; /**< RTP payload type, 0 to 127, the same both ways */
    uint32_t ptime_ms;     /**< of the packets that the line sends, in milliseconds */
    uint32_t context;      /**< conference: streams of the same context are joined; 0: plain media */
    uint32_t stream;       /**< number of this stream in its context, from 1; 0: plain media */
    int32_t media;         /**< socket for RTP; -1 in a change: keep the one that is there */
    int32_t control;       /**< socket for RTCP; -1: none, or in a change keep the one that is there */
} line_media_t;

/** What the value of a parameter is; it follows from the parameter's identifier. */
typedef enum line_value_type {
    LINE_VALUE_INTEGER = 1,
    LINE_VALUE_TEXT = 2,
    LINE_VALUE_BYTES = 3,
    LINE_VALUE_BOOLEAN = 4,
} line_value_type_t;

/** The value of a parameter. */
typedef struct line_value {
    line_value_type_t type; /**< which of the others counts; set before get is called */
    int32_t number;         /**< integer, or boolean: 0 or 1 */
    const char *text;       /**< text, terminated, at most 255 characters; in a set made fit for printing */
    const void *bytes;      /**< bytes, or words in host byte order, by the parameter's definition */
    uint32_t length;        /**< count of bytes, at most 255 */
} line_value_t;

/**
 * What a driver can do. `line` is the pointer that was given to line_add(). A driver that has nothing to say about an
 * operation leaves it null.
 */
typedef struct line_driver {
    /** Plays a tone into the receiver, in place of the one before, until stop. Null: rejected. */
    const char *(*play)(void *line, const line_tone_t *tone);
    /** Stops a signal if it runs: a tone by its identifier, LIBVOICE_SIGNAL_al_ri for ringing,
     *  LIBVOICE_SIGNAL_zil_cancel_all_signals for all tones and ringing. Also when nothing runs. Null: nothing there to
     *  stop. */
    void (*stop)(void *line, uint32_t signal);
    /** Rings until stop, or until the line goes off hook. Null: rejected. */
    const char *(*ring)(void *line, const line_ring_t *ring);
    /** Shows a caller or the count of waiting messages. Null: rejected. */
    const char *(*display)(void *line, const line_display_t *display);

    /* Towards an exchange. Null: rejected. */
    const char *(*seize)(void *line);                    /**< closes the loop: calls, or answers a ring */
    const char *(*release)(void *line);                  /**< opens the loop */
    const char *(*dial)(void *line, const char *digits); /**< 1 to 63 of 0-9 * # A-D, as the application sent them */
    const char *(*flash)(void *line);                    /**< opens the loop for a moment */

    /** Begins the media of an appearance, which has none; in a conference when media->context is not 0. A text is also
     *  told to the application as the failure's cause, by which it ends the call. Null: rejected with the cause "no
     *  media here". */
    const char *(*open)(void *line, uint32_t appearance, const line_media_t *media);
    /** Changes media that is open; context and stream stay. On a text what was stays. Null: rejected with a cause. */
    const char *(*change)(void *line, uint32_t appearance, const line_media_t *media);
    /** Ends media that is open and closes its descriptors; may report statistics. Must be there when open is. */
    void (*close)(void *line, uint32_t appearance);

    /** Writes a parameter's value: what value->type asks for. Texts and bytes are the driver's and are read before the
     *  next call. @return no: not a parameter of this line; it is then left out of the answer. Null: always no. */
    bool (*get)(void *line, uint32_t parameter, line_value_t *value);
    /** Takes a parameter's value. @return no: not one of this line, or not that value; the set is then answered by an
     *  error, but its other values are taken. Null: always no. */
    bool (*set)(void *line, uint32_t parameter, const line_value_t *value);

    /** Any other signal, with its parameters as libvoice_get_param() reads them. Null: rejected. */
    const char *(*signal)(void *line, uint32_t signal, const void *params, uint32_t length);

    /** The application has taken the line, and knows nothing of it but what is reported from here on. Whether it is off
     *  hook is reported by the plugin afterwards. `country` is the application's, ISO 3166 ("DE"): its cadences and
     *  tones hold until the next time. Null: nothing to do. */
    void (*registered)(void *line, const char *country);
    /** The application is gone, or one begins anew (the first one too), or the line was deregistered: nothing that was
     *  ordered holds any more. Media has been closed and signals stopped before. Null: nothing to do. */
    void (*lost)(void *line);
} line_driver_t;

/* --------------------------------------------------------------------------------------------------------- Reports
 * What a driver tells the application. Each answers whether it was sent: no while the line is not registered or there
 * is no application, and for arguments that cannot be sent. */

/** The user has lifted the receiver. Remembered: a line that is registered later is then reported as off hook. */
bool line_report_off_hook(line_t *line);
/** The user has hung up. */
bool line_report_on_hook(line_t *line);
/** The user has pressed the flash key: register recall. */
bool line_report_flash(line_t *line);
/** A key was pressed: one of 0123456789ABCD*#; any other is not sent. */
bool line_report_digit(line_t *line, char key);
/** A whole number was dialled at once, as a handset sends it: 1 to 23 keys. */
bool line_report_number(line_t *line, const char *digits);

/** The exchange rings: to be told of each ring, and a later one may name the caller. Number (at most 20 characters) and
 *  name (at most 50) of the caller may be NULL or empty; a caller without a number has withheld it. */
bool line_report_exchange_ring(line_t *line, const char *number, const char *name);
/** The exchange has stopped ringing, or has released the line: the caller is gone. */
bool line_report_exchange_release(line_t *line);

/** What a cordless handset says of itself. */
typedef struct line_property {
    const char *software; /**< version, at most 39 characters */
    const char *hardware; /**< version, at most 39 characters */
    bool reachable;       /**< it answers the base station */
} line_property_t;
bool line_report_property(line_t *line, const line_property_t *property);

/** What media has done until its end. */
typedef struct line_statistics {
    uint32_t tx_packets, tx_bytes, rx_packets, rx_bytes; /**< RTP; bytes of payload */
    uint32_t lost, discarded;                            /**< packets that never came; that came and were of no use */
    uint32_t late, duplicates;                           /**< of those discarded: after their time; there already */
    uint32_t overruns;     /**< of those discarded: no room for them in the jitter buffer, or time began anew there */
    uint32_t underruns;    /**< times that the jitter buffer was empty */
    uint32_t concealed_ms; /**< sound that was made up for what was missing */
    uint32_t tx_reports, rx_reports;                          /**< RTCP packets */
    uint32_t jitter, peak_jitter;                             /**< in units of the RTP clock, 1/8000 s */
    uint32_t buffer_least_ms, buffer_mean_ms, buffer_most_ms; /**< how long packets waited in the jitter buffer */
    uint32_t round_trip_ms, peak_round_trip_ms; /**< the newest and the longest, rounded up; 0: none was measured */
    uint32_t last_tx_s, last_tx_us, last_rx_s, last_rx_us; /**< when the last packet went and came, since 1970 */
} line_statistics_t;
/** To be sent from close. */
bool line_report_statistics(line_t *line, uint32_t appearance, const line_statistics_t *statistics);

/** Something failed by itself; the application ends the appearance's call.
 *  @param cause  voice_general_cause  @param why  at most 79 characters, for the log */
bool line_report_cause(line_t *line, uint32_t appearance, uint32_t cause, const char *why);

/** The line's number within its plugin, from 1, as output and commands call it. */
int line_number(const line_t *line);
/** Whether the application knows the line now. */
bool line_is_registered(const line_t *line);

#ifdef __cplusplus
}
#endif

#endif
