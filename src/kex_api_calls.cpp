// SPDX-License-Identifier: MIT
// The requests of plugins and of the voice application, the handles they go over, and the checking of replies.
#include <netinet/in.h> // sockaddr_in
#include <stddef.h>     // offsetof
#include <stdlib.h>     // calloc, malloc, free
#include <string.h>     // memcpy

#include "libvoice_plugin.h"
#include "lifecycle.h"
#include "request.h"
#include "trace.h"

namespace {

constexpr voice::Zone kDefault = voice::Zone::libv;
constexpr voice::Zone kSignal = voice::Zone::signal;
constexpr voice::Zone kConfig = voice::Zone::voipcfg;
constexpr voice::Zone kNoZone = voice::Zone::none; // Kept: two trace messages of the "get" request have no zone.

kex_t *bus_handle;
peer_t *peer_handle;
uint8_t convert_media;

static_assert(sizeof(libvoice_signal_t) == 28 && offsetof(libvoice_signal_t, endpoint) == 0);
static_assert(offsetof(libvoice_signal_t, params) == 20 && offsetof(libvoice_signal_t, length) == 24);
static_assert(sizeof(libvoice_event_t) == 20 && offsetof(libvoice_event_t, endpoint) == 0);
static_assert(offsetof(libvoice_event_t, params) == 12 && offsetof(libvoice_event_t, length) == 16);
static_assert(sizeof(libvoice_param_set_t) == 8 && offsetof(libvoice_param_set_t, params) == 0);
static_assert(offsetof(libvoice_param_set_t, length) == 4 && offsetof(libvoice_param_block_t, buffer) == 8);
static_assert(sizeof(libvoice_param_block_t) == 8 + LIBVOICE_PARAM_BLOCK_BYTES);
static_assert(LIBVOICE_CNX_INFO_LOCAL == LIBVOICE_CNX_INFO_BYTES && sizeof(sockaddr_in) == 16);
static_assert(LIBVOICE_CNX_INFO_REMOTE == LIBVOICE_CNX_INFO_LOCAL + sizeof(sockaddr_in));
static_assert(LIBVOICE_CNX_INFO_SOCKET_BYTES == LIBVOICE_CNX_INFO_REMOTE + sizeof(sockaddr_in));

// A word of a record, which may stand at any address: hosts put records together as bytes.
uint32_t word_at(const void *record, size_t offset) {
    uint32_t word;
    memcpy(&word, static_cast<const char *>(record) + offset, sizeof word);
    return word;
}

// The endpoint that a signal names.
int32_t endpoint_of(const libvoice_signal_t *signal) {
    return static_cast<int32_t>(word_at(signal, offsetof(libvoice_signal_t, endpoint)));
}

// A record goes out whole: its head, then as many bytes as it announces. No: the two do not fit a 32-bit count.
template <typename Head>
bool request_add_record(request_t *request, const char *name, const Head *record) {
    const uint64_t bytes = sizeof(Head) + static_cast<uint64_t>(word_at(record, offsetof(Head, length)));
    if (bytes > UINT32_MAX)
        return false;
    voice::request_add_bytes(request, name, record, static_cast<uint32_t>(bytes));
    return true;
}

// A set made here: it stands as the compiler wants it, and its length is that of what was added.
void request_add_set(request_t *request, const char *name, const libvoice_param_block_t &set) {
    voice::request_add_bytes(request, name, &set, static_cast<uint32_t>(sizeof set.head) + set.head.length);
}

request_t *endpoint_request(const char *path, const char *function) {
    return request_create_executeFunction(path, function, LIBVOICE_REQUEST_FLAGS_MEDIA);
}

// Sends a lifecycle request to a plugin; the application may want to see the reply.
bool request_send_for_reply(request_t *request, const char *plugin, void (*on_reply)(request_t *, reply_item_t *)) {
    if (on_reply)
        request_setReplyHandler(request, on_reply);
    return voice::request_send(request, libvoice_plugin_get_peer_by_name(plugin));
}

// The ending of the five context and stream requests.
uint32_t request_send_to_plugin(request_t *request, const char *plugin, voice::Where here = voice::Where::caller()) {
    peer_t *peer = libvoice_plugin_get_peer_by_name(plugin);
    return voice::request_send_and_forget(request, peer, kDefault, here) ? VOICE_SERVICE_OK
                                                                         : VOICE_SERVICE_ERR_INVALID_ARG;
}

void trace_add_failure(uint32_t code, voice::Where here = voice::Where::caller()) {
    TRACE_ERROR_Z_AT(kSignal, here, "libvoice_add_param() failed, rc = 0x%08x (\"%s\")", code,
                     voice::shown(voice_service_strerror(code)));
}

// A set that begins with the endpoint it is about, as every set sent here does. Null after its trace message.
libvoice_param_block_t *endpoint_set(int32_t endpoint, voice::Where here = voice::Where::caller()) {
    libvoice_param_block_t *set = nullptr;
    if (param_set_initialize(LIBVOICE_PARAM_zil_ep_id, &endpoint, sizeof endpoint, &set) == LIBVOICE_OK)
        return set;
    TRACE_ERROR_Z_AT(kConfig, here, "param_set_initialize failed");
    return nullptr;
}

// Both media requests; their trace messages bear this name.
uint32_t _libvoice_create_media(const char *function, int32_t endpoint, uint32_t line, const void *cnx_info,
                                const int32_t (&fds)[3]) {
    const char *path = libvoice_get_endpoint_path(endpoint);
    if (!path) {
        TRACE_ERROR("Failed to create endpoint object path");
        return VOICE_SERVICE_ERR_INVALID_ENDPOINT;
    }
    if (!cnx_info) {
        TRACE_ERROR("Connection information can't be NULL.");
        return VOICE_SERVICE_ERR_MEDIA_FAILED;
    }
    request_t *request = endpoint_request(path, function);
    if (!request) {
        // Kept: the trace message names 'signal' for both functions, and the code is that of a full endpoint table.
        TRACE_ERROR("Not able to create function request for 'signal'.");
        return VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE;
    }
    voice::request_add_u32(request, "ep_line_id", line);
    voice::Value information(VARIANT_BYTES);
    variant_setByteArray(information.get(), cnx_info,
                         convert_media ? LIBVOICE_CNX_INFO_SOCKET_BYTES : LIBVOICE_CNX_INFO_BYTES);
    if (!convert_media && !voice::request_add_fds(request, "filedesc", fds)) {
        TRACE_ERROR("Allocation failure list == NULL");
        request_destroy(request);
        return VOICE_SERVICE_ERR_MEDIA_FAILED;
    }
    request_addParameter(request, "cnx_info", information.get());
    const bool sent = voice::request_send_and_forget(request, libvoice_get_endpoint_peer(endpoint), kDefault);
    return sent ? VOICE_SERVICE_OK : VOICE_SERVICE_ERR_MEDIA_FAILED;
}

} // namespace

