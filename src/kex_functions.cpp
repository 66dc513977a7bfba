// SPDX-License-Identifier: MIT
// The functions that the bus calls: in a plugin on itself, on its endpoints and for contexts, and in the voice
// application.
//
// Above each handler: its arguments in reading order, its reply, its errors, then one line per surprise. Some handlers
// end in two returns that differ in one word: the exit marker shows the source line it was written from, and each exit
// owes its own.
#include <stdio.h>  // perror
#include <stdlib.h> // abort

#include <netinet/in.h> // sockaddr_in

#include "call.h"
#include "libvoice_plugin.h"
#include "lifecycle.h"
#include "text.h"
#include "trace.h"

using voice::Bytes;
using voice::Call;
using voice::call_end;
using voice::Descriptors;
using voice::kCallDone;
using voice::kCallFailed;
using voice::List;
using voice::status_of;
using voice::Text;

// The application has gone: be a plugin that has not met it yet. The peer handler is the only way here.
int voice::libvoice_peer_event_handler(peer_t *, int, void *) {
    peer_forget();
    plugin_endpoints_preset();
    libvoice_register_datamodel_cb();
    return 1;
}

// ================================================================================================= Plugin: its life

extern "C" {

// "country" text -> boolean. 196640 "country".
// A plugin whose lines cannot be brought up is of no use: that ends the process.
int __init(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    Text country;
    if (!c.read_value("country", country)) {
        TRACE_ERROR("Missing argument 'country'");
        c.missing_argument("country");
        return call_end(false, call, return_value);
    }
    if (libvoice_registered_callbacks.voice_plugin_init(country.get()) != 0) {
        TRACE_ERROR("Error initializing plugin");
        perror("Error initializing plugin");
        abort();
    }
    return call_end(true, call, return_value);
}

// "reason" uint32 -> boolean. 196640 "reason".
int __exit(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    uint32_t reason = 0;
    if (!c.read_u32("reason", reason)) {
        TRACE_ERROR("Missing argument reason");
        c.missing_argument("reason");
        // Kept: here the reply is filled after the call is destroyed and the exit marker written.
        fcall_destroy(call);
        TRACE_LEAVE();
        variant_setBool(return_value, 0);
        return kCallFailed;
    }
    libvoice_registered_callbacks.voice_plugin_exit(reason);
    return call_end(true, call, return_value);
}
}

// ================================================================================================= Plugin: endpoints

