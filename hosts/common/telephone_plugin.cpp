// SPDX-License-Identifier: MIT
// Registration, media, conferences and parameters of simulated telephones.
#include "telephone_plugin.h"

#include "audio.h"
#include "console.h"
#include "descriptors.h"
#include "host.h"
#include "identifiers.h"
#include "plugin.h"
#include "printable.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr uint32_t kContexts = 16;
constexpr uint32_t kStreamDescriptors =
    3; // media, control, fax: that many were sent, and only these entries are filled

uint32_t contexts[kContexts]; // ids; 0: free

// -------------------------------------------------------------------------------------------------------------- Media

void report_statistics(const telephone *phone, uint32_t line, const media_statistics *statistics) {
    if (phone->endpoint < 0 || libvoice_get_kex_peer_handler() == nullptr)
        return;
    const struct {
        uint32_t id;
        uint32_t value;
    } items[] = {
        {LIBVOICE_PARAM_zil_call_stats_txpkts, statistics->tx_packets},
        {LIBVOICE_PARAM_zil_call_stats_txbytes, statistics->tx_bytes},
        {LIBVOICE_PARAM_zil_call_stats_rxpkts, statistics->rx_packets},
        {LIBVOICE_PARAM_zil_call_stats_rxbytes, statistics->rx_bytes},
        {LIBVOICE_PARAM_zil_call_stats_lost, statistics->lost},
        {LIBVOICE_PARAM_zil_call_stats_discarded, statistics->discarded},
        {LIBVOICE_PARAM_zil_call_stats_txRtcpPkts, statistics->tx_reports},
        {LIBVOICE_PARAM_zil_call_stats_rxRtcpPkts, statistics->rx_reports},
        {LIBVOICE_PARAM_zil_call_stats_overRuns, statistics->overruns},
        {LIBVOICE_PARAM_zil_call_stats_underRuns, statistics->underruns},
        {LIBVOICE_PARAM_zil_call_stats_jitter, statistics->jitter},
        {LIBVOICE_PARAM_zil_call_stats_peakJitter, statistics->peak_jitter},
        {LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInS, statistics->last_tx_s},
        {LIBVOICE_PARAM_zil_call_stats_tsLastTxRtpInUs, statistics->last_tx_us},
        {LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInS, statistics->last_rx_s},
        {LIBVOICE_PARAM_zil_call_stats_tsLastRxRtpInUs, statistics->last_rx_us},
    };
    event_message message;
    event_begin(&message, phone->endpoint, LIBVOICE_EVENT_zil_call_stats, line);
    for (const auto &item : items)
        event_add_int(&message, item.id, static_cast<int32_t>(item.value));
    event_send(&message);
}

// A media command that cannot be followed: the application is told why, so that it can end the call.
int32_t refuse_media(const telephone *phone, uint32_t line, const char *why) {
    say("%d refuses media: %s", phone->number, why);
    event_message message;
    event_begin(&message, phone->endpoint, LIBVOICE_EVENT_g_cause, line);
    event_add_int(&message, LIBVOICE_PARAM_g_cause_generalcause, VOICE_CAUSE_UNSUPPORTED);
    event_add_text(&message, LIBVOICE_PARAM_g_cause_failurecause, why);
    event_send(&message);
    return 1;
}

void say_media(const telephone *phone, uint32_t line) {
    const media_session *session = &phone->sound.sessions[line];
    const char *state = session->format.mode == VOICE_MODE_INACTIVE ? "on hold" : "talking";
    char stream[48] = "";
    if (session->context != 0)
        snprintf(stream, sizeof stream, " context=%u stream=%u", session->context, session->stream);
    say("%d %s line=%u %s%s", phone->number, state, line, audio_text(&phone->sound, line), stream);
}

bool end_media(telephone *phone, uint32_t line) {
    media_statistics statistics;
    if (!audio_close(&phone->sound, line, &statistics))
        return false;
    say("%d media ended line=%u %s", phone->number, line, media_statistics_text(&statistics));
    report_statistics(phone, line, &statistics);
    return true;
}

// -------------------------------------------------------------------------------------------------------- Conferences

uint32_t *find_context(uint32_t id) {
    for (uint32_t &context : contexts)
        if (context == id)
            return &context;
    return nullptr;
}

bool find_stream(uint32_t context, uint32_t stream, telephone **phone, uint32_t *line) {
    for (int i = 0; context != 0 && i < telephone_count(); i++)
        for (uint32_t k = 0; k < kSessions; k++) {
            const media_session *session = &telephone_at(i)->sound.sessions[k];
            if (!session->open || session->context != context || session->stream != stream)
                continue;
            *phone = telephone_at(i);
            *line = k;
            return true;
        }
    return false;
}

// --------------------------------------------------------------------------------------------------------- Parameters

telephone *telephone_of_set(const libvoice_param_set_t *set, const uint8_t *params) {
    int32_t endpoint;
    if (!params_int(params, set->length, LIBVOICE_PARAM_zil_ep_id, &endpoint))
        return nullptr;
    return telephone_of_endpoint(endpoint);
}