void voice::peer_forget() {
    peer_handle = nullptr;
}

extern "C" {

// ---- Handles and flag

void libvoice_set_kex_handler(kex_t *bus) {
    bus_handle = bus;
}

kex_t *libvoice_get_kex_handler() {
    return bus_handle;
}

int libvoice_set_kex_peer_handler(peer_t *peer) {
    peer_handle = peer;
    return peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, voice::libvoice_peer_event_handler);
}

peer_t *libvoice_get_kex_peer_handler() {
    return peer_handle;
}

void libvoice_set_convert_media(uint8_t flag) {
    convert_media = flag;
}

uint8_t libvoice_get_convert_media() {
    return convert_media;
}

void libvoice_kex_final() {}

// ---- Requests of a plugin

int libvoice_kex_register_plugin(const char *plugin_name) {
    TRACE_ENTER();
    request_t *request =
        request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "register_plugin", LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    if (!request) {
        TRACE_ERROR("Failed to create request 'register_plugin'");
        TRACE_LEAVE();
        return 0;
    }
    voice::request_add_text(request, "plugin_name", plugin_name);
    int registered = 0;
    if (!voice::request_send(request, peer_handle))
        TRACE_ERROR("Failed to send 'register_plugin' request.");
    else if (reply_t *reply = voice::reply_await(request))
        variant_toBool(_reply_return_value(reply), &registered);
    request_destroy(request);
    TRACE_LEAVE();
    return registered;
}

