// SPDX-License-Identifier: MIT
// Media, contexts and streams of lines: who owns which descriptor, and what is open.
#include "console.h"
#include "line.h"
#include "line_plugin.h"
#include "media_record.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr uint32_t kContexts = 16;
constexpr int kUsedDescriptors = 2; // media, control; what else was sent (fax) is of no use here

uint32_t contexts[kContexts]; // ids; 0: free

uint32_t *context_find(uint32_t id) {
    for (uint32_t &context : contexts)
        if (context == id)
            return &context;
    return nullptr;
}

bool context_exists(uint32_t id) {
    return id != 0 && context_find(id) != nullptr;
}

bool stream_find(uint32_t context, uint32_t stream, line_t **found, uint32_t *appearance) {
    for (uint32_t i = 0; context != 0 && i < line_count(); i++)
        for (uint32_t k = 0; k < LINE_APPEARANCES; k++) {
            const line_session *session = &line_at(i)->sessions[k];
            if (!session->open || session->context != context || session->stream != stream)
                continue;
            *found = line_at(i);
            *appearance = k;
            return true;
        }
    return false;
}

bool is_text(kex_text_t text, const char *wanted) {
    return text.length == strlen(wanted) && memcmp(text.bytes, wanted, text.length) == 0;
}

line_t *line_of_path(kex_text_t path) {
    for (uint32_t i = 0; i < line_count(); i++) {
        char own[LIBVOICE_ENDPOINT_PATH_BYTES];
        snprintf(own, sizeof own, "%s.EndPoint.%s", libvoice_get_pluginname(), line_at(i)->name);
        if (is_text(path, own))
            return line_at(i);
    }
    return nullptr;
}

bool media_was_asked; // of us, in the call that runs

// Media that cannot be had: the application is told why, so that it can end the call.
int32_t media_reject(line_t *line, uint32_t appearance, uint32_t cause, const char *why) {
    say("%d refuses media: %s", line->number, why);
    line_report_cause(line, appearance, cause, why);
    return 1;
}

const char *media_open(line_t *line, uint32_t appearance, const line_media_t *media) {
    if (appearance >= LINE_APPEARANCES)
        return "no such line";
    if (line->sessions[appearance].open)
        return "media is set up already";
    if (media->media < 0)
        return "media descriptor is no connected socket";
    if (line->driver->open == nullptr)
        return "no media here";
    const char *wrong = line->driver->open(line->userdata, appearance, media);
    if (wrong == nullptr)
        line->sessions[appearance] = {true, media->context, media->stream};
    return wrong;
}

const char *media_change(const line_t *line, uint32_t appearance, line_media_t *media) {
    if (appearance >= LINE_APPEARANCES || !line->sessions[appearance].open)
        return "there is no media to change";
    if (line->driver->change == nullptr)
        return "media cannot be changed here";
    media->context = line->sessions[appearance].context;
    media->stream = line->sessions[appearance].stream;
    return line->driver->change(line->userdata, appearance, media);
}

// "create" and "modify" differ in what is asked of the driver.
int32_t connection_callback(int32_t endpoint, uint32_t appearance, const void *cnx_info, int32_t *const *descriptors,
                            bool is_new) {
    line_t *line = line_of_endpoint(endpoint);
    line_media_t media;
    media_was_asked = true;
    const char *wrong = line == nullptr ? "unknown endpoint" : media_read_connection(cnx_info, &media);
    if (wrong == nullptr) {
        media.media = (*descriptors)[VOICE_DESCRIPTOR_MEDIA];
        media.control = (*descriptors)[VOICE_DESCRIPTOR_CONTROL];
        wrong = is_new ? media_open(line, appearance, &media) : media_change(line, appearance, &media);
    }
    voice_descriptors_close(descriptors, wrong == nullptr ? kUsedDescriptors : 0, LIBVOICE_DESCRIPTORS);
    if (line == nullptr)
        return 1;
    return wrong == nullptr ? 0 : media_reject(line, appearance, VOICE_CAUSE_UNSUPPORTED, wrong);
}

} // namespace

