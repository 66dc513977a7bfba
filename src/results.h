// SPDX-License-Identifier: MIT
// The result codes' texts, one row per code: number, name without its prefix, text. Both tables are made from these
// rows.
#ifndef VOICE_RESULTS_H
#define VOICE_RESULTS_H

// Codes that both families share, word for word.
#define VOICE_SHARED_RESULTS(ROW)                                                                        \
    ROW(2, ERR_INVALID_ENDPOINT, "invalid endpoint ID")                                                  \
    ROW(3, ERR_INVALID_TYPE, "unknown or invalid signal or event type")                                  \
    ROW(4, ERR_INVALID_ARG, "invalid argument")                                                          \
    ROW(5, ERR_MEDIA_FAILED, "media failed due to codec mismatch, lack of resources, or unavailability") \
    ROW(6, ERR_MEDIA_INACTIVE, "media is not currently active")                                          \
    ROW(7, ERR_PARAM_NOT_FOUND, "parameter was not found")                                               \
    ROW(8, ERR_PARAM_FORMAT, "incorrectly formatted parameter buffer")                                   \
    ROW(9, ERR_PARAM_NO_SPACE, "insufficient space in parameter buffer")

#define VOICE_LIBRARY_RESULTS(ROW)                                                                   \
    ROW(0, OK, "success")                                                                            \
    ROW(1, ERR_NOT_CONNECTED, "connection to voice service was not established or was disconnected") \
    VOICE_SHARED_RESULTS(ROW)

// Kept: code 11 has neither name nor text; the look-up yields a null text.
#define VOICE_SERVICE_RESULTS(ROW, EMPTY)                                       \
    ROW(0, OK, "success")                                                       \
    ROW(1, ERR_NOT_CONNECTED, "connection not established or was disconnected") \
    VOICE_SHARED_RESULTS(ROW)                                                   \
    ROW(10, ERR_UNKNOWN_PLUGIN, "message from unknown voice plugin")            \
    EMPTY(11)                                                                   \
    ROW(12, ERR_NO_ENDPOINT_SPACE, "insufficient space to register endpoint")

#endif