uint32_t libvoice_send_event(libvoice_event_t *event) {
    TRACE_ENTER();
    const char *plugin = libvoice_get_pluginname();
    if (!plugin || plugin[0] == '\0') {
        TRACE_ERROR("libvoiceplugin has not been initialized, please call libvoice_kex_init");
        TRACE_LEAVE();
        return 1;
    }
    if (!event) {
        TRACE_ERROR("Event can't be NULL.");
        TRACE_LEAVE();
        return 1;
    }
    request_t *request =
        request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "event", LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    if (!request) {
        TRACE_ERROR("Can't create request to send event.");
        TRACE_LEAVE();
        return 1;
    }
    voice::request_add_text(request, "plugin_name", plugin);
    if (!request_add_record(request, "event", event) || !voice::request_send(request, peer_handle)) {
        TRACE_ERROR("Error sending kex request");
        // Kept: the request is left as it is.
        TRACE_LEAVE();
        return 1;
    }
    request_destroy(request);
    TRACE_LEAVE();
    return 0;
}

// ---- Requests of the voice application: a plugin's life

int libvoice_kex_init_plugin(const char *name, const char *country) {
    TRACE_ENTER();
    const auto on_reply = libvoice_app_registered_callbacks.voice_app_init_reply;
    request_t *request = nullptr;
    bool sent = false;
    if (!name) {
        TRACE_ERROR("Entry parameter error, plugin_name == NULL");
    } else if (!country) {
        TRACE_ERROR("Country Code can't be NULL.");
    } else if (!(request = request_create_executeFunction(name, "init", LIBVOICE_REQUEST_FLAGS_LIFECYCLE))) {
        TRACE_ERROR("Can't create request to send init.");
    } else {
        voice::request_add_text(request, "country", country);
        sent = request_send_for_reply(request, name, on_reply);
    }
    TRACE_LEAVE();
    // Kept: with a reply handler the request is the handler's, also after a failed send; without one it is destroyed on
    // every path, also when it was never made.
    if (!on_reply)
        request_destroy(request);
    return sent;
}

int libvoice_kex_exit_plugin(const char *name, uint32_t reason) {
    TRACE_ENTER();
    const auto on_reply = libvoice_app_registered_callbacks.voice_app_exit_reply;
    request_t *request = nullptr;
    bool sent = false;
    if (!name) {
        TRACE_ERROR("Entry parameter error, plugin_name == NULL");
    } else if (!(request = request_create_executeFunction(name, "exit", LIBVOICE_REQUEST_FLAGS_LIFECYCLE))) {
        TRACE_ERROR("Can't create request to send exit.");
    } else {
        voice::request_add_u32(request, "reason", reason);
        sent = request_send_for_reply(request, name, on_reply);
    }
    TRACE_LEAVE();
    // Kept: as for "init".
    if (!on_reply)
        request_destroy(request);
    return sent;
}

// ---- Requests of the voice application: signals and media

void libvoice_send_signal(libvoice_signal_t *message) {
    const char *path = message ? libvoice_get_endpoint_path(endpoint_of(message)) : nullptr;
    if (!path) {
        TRACE_ERROR_Z(kSignal, "Failed to create endpoint object path");
        return;
    }
    request_t *request = endpoint_request(path, "signal");
    if (!request) {
        TRACE_ERROR_Z(kSignal, "Not able to create function request for 'signal'.");
        return;
    }
    // The record goes out as it stands, whatever the convert-media flag says.
    if (!request_add_record(request, "signal", message)) {
        TRACE_ERROR_Z(kSignal, "Failed to send request.");
        request_destroy(request);
        return;
    }
    voice::request_send_and_forget(request, libvoice_get_endpoint_peer(endpoint_of(message)), kSignal);
}

uint32_t libvoice_create_media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t fd0, int32_t fd1, int32_t fd2) {
    return _libvoice_create_media("create", endpoint, line, cnx_info, {fd0, fd1, fd2});
}

uint32_t libvoice_modify_media(int32_t endpoint, uint32_t line, void *cnx_info, int32_t fd0, int32_t fd1, int32_t fd2) {
    return _libvoice_create_media("modify", endpoint, line, cnx_info, {fd0, fd1, fd2});
}

void libvoice_destroy_media(int32_t endpoint, uint32_t line) {
    const char *path = libvoice_get_endpoint_path(endpoint);
    if (!path) {
        TRACE_ERROR("Failed to create endpoint object path");
        return;
    }
    TRACE_NOTICE("endpoint_name = '%s' destroy media, line = %d", voice::shown(libvoice_get_name_by_endpoint(endpoint)),
                 static_cast<int>(line));
    request_t *request = endpoint_request(path, "destroy");
    if (!request) {
        TRACE_ERROR("Not able to create function request for 'destroy'.");
        return;
    }
    voice::request_add_u32(request, "ep_line_id", line);
    voice::request_send_and_forget(request, libvoice_get_endpoint_peer(endpoint), kDefault);
}