namespace {

using MediaCallback = int32_t (*)(int32_t, uint32_t, void *, int32_t **);

// The number of the called endpoint in this plugin's table, or negative.
int32_t local_endpoint(const Call &c) {
    const char *name = c.object_name();
    return name ? libvoice_get_endpoint_by_name(name) : -1;
}

// The same with the trace message and the error entry that create, modify and destroy give.
int32_t called_endpoint(Call &c) {
    const int32_t endpoint = local_endpoint(c);
    if (endpoint < 0) {
        TRACE_ERROR_AS(c.function, "Invalid endpoint id %d", endpoint);
        c.error(voice::kErrorMissing, "Invalid endpoint", "id");
    }
    return endpoint;
}

// The descriptors of "filedesc".
bool descriptors_read(Call &c, Descriptors &descriptors) {
    List list;
    const int count = voice::filedesc_read(c, list, voice::Where::caller(c.function));
    for (int i = 0; i < count; ++i)
        TRACE_INFO_AS(c.function, "\nfd[%d] = %d\n", i, descriptors.take(list.get(), i));
    return count != 0;
}

// The socket pair between the two addresses at the end of the longer connection information.
bool sockets_open(const Call &c, const Bytes &cnx_info, Descriptors &descriptors) {
    sockaddr_in local = {};
    sockaddr_in remote = {};
    bool open = false;
    if (cnx_info.length() >= LIBVOICE_CNX_INFO_SOCKET_BYTES) {
        memcpy(&local, cnx_info.data() + LIBVOICE_CNX_INFO_LOCAL, sizeof local);
        memcpy(&remote, cnx_info.data() + LIBVOICE_CNX_INFO_REMOTE, sizeof remote);
        open = libvoice_connectMediaSockets(&local, &remote, descriptors.place(0), descriptors.place(1)) != 0;
    }
    if (!open)
        TRACE_ERROR_AS(c.function, "Failed to create and connect to media sockets");
    return open;
}

enum class Media { create, modify };

// What create and modify share; only create has the form with sockets.
bool media_set_up(Call &c, Media what, MediaCallback callback) {
    Descriptors descriptors;
    const int32_t endpoint = called_endpoint(c);
    if (endpoint < 0)
        return false;
    Bytes cnx_info;
    if (!c.read_value("cnx_info", cnx_info)) {
        TRACE_ERROR_AS(c.function, "Missing argument cnx_info");
        c.missing_argument("cnx_info");
        return false;
    }
    const bool by_sockets = what == Media::create && cnx_info.length() > LIBVOICE_CNX_INFO_BYTES;
    if (!(by_sockets ? sockets_open(c, cnx_info, descriptors) : descriptors_read(c, descriptors)))
        return false;
    uint32_t line = 0;
    if (!c.read_u32("ep_line_id", line)) {
        TRACE_ERROR_AS(c.function, "Missing argument line_id");
        c.missing_argument("ep_line_id");
        return false;
    }
    Descriptors::HandedOver handed = descriptors.hand_over();
    int32_t *array = handed.fds;
    if (callback(endpoint, line, cnx_info.data(), &array) == 0)
        return true;
    if (what == Media::create)
        TRACE_ERROR_AS(c.function, "voice plugin create FAILED");
    else
        TRACE_ERROR_AS(c.function, "voice plugin modify FAILED");
    return false;
}

bool signal_play(Call &c) {
    Bytes signal;
    if (!c.read_bytes("signal", signal)) {
        TRACE_ERROR_AS(c.function, "Missing argument 'signal'");
        c.missing_argument("signal");
        return false;
    }
    auto *message = voice::record_take<libvoice_signal_t>(signal, voice::Where::caller(c.function));
    return message && libvoice_registered_callbacks.voice_plugin_signal(message) == 0;
}

bool event_take(Call &c) {
    const int32_t endpoint = local_endpoint(c);
    if (endpoint < 0)
        return false; // Kept: without a trace message, unlike the other endpoint functions.
    Bytes event;
    if (!c.read_bytes("event", event)) {
        TRACE_ERROR_AS(c.function, "Missing argument 'event'");
        c.missing_argument("event");
        return false;
    }
    uint32_t channel = 0;
    if (!c.read_u32("channel_id", channel)) {
        TRACE_ERROR_AS(c.function, "Missing argument channel_id");
        c.missing_argument("channel_id");
        return false;
    }
    auto *message = voice::record_take<libvoice_event_t>(event, voice::Where::caller(c.function));
    if (!message)
        return false;
    if (!libvoice_registered_callbacks.voice_plugin_event) {
        TRACE_ERROR_AS(c.function, "No voice_plugin_event callback registered");
        return false;
    }
    message->endpoint = endpoint;
    return libvoice_registered_callbacks.voice_plugin_event(message, channel) == 0;
}

bool parameters_set(Call &c) {
    Bytes bytes;
    if (!c.read_bytes("param_set_params", bytes)) {
        TRACE_ERROR_AS(c.function, "Missing argument 'param_set_params'");
        c.missing_argument("param_set_params");
        return false;
    }
    auto *set = voice::record_take<libvoice_param_set_t>(bytes, voice::Where::caller(c.function));
    return set && set->length != 0 && libvoice_registered_callbacks.voice_plugin_set(set) == 0;
}

// The callback's result, freed with free().
struct ParameterResult {
    libvoice_param_set_t *set = nullptr;

    ~ParameterResult() { free(set); }
};

} // namespace

