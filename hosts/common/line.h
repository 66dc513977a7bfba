// SPDX-License-Identifier: MIT
/**
 * @file line.h
 * A line as the pieces of the line plugin see it; drivers know it as line_t only.
 */
#pragma once

#include "libvoice_plugin.h"
#include "line_driver.h"

/** The media of one appearance. */
struct line_session {
    bool open;
    uint32_t context, stream; // 0: plain media
};

struct plugin_line {
    const line_driver_t *driver;
    void *userdata;
    int number; // from 1
    int32_t type;
    char name[LIBVOICE_ENDPOINT_NAME_BYTES]; // of its endpoint
    voice_codec_t codecs[LIBVOICE_ENDPOINT_CODECS];
    uint32_t codec_count;
    int32_t endpoint; // -1: not registered
    bool off_hook;
    bool withdrawn; // deregistered by itself: stays out
    bool deregister_asked;
    line_session sessions[LINE_APPEARANCES];
};

uint32_t line_count();
line_t *line_at(uint32_t index);
/** The registered line of an endpoint number, or null. */
line_t *line_of_endpoint(int32_t endpoint);

/** Ends the media of an appearance, if there is any. @return whether there was. */
bool line_close_media(line_t *line, uint32_t appearance);
/** Ends its media and its signals, and tells the driver that nothing ordered before holds any more. */
void line_rest(line_t *line);
/** Reports a line that is off hook as found so, not as something that happens now. */
void line_report_state(line_t *line);
/** Forgets all contexts, whose streams are closed already. */
void line_contexts_forget();

/* The callbacks, in the files line_signals, line_media and line_parameters. */
int32_t line_signal_callback(libvoice_signal_t *message);
int32_t line_create_callback(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors);
int32_t line_modify_callback(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors);
int32_t line_destroy_callback(int32_t endpoint, uint32_t appearance);
int32_t line_create_context_callback(uint32_t context);
int32_t line_add_stream_callback(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint,
                                 uint32_t appearance);
int32_t line_modify_stream_callback(uint32_t context, void *stream_info);
int32_t line_remove_stream_callback(uint32_t context, uint32_t stream);
int32_t line_destroy_context_callback(uint32_t context);
int32_t line_get_callback(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved);
int32_t line_set_callback(libvoice_param_set_t *params);