// ---- Requests of the voice application: parameters

uint32_t param_set_initialize(uint32_t id, const void *value, uint32_t length, libvoice_param_block_t **out) {
    auto *set = static_cast<libvoice_param_block_t *>(calloc(1, sizeof(libvoice_param_block_t)));
    *out = set;
    if (!set) {
        trace_add_failure(LIBVOICE_ERR_PARAM_NO_SPACE);
        return LIBVOICE_ERR_PARAM_NO_SPACE;
    }
    set->head.params = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(set->buffer));
    uint8_t *cursor = set->buffer;
    uint32_t remaining = sizeof set->buffer;
    const uint32_t code = libvoice_add_param(id, length, value, &cursor, &remaining);
    if (code != LIBVOICE_OK) {
        trace_add_failure(code);
        free(set); // Kept: the caller's pointer still shows the block; it must not be used.
        return code;
    }
    set->head.length = LIBVOICE_PARAM_BLOCK_BYTES - remaining;
    return LIBVOICE_OK;
}

uint32_t param_set_add(uint32_t id, const void *value, uint32_t length, libvoice_param_block_t *set) {
    if (!set || set->head.length > LIBVOICE_PARAM_BLOCK_BYTES) {
        trace_add_failure(LIBVOICE_ERR_PARAM_NO_SPACE);
        return LIBVOICE_ERR_PARAM_NO_SPACE;
    }
    uint8_t *cursor = set->buffer + set->head.length;
    uint32_t remaining = LIBVOICE_PARAM_BLOCK_BYTES - set->head.length;
    const uint32_t code = libvoice_add_param(id, length, value, &cursor, &remaining);
    if (code != LIBVOICE_OK) {
        trace_add_failure(code);
        return code;
    }
    set->head.length = LIBVOICE_PARAM_BLOCK_BYTES - remaining;
    return LIBVOICE_OK;
}

int libvoice_set_params(int32_t endpoint, uint32_t id, const void *value, uint32_t length) {
    libvoice_param_block_t *set = endpoint_set(endpoint);
    if (!set)
        return 0;
    if (param_set_add(id, value, length, set) != LIBVOICE_OK) {
        TRACE_ERROR_Z(kConfig, "param_set_add failed");
        return 0; // Kept: the set is not freed here, nor on the next path.
    }
    const char *path = libvoice_get_endpoint_path(endpoint);
    if (!path) {
        TRACE_ERROR_Z(kSignal, "Failed to create endpoint object path");
        return 0;
    }
    peer_t *peer = libvoice_get_endpoint_peer(endpoint);
    request_t *request = endpoint_request(path, "set");
    if (!request) {
        TRACE_ERROR_Z(kSignal, "Not able to create function request for 'set'.");
        free(set);
        return 0;
    }
    request_add_set(request, "param_set_params", *set);
    const bool sent = voice::request_send_and_forget(request, peer, kSignal);
    free(set);
    return sent;
}

int libvoice_get_params(int32_t endpoint, uint32_t id, uint32_t context) {
    const char *path = libvoice_get_endpoint_path(endpoint);
    if (!path) {
        TRACE_ERROR("Failed to create endpoint object path");
        return 0;
    }
    libvoice_param_block_t *set = endpoint_set(endpoint);
    if (!set)
        return 0;
    if (param_set_add(id, nullptr, 0, set) != LIBVOICE_OK) {
        TRACE_ERROR_Z(kConfig, "param_set_add failed");
        free(set);
        return 0;
    }
    request_t *request = endpoint_request(path, "get");
    if (!request) {
        TRACE_ERROR_Z(kNoZone, "Not able to create function request for 'get'.");
        free(set);
        return 0;
    }
    // Kept: installed without testing whether the application has set it.
    request_setDoneHandler(request, libvoice_app_registered_callbacks.voice_app_get_done);
    auto *word = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
    if (word)
        *word = context;
    request_setData(request, word);
    request_add_set(request, "param_set_request", *set);
    free(set);
    if (!word || !voice::request_send(request, libvoice_get_endpoint_peer(endpoint))) {
        TRACE_ERROR_Z(kNoZone, "Failed to send request.");
        request_destroy(request);
        free(word);
        return 0;
    }
    return 1; // the done handler owns request and word
}