extern "C" {

// "signal" bytes (signal message) -> boolean. 196640 "signal".
// The endpoint is not looked up: the message names it.
int __EndPoint_signal(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!signal_play(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "event" bytes (event message), "channel_id" uint32 -> boolean. 196640 "event", "channel_id".
int __EndPoint_event(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    call_end(event_take(c), call, return_value);
    // Kept: the later true wins; a caller never sees an event fail.
    variant_setBool(return_value, 1);
    return kCallDone;
}

// "cnx_info" bytes, "filedesc" descriptors (only with up to 704 bytes of cnx_info), "ep_line_id" uint32 -> boolean.
// 196640 "cnx_info", "filedesc", "ep_line_id"; "Invalid endpoint" "id".
int __EndPoint_create(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!media_set_up(c, Media::create, libvoice_registered_callbacks.voice_plugin_create))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// As create.
// Kept: "filedesc" is always read, so that with convert-media on every modify is rejected.
int __EndPoint_modify(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!media_set_up(c, Media::modify, libvoice_registered_callbacks.voice_plugin_modify))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "ep_line_id" uint32 -> boolean once the callback was reached. 196640 "ep_line_id"; "Invalid endpoint" "id".
// Kept: the two early failures leave neither a return value nor an exit marker.
int __EndPoint_destroy(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    const int32_t endpoint = called_endpoint(c);
    if (endpoint < 0) {
        fcall_destroy(call);
        return kCallFailed;
    }
    uint32_t line = 0;
    if (!c.read_u32("ep_line_id", line)) {
        TRACE_ERROR("Missing argument line_id");
        c.missing_argument("ep_line_id");
        fcall_destroy(call);
        return kCallFailed;
    }
    const int32_t result = libvoice_registered_callbacks.voice_plugin_destroy(endpoint, line);
    if (result != 0) {
        TRACE_ERROR("Error destroying media, got error code %d.", result);
        return call_end(false, call, return_value);
    }
    return call_end(true, call, return_value);
}

// "param_set_request" bytes (parameter set) -> bytes (parameter set) when the callback made one. 196640
// "param_set_request".
int __EndPoint_get(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    Bytes bytes;
    if (!c.read_bytes("param_set_request", bytes)) {
        TRACE_ERROR("Missing argument 'param_set_request'");
        c.missing_argument("param_set_request");
        fcall_destroy(call);
        TRACE_LEAVE();
        return kCallFailed;
    }
    ParameterResult result;
    auto *request = voice::record_take<libvoice_param_set_t>(bytes, voice::Where::caller(__func__));
    const bool done = request && libvoice_registered_callbacks.voice_plugin_get(request, &result.set, 0) == 0;
    if (!done) {
        if (request)
            TRACE_ERROR("voice_plugin_get FAILED");
        fcall_destroy(call);
        TRACE_LEAVE();
        return kCallFailed;
    }
    if (result.set)
        variant_setByteArray(return_value, result.set, static_cast<uint32_t>(sizeof *result.set) + result.set->length);
    fcall_destroy(call);
    return kCallDone; // Kept: no exit marker on this path.
}

// "param_set_params" bytes (parameter set) -> boolean. 196640 "param_set_params".
// An empty set is rejected without reaching the callback.
int __EndPoint_set(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!parameters_set(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

void debug_libvoice_print_buffer(const void *buffer, uint32_t length) {
    // Kept: the address moves by a byte per trace message, not by a word; the messages show overlapping words.
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    for (uint32_t i = 0; buffer && i < length / 4; ++i) {
        uint32_t word = 0;
        memcpy(&word, bytes + i, sizeof word);
        TRACE_ERROR("%p %08X", static_cast<const void *>(bytes + i), word);
    }
}
}

// ===================================================================================== Plugin: contexts and streams
//
// All five read without attributes, reply a boolean, and say "voice plugin modify FAILED" when their callback failed.
// Kept: a missing "ctx_id", "ep_id" or "stream_id" ends the call without a return value and an exit marker; what else
// is missing ends it like a failed callback.

namespace {

// The ending that leaves neither value nor marker.
int call_end_without_value(function_call_t *call) {
    fcall_destroy(call);
    return kCallFailed;
}

bool context_id_read(Call &c, uint32_t &context) {
    if (c.read_u32("ctx_id", context))
        return true;
    TRACE_ERROR_AS(c.function, "Missing argument ctx_id");
    c.missing_argument("ctx_id");
    return false;
}

bool stream_info_read(Call &c, Bytes &stream_info) {
    if (c.read_value("stream_info", stream_info))
        return true;
    TRACE_ERROR_AS(c.function, "Missing argument stream_info");
    c.missing_argument("cnx_info"); // Kept: the entry bears this name.
    return false;
}

} // namespace

extern "C" {

// "ctx_id" uint32 -> boolean. 196640 "ctx_id".
int __create_ctx(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__, voice::Attributes::none);
    uint32_t context = 0;
    if (!context_id_read(c, context))
        return call_end_without_value(call);
    if (libvoice_registered_callbacks.voice_plugin_create_ctx(context) != 0) {
        TRACE_ERROR("voice plugin modify FAILED");
        return call_end(false, call, return_value);
    }
    return call_end(true, call, return_value);
}

// "ep_id" int32, "ctx_id" uint32, "line_id" uint32, "stream_info" bytes, "filedesc" descriptors -> boolean.
// 196640 "ep_id", "ctx_id", "line_id", "cnx_info" (for stream_info), "filedesc".
// The stream information passes to the callback, which frees it.
int __add_stream(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__, voice::Attributes::none);
    int32_t endpoint = -1;
    if (!c.read_i32("ep_id", endpoint)) {
        TRACE_ERROR("Missing argument ep_id");
        c.missing_argument("ep_id");
        return call_end_without_value(call);
    }
    uint32_t context = 0;
    if (!context_id_read(c, context))
        return call_end_without_value(call);
    uint32_t line = 0;
    if (!c.read_u32("line_id", line)) {
        TRACE_ERROR("Missing argument line_id");
        c.missing_argument("line_id");
        return call_end(false, call, return_value);
    }
    Bytes stream_info;
    Descriptors descriptors;
    if (!stream_info_read(c, stream_info) || !descriptors_read(c, descriptors))
        return call_end(false, call, return_value);
    Descriptors::HandedOver handed = descriptors.hand_over();
    int32_t *array = handed.fds;
    const int32_t result =
        libvoice_registered_callbacks.voice_plugin_add_stream(context, stream_info.give_away(), &array, endpoint, line);
    if (result != 0) {
        TRACE_ERROR("voice plugin modify FAILED");
        return call_end(false, call, return_value);
    }
    return call_end(true, call, return_value);
}

// "ctx_id" uint32, "stream_info" bytes -> boolean. 196640 "ctx_id", "cnx_info" (for stream_info).
// The stream information passes to the callback, which frees it.
int __modify_stream(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__, voice::Attributes::none);
    uint32_t context = 0;
    if (!context_id_read(c, context))
        return call_end_without_value(call);
    Bytes stream_info;
    if (!stream_info_read(c, stream_info))
        return call_end(false, call, return_value);
    const int32_t result = libvoice_registered_callbacks.voice_plugin_modify_stream(context, stream_info.give_away());
    if (result != 0) {
        TRACE_ERROR("voice plugin modify FAILED");
        return call_end(false, call, return_value);
    }
    return call_end(true, call, return_value);
}

// "ctx_id" uint32, "stream_id" uint32 -> boolean. 196640 "ctx_id", "stream_id".
int __remove_stream(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__, voice::Attributes::none);
    uint32_t context = 0;
    if (!context_id_read(c, context))
        return call_end_without_value(call);
    uint32_t stream = 0;
    if (!c.read_u32("stream_id", stream)) {
        TRACE_ERROR("Missing argument stream_id");
        c.missing_argument("stream_id");
        return call_end_without_value(call);
    }
    if (libvoice_registered_callbacks.voice_plugin_remove_stream(context, stream) != 0) {
        TRACE_ERROR("voice plugin modify FAILED");
        return call_end(false, call, return_value);
    }
    return call_end(true, call, return_value);
}

// "ctx_id" uint32 -> boolean. 196640 "ctx_id".
int __destroy_ctx(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__, voice::Attributes::none);
    uint32_t context = 0;
    if (!context_id_read(c, context))
        return call_end_without_value(call);
    if (libvoice_registered_callbacks.voice_plugin_destroy_ctx(context) != 0) {
        TRACE_ERROR("voice plugin modify FAILED");
        return call_end(false, call, return_value);
    }
    return call_end(true, call, return_value);
}
}