int32_t *number_of(telephone *phone, uint32_t id) {
    switch (id) {
    case LIBVOICE_PARAM_tdmc_gain:
        return &phone->gain;
    case LIBVOICE_PARAM_tdmc_rxgain:
        return &phone->receive_gain;
    case LIBVOICE_PARAM_zil_dect_pp_type:
        return phone->handset_type >= 0 ? &phone->handset_type : nullptr;
    default:
        return nullptr;
    }
}

// ---------------------------------------------------------------------------------------------------------- Callbacks

int32_t telephone_media_create(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    telephone *phone = telephone_of_endpoint(endpoint);
    media_format format;
    const char *wrong = phone == nullptr ? "unknown endpoint" : media_read_connection(cnx_info, &format);
    if (wrong != nullptr) {
        descriptors_close(*descriptors, 0, LIBVOICE_DESCRIPTORS);
        return phone == nullptr ? 1 : refuse_media(phone, line, wrong);
    }
    descriptors_close(*descriptors, 2, LIBVOICE_DESCRIPTORS); // no fax here, nor what else may have been sent
    wrong = audio_open(&phone->sound, line, &format, (*descriptors)[0], (*descriptors)[1], 0, 0);
    if (wrong != nullptr)
        return refuse_media(phone, line, wrong);
    say_media(phone, line);
    return 0;
}

int32_t telephone_media_modify(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    telephone *phone = telephone_of_endpoint(endpoint);
    media_format format;
    const char *wrong = phone == nullptr ? "unknown endpoint" : media_read_connection(cnx_info, &format);
    if (wrong != nullptr) {
        descriptors_close(*descriptors, 0, LIBVOICE_DESCRIPTORS);
        return phone == nullptr ? 1 : refuse_media(phone, line, wrong);
    }
    descriptors_close(*descriptors, 2, LIBVOICE_DESCRIPTORS);
    wrong = audio_change(&phone->sound, line, &format, (*descriptors)[0], (*descriptors)[1]);
    if (wrong != nullptr)
        return refuse_media(phone, line, wrong);
    say_media(phone, line);
    return 0;
}

int32_t telephone_media_destroy(int32_t endpoint, uint32_t line) {
    telephone *phone = telephone_of_endpoint(endpoint);
    return phone != nullptr && end_media(phone, line) ? 0 : 1;
}

int32_t telephone_create_context(uint32_t context) {
    uint32_t *free_slot = find_context(0);
    if (context == 0 || free_slot == nullptr || find_context(context) != nullptr)
        return 1;
    *free_slot = context;
    return 0;
}

int32_t telephone_add_stream(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint,
                             uint32_t line) {
    telephone *phone = telephone_of_endpoint(endpoint);
    media_format format;
    uint32_t stream = 0;
    const char *wrong = media_read_stream(stream_info, &format, &stream);
    free(stream_info); // ours, also when it fails
    if (phone == nullptr)
        wrong = "unknown endpoint";
    else if (wrong == nullptr && (context == 0 || find_context(context) == nullptr))
        wrong = "no such context";
    else if (wrong == nullptr && stream == 0)
        wrong = "streams are numbered from 1";
    if (wrong != nullptr) {
        descriptors_close(*descriptors, 0, kStreamDescriptors);
        return phone == nullptr ? 1 : refuse_media(phone, line, wrong);
    }
    descriptors_close(*descriptors, 2, kStreamDescriptors);
    wrong = audio_open(&phone->sound, line, &format, (*descriptors)[0], (*descriptors)[1], context, stream);
    if (wrong != nullptr)
        return refuse_media(phone, line, wrong);
    say_media(phone, line);
    return 0;
}

int32_t telephone_modify_stream(uint32_t context, void *stream_info) {
    media_format format;
    uint32_t stream = 0, line = 0;
    telephone *phone = nullptr;
    const char *wrong = media_read_stream(stream_info, &format, &stream);
    free(stream_info);
    if (!find_stream(context, stream, &phone, &line))
        return 1;
    if (wrong == nullptr)
        wrong = audio_change(&phone->sound, line, &format, -1, -1);
    if (wrong != nullptr)
        return refuse_media(phone, line, wrong);
    say_media(phone, line);
    return 0;
}

int32_t telephone_remove_stream(uint32_t context, uint32_t stream) {
    telephone *phone;
    uint32_t line;
    return find_stream(context, stream, &phone, &line) && end_media(phone, line) ? 0 : 1;
}

int32_t telephone_destroy_context(uint32_t context) {
    uint32_t *slot = context == 0 ? nullptr : find_context(context);
    if (slot == nullptr)
        return 1;
    *slot = 0;
    for (int i = 0; i < telephone_count(); i++)
        for (uint32_t k = 0; k < kSessions; k++)
            if (telephone_at(i)->sound.sessions[k].context == context)
                end_media(telephone_at(i), k); // streams that nobody removed go with it
    return 0;
}