int line_plugin_call_begins(kex_t *, void *) {
    media_was_asked = false;
    return 1;
}

// With addresses in place of descriptors the library opens the sockets, before it asks us. With descriptors a call that
// it rejects before that is wrong in itself, and its caller has the reply.
void line_plugin_call_failed(const kex_failed_call_t *call, void *) {
    uint32_t appearance;
    line_t *line = line_of_path(call->path);
    if (media_was_asked || !libvoice_get_convert_media() || line == nullptr || !is_text(call->function, "create") ||
        !kex_currentUInt32(call->bus, "ep_line_id", &appearance))
        return;
    media_reject(line, appearance, VOICE_CAUSE_FAILURE_TEMPORARY, "no media sockets");
}

bool line_close_media(line_t *line, uint32_t appearance) {
    if (appearance >= LINE_APPEARANCES || !line->sessions[appearance].open)
        return false;
    line->sessions[appearance] = {};
    line->driver->close(line->userdata, appearance);
    return true;
}

void line_contexts_forget() {
    memset(contexts, 0, sizeof contexts);
}

int32_t line_create_callback(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors) {
    return connection_callback(endpoint, appearance, cnx_info, descriptors, true);
}

int32_t line_modify_callback(int32_t endpoint, uint32_t appearance, void *cnx_info, int32_t **descriptors) {
    return connection_callback(endpoint, appearance, cnx_info, descriptors, false);
}

int32_t line_destroy_callback(int32_t endpoint, uint32_t appearance) {
    line_t *line = line_of_endpoint(endpoint);
    return line != nullptr && line_close_media(line, appearance) ? 0 : 1;
}

int32_t line_create_context_callback(uint32_t context) {
    uint32_t *entry = context_find(0);
    if (context == 0 || line_count() == 0 || entry == nullptr || context_exists(context))
        return 1;
    *entry = context;
    return 0;
}

int32_t line_add_stream_callback(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint,
                                 uint32_t appearance) {
    line_t *line = line_of_endpoint(endpoint);
    line_media_t media;
    const char *wrong = media_read_stream(stream_info, &media);
    free(stream_info); // ours, also when it fails
    media.context = context;
    media.media = (*descriptors)[0];
    media.control = (*descriptors)[1];
    if (line == nullptr)
        wrong = "unknown endpoint";
    else if (wrong == nullptr && !context_exists(context))
        wrong = "no such context";
    else if (wrong == nullptr && media.stream == 0)
        wrong = "streams are numbered from 1";
    if (wrong == nullptr)
        wrong = media_open(line, appearance, &media);
    voice_descriptors_close(descriptors, wrong == nullptr ? kUsedDescriptors : 0, LIBVOICE_DESCRIPTORS);
    if (line == nullptr)
        return 1;
    return wrong == nullptr ? 0 : media_reject(line, appearance, VOICE_CAUSE_UNSUPPORTED, wrong);
}

int32_t line_modify_stream_callback(uint32_t context, void *stream_info) {
    line_media_t media;
    line_t *line = nullptr;
    uint32_t appearance = 0;
    const char *wrong = media_read_stream(stream_info, &media);
    free(stream_info);
    if (!stream_find(context, media.stream, &line, &appearance))
        return 1;
    if (wrong == nullptr)
        wrong = media_change(line, appearance, &media);
    return wrong == nullptr ? 0 : media_reject(line, appearance, VOICE_CAUSE_UNSUPPORTED, wrong);
}

int32_t line_remove_stream_callback(uint32_t context, uint32_t stream) {
    line_t *line;
    uint32_t appearance;
    return stream_find(context, stream, &line, &appearance) && line_close_media(line, appearance) ? 0 : 1;
}

int32_t line_destroy_context_callback(uint32_t context) {
    if (!context_exists(context))
        return 1;
    *context_find(context) = 0;
    for (uint32_t i = 0; i < line_count(); i++)
        for (uint32_t k = 0; k < LINE_APPEARANCES; k++)
            if (line_at(i)->sessions[k].context == context)
                line_close_media(line_at(i), k); // streams that nobody removed go with it
    return 0;
}