// ============================================================================================= Voice application

namespace {

// Kept: whichever name is missing, the entry says "name".
void name_missing(Call &c) {
    TRACE_ERROR_AS(c.function, "Missing 'name' parameter.");
    c.error(voice::kErrorOwnSentence, "Missing 'name' parameter.", "name");
}

bool name_read(Call &c, const char *argument, Text &text) {
    if (c.read_value(argument, text))
        return true;
    name_missing(c);
    return false;
}

void type_missing(Call &c) {
    TRACE_ERROR_AS(c.function, "Missing 'type' parameter.");
    c.error(voice::kErrorOwnSentence, "Missing 'type' parameter.", "type");
}

bool plugin_register(Call &c) {
    TRACE_INFO_AS(c.function, "Trying to register plugin");
    Text name;
    if (!c.read_value("plugin_name", name)) {
        TRACE_ERROR_AS(c.function, "Missing 'plugin_name' parameter.");
        c.error(voice::kErrorOwnSentence, "Missing 'plugin_name' parameter.", "plugin_name");
        return false;
    }
    char country[3] = {};
    if (libvoice_app_registered_callbacks.voice_app_get_country(country, sizeof country) < 0) {
        TRACE_ERROR_AS(c.function, "Error retrieving country code");
        return false;
    }
    country[sizeof country - 1] = '\0';
    TRACE_INFO_AS(c.function, "Trying to register plugin: %s", name.get());
    peer_t *peer = c.peer();
    // Whatever it answers: a plugin that found no entry has no peer to be reached by, and the request below says so.
    libvoice_plugin_set_name_by_peer(peer, name.get());
    if (!libvoice_kex_init_plugin(name.get(), country)) {
        TRACE_ERROR_AS(c.function, "Error initializing plugin %s", name.get());
        return false;
    }
    TRACE_INFO_AS(c.function, "Registered plugin: %s Peer %p", name.get(), static_cast<void *>(peer));
    return true;
}

bool plugin_deregister(Call &c) {
    Text name;
    if (!name_read(c, "plugin_name", name))
        return false;
    if (!libvoice_kex_exit_plugin(name.get(), LIBVOICE_EXIT_DEREGISTERED)) {
        TRACE_ERROR_AS(c.function, "Error exiting plugin %s", name.get());
        return false;
    }
    libvoice_plugin_deregister(name.get());
    return true;
}

void endpoint_fill(libvoice_endpoint_t &entry, const Text &name, const Text &path, uint16_t type,
                   voice_plugin_entry_t *plugin, const Bytes &codecs) {
    entry.used = 1;
    entry.type = type;
    entry.encaps_capab = 2;
    entry.plugin_table = plugin;
    // Whole records only; more than the entry holds are left out.
    const uint32_t offered = codecs.data() ? codecs.length() / LIBVOICE_CODEC_RECORD_BYTES : 0;
    entry.num_of_codecs = offered < LIBVOICE_ENDPOINT_CODECS ? offered : LIBVOICE_ENDPOINT_CODECS;
    voice::text_copy(entry.endpoint_path, path.get());
    voice::text_copy(entry.name, name.get());
    if (entry.num_of_codecs != 0)
        memcpy(entry.codec_list, codecs.data(), entry.num_of_codecs * LIBVOICE_CODEC_RECORD_BYTES);
}

// The entry that was claimed for the endpoint and accepted by the application, or null.
libvoice_endpoint_t *endpoint_register(Call &c) {
    Text plugin_name;
    Text name;
    Text path;
    if (!name_read(c, "plugin_name", plugin_name) || !name_read(c, "endpoint_name", name) ||
        !name_read(c, "endpoint_path", path))
        return nullptr;
    uint16_t type = 0;
    if (!c.read_u16("type", type)) {
        type_missing(c);
        return nullptr;
    }
    Bytes codecs;
    if (!c.read_bytes("codeclist", codecs)) {
        TRACE_ERROR_AS(c.function, "Missing argument 'codeclist'");
        c.missing_argument("codeclist");
        return nullptr;
    }
    TRACE_INFO_AS(c.function, "Trying to registering endpoint %s", name.get());
    voice_plugin_entry_t *plugin = libvoice_plugin_get_entry(plugin_name.get());
    if (!plugin) {
        // Kept: "regisering".
        TRACE_ERROR_AS(c.function, "Failed regisering endpoint %s - plugin_name %s doesn't exist", name.get(),
                       plugin_name.get());
        return nullptr;
    }
    libvoice_endpoint_t *entry = libvoice_get_next_free_endpoint();
    if (!entry) {
        TRACE_ERROR_AS(c.function, "No space to register the endpoint");
        return nullptr;
    }
    endpoint_fill(*entry, name, path, type, plugin, codecs);
    if (libvoice_app_registered_callbacks.voice_app_register_endpoint(entry) == 0)
        return entry;
    // Kept: released by the number that the application left in it, so that another entry of that number goes first.
    if (entry->used == 1)
        libvoice_delete_endpoint_entry_by_endpoint(entry->endpoint);
    return nullptr;
}

bool endpoint_deregister(Call &c) {
    uint16_t endpoint = 0;
    if (!c.read_u16("endpoint", endpoint)) {
        type_missing(c); // Kept: the entry says "type".
        return false;
    }
    TRACE_INFO_AS(c.function, "Deregister endpoint '%d'.", static_cast<int>(endpoint));
    libvoice_delete_endpoint_entry_by_endpoint(endpoint);
    return true;
}

bool event_report(Call &c) {
    Text plugin;
    if (!c.read_text("plugin_name", plugin)) {
        name_missing(c);
        return false;
    }
    if (!plugin.get()) {
        TRACE_ERROR_AS(c.function, "Invalid plugin name received %p", static_cast<const void *>(plugin.get()));
        return false;
    }
    Bytes bytes;
    if (!c.read_bytes("event", bytes)) {
        TRACE_ERROR_AS(c.function, "Missing argument 'event'");
        c.missing_argument("event");
        return false;
    }
    if (!bytes.data()) {
        TRACE_ERROR_AS(c.function, "Invalid Event received from %s event = %p", plugin.get(), bytes.block());
        return false;
    }
    auto *message = voice::record_take<libvoice_event_t>(bytes, voice::Where::caller(c.function));
    if (!message)
        return false;
    // Events have one form, whatever the convert-media flag says.
    TRACE_INFO_AS(c.function, "plugin_name = '%s' voice_plugin_idx = '%d'", plugin.get(), message->endpoint);
    libvoice_app_registered_callbacks.voice_app_event(message);
    return true;
}

} // namespace