int32_t telephone_get_parameters(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t) {
    const uint8_t *asked = libvoice_set_params_of(request);
    telephone *phone = telephone_of_set(request, asked);
    if (phone == nullptr)
        return 1;
    libvoice_param_block_t *block = static_cast<libvoice_param_block_t *>(calloc(1, sizeof *block));
    if (block == nullptr)
        return 1;
    uint32_t *used = &block->head.length;
    params_add_int(block->buffer, sizeof block->buffer, used, LIBVOICE_PARAM_zil_ep_id, phone->endpoint);
    uint8_t *cursor = libvoice_set_params_of(request);
    uint32_t remaining = request->length;
    while (remaining > 0) {
        uint32_t id = 0, length = 0;
        uint8_t *value = nullptr;
        if (libvoice_get_current_param(&id, &length, &value, &cursor, &remaining) != LIBVOICE_OK)
            break;
        if (id == LIBVOICE_PARAM_zil_ep_dispname)
            params_add_bytes(block->buffer, sizeof block->buffer, used, id, phone->name,
                             static_cast<uint32_t>(strlen(phone->name) + 1));
        else if (const int32_t *number = number_of(phone, id))
            params_add_int(block->buffer, sizeof block->buffer, used, id, *number);
    }
    *result = &block->head; // the library frees it
    return 0;
}

int32_t telephone_set_parameters(libvoice_param_set_t *params) {
    uint8_t *cursor = libvoice_set_params_of(params);
    uint32_t remaining = params->length;
    telephone *phone = telephone_of_set(params, cursor);
    if (phone == nullptr)
        return 1;
    int32_t result = 0;
    while (remaining > 0) {
        uint32_t id = 0, length = 0;
        uint8_t *value = nullptr;
        if (libvoice_get_current_param(&id, &length, &value, &cursor, &remaining) != LIBVOICE_OK || value == nullptr)
            return 1;
        const char *name = identifier_name(id);
        int32_t *number = number_of(phone, id);
        if (id == LIBVOICE_PARAM_zil_ep_id) {
            continue;
        } else if (id == LIBVOICE_PARAM_zil_ep_dispname) {
            snprintf(phone->name, sizeof phone->name, "%.*s", static_cast<int>(length),
                     reinterpret_cast<const char *>(value));
            text_make_printable(phone->name);
            say("%d param %s=\"%s\"", phone->number, name, phone->name);
        } else if (number != nullptr && number != &phone->handset_type && length >= sizeof *number) {
            memcpy(number, value, sizeof *number);
            say("%d param %s=%d", phone->number, name, *number);
        } else {
            say("%d ignores param %s", phone->number, name);
            result = 1;
        }
    }
    return result;
}

int32_t telephone_exit(uint32_t reason) {
    say("exit reason=%u", reason);
    host_stop();
    return 0;
}

int32_t telephone_channel_event(libvoice_event_t *, uint32_t) {
    return 1; // a telephone line has no channels
}

} // namespace

bool telephone_register(telephone *phone, int32_t type, const char *name, const voice_codec_t *codecs, uint32_t count,
                        bool *is_new) {
    phone->endpoint = plugin_register_endpoint(type, name, codecs, count, is_new);
    if (phone->endpoint < 0) {
        say("%d refused: the application does not take %s", phone->number, name);
        return false;
    }
    if (*is_new) {
        telephone_media_drop(phone);
        telephone_silence(phone);
        say("%d registered %s endpoint=%d", phone->number, name, phone->endpoint);
    }
    return true;
}

libvoice_callbacks_t telephone_callbacks() {
    libvoice_callbacks_t callbacks = {};
    callbacks.voice_plugin_exit = telephone_exit;
    callbacks.voice_plugin_event = telephone_channel_event;
    callbacks.voice_plugin_create = telephone_media_create;
    callbacks.voice_plugin_modify = telephone_media_modify;
    callbacks.voice_plugin_destroy = telephone_media_destroy;
    callbacks.voice_plugin_get = telephone_get_parameters;
    callbacks.voice_plugin_set = telephone_set_parameters;
    callbacks.voice_plugin_create_ctx = telephone_create_context;
    callbacks.voice_plugin_add_stream = telephone_add_stream;
    callbacks.voice_plugin_modify_stream = telephone_modify_stream;
    callbacks.voice_plugin_remove_stream = telephone_remove_stream;
    callbacks.voice_plugin_destroy_ctx = telephone_destroy_context;
    return callbacks;
}

void telephones_application_lost(kex_t *, peer_t *, void *) {
    say("application lost");
    for (int i = 0; i < telephone_count(); i++) {
        telephone_at(i)->endpoint = -1;
        telephone_media_drop(telephone_at(i));
        telephone_silence(telephone_at(i));
    }
    memset(contexts, 0, sizeof contexts);
}

void telephone_media_drop(telephone *phone) {
    for (uint32_t i = 0; i < kSessions; i++) {
        media_statistics statistics;
        if (audio_close(&phone->sound, i, &statistics))
            say("%d media ended line=%u %s", phone->number, i, media_statistics_text(&statistics));
    }
}