// ---- Requests of the voice application: contexts and streams

uint32_t libvoice_create_ctx(const char *plugin, uint32_t context) {
    request_t *request = endpoint_request(plugin, "create_ctx");
    if (!request) {
        TRACE_ERROR("Not able to create function request for 'create_ctx'.");
        return VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE;
    }
    voice::request_add_u32(request, "ctx_id", context);
    return request_send_to_plugin(request, plugin);
}

uint32_t libvoice_add_stream(const char *plugin, int32_t endpoint, uint32_t context, void *stream_info,
                             const int32_t *fds, uint32_t line) {
    if (!stream_info || !fds) {
        TRACE_ERROR("Stream information can't be NULL.");
        return VOICE_SERVICE_ERR_INVALID_ARG;
    }
    request_t *request = endpoint_request(plugin, "add_stream");
    if (!request) {
        TRACE_ERROR("Not able to create function request for 'add_stream'.");
        return VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE;
    }
    voice::request_add_i32(request, "ep_id", endpoint);
    voice::request_add_u32(request, "ctx_id", context);
    voice::request_add_u32(request, "line_id", line);
    voice::request_add_bytes(request, "stream_info", stream_info, LIBVOICE_STREAM_INFO_BYTES);
    if (!voice::request_add_fds(request, "filedesc", {fds[0], fds[1], fds[2]})) {
        TRACE_ERROR("Allocation failure list == NULL");
        request_destroy(request);
        return VOICE_SERVICE_ERR_INVALID_ARG; // Kept: not the code that the media requests give here.
    }
    return request_send_to_plugin(request, plugin);
}

uint32_t libvoice_modify_stream(const char *plugin, uint32_t context, void *stream_info) {
    if (!stream_info) {
        TRACE_ERROR("Stream information can't be NULL.");
        return VOICE_SERVICE_ERR_INVALID_ARG;
    }
    request_t *request = endpoint_request(plugin, "modify_stream");
    if (!request) {
        TRACE_ERROR("Not able to create function request for 'modify_stream'.");
        return VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE;
    }
    voice::request_add_u32(request, "ctx_id", context);
    voice::request_add_bytes(request, "stream_info", stream_info, LIBVOICE_STREAM_INFO_BYTES);
    return request_send_to_plugin(request, plugin);
}

uint32_t libvoice_remove_stream(const char *plugin, uint32_t context, uint32_t stream) {
    request_t *request = endpoint_request(plugin, "remove_stream");
    if (!request) {
        TRACE_ERROR("Not able to create function request for 'remove_stream'.");
        return VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE;
    }
    voice::request_add_u32(request, "ctx_id", context);
    voice::request_add_u32(request, "stream_id", stream);
    return request_send_to_plugin(request, plugin);
}

uint32_t libvoice_destroy_ctx(const char *plugin, uint32_t context) {
    request_t *request = endpoint_request(plugin, "destroy_ctx");
    if (!request) {
        TRACE_ERROR("Not able to create function request for 'destroy_ctx'.");
        return VOICE_SERVICE_ERR_NO_ENDPOINT_SPACE;
    }
    voice::request_add_u32(request, "ctx_id", context);
    return request_send_to_plugin(request, plugin);
}

// ---- Replies

reply_item_t *_find_reply_of_type(reply_t *reply, int32_t type) {
    for (reply_item_t *item = reply_firstItem(reply); item; item = reply_nextItem(item))
        if (reply_item_type(item) == type)
            return item;
    return nullptr;
}

int _reply_ok(reply_t *reply) {
    reply_item_t *error = _find_reply_of_type(reply, REPLY_ITEM_TYPE_ERROR);
    if (!error)
        return 1;
    const auto number = static_cast<int>(reply_item_error(error));
    const char *description = reply_item_errorDescription(error);
    const char *info = reply_item_errorInfo(error);
    TRACE_ERROR("Function call error (%d) - %s - %s", number, voice::shown(description), voice::shown(info));
    return 0;
}

const variant_t *_reply_return_value(reply_t *reply) {
    reply_item_t *value = _find_reply_of_type(reply, REPLY_ITEM_TYPE_RETURN_VALUE);
    return value ? reply_item_returnValue(value) : nullptr;
}
}