extern "C" {

// "plugin_name" text -> boolean. 196638 "Missing 'plugin_name' parameter." "plugin_name".
int __VoiceService_register_plugin(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!plugin_register(c))
        return call_end(false, call, return_value);
    return call_end(true, call, return_value);
}

// "plugin_name" text -> boolean. 196638 "Missing 'name' parameter." "name".
int __VoiceService_deregister_plugin(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    const bool done = plugin_deregister(c);
    // Kept: here the reply is filled after the call is destroyed.
    fcall_destroy(call);
    variant_setBool(return_value, done);
    TRACE_LEAVE();
    return status_of(done);
}

// "plugin_name", "endpoint_name", "endpoint_path" text, "type" uint16, "codeclist" bytes -> int16 endpoint number, or
// false. 196638 "Missing 'name' parameter." "name", "Missing 'type' parameter." "type"; 196640 "codeclist".
int __VoiceService_register_endpoint(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    const libvoice_endpoint_t *entry = endpoint_register(c);
    if (!entry)
        return call_end(false, call, return_value);
    variant_setInt16(return_value, static_cast<int16_t>(entry->endpoint));
    fcall_destroy(call);
    TRACE_LEAVE();
    return kCallDone;
}

// "endpoint" uint16 -> boolean. 196638 "Missing 'type' parameter." "type".
// A number that no entry holds is no error.
int __VoiceService_deregister_endpoint(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    const bool done = endpoint_deregister(c);
    // Kept: here the reply is filled after the call is destroyed.
    fcall_destroy(call);
    variant_setBool(return_value, done);
    TRACE_LEAVE();
    return status_of(done);
}

// "plugin_name" text, "event" bytes (event message) -> nothing. 196638 "Missing 'name' parameter." "name"; 196640
// "event".
// Kept: never a return value, on success or failure.
int __VoiceService_event(function_call_t *call, argument_list_t *arguments, variant_t *) {
    TRACE_ENTER();
    Call c(call, arguments, __func__);
    if (!event_report(c)) {
        fcall_destroy(call);
        TRACE_LEAVE();
        return kCallFailed;
    }
    fcall_destroy(call);
    TRACE_LEAVE();
    return kCallDone;
}
}
