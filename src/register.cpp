// SPDX-License-Identifier: MIT
// A plugin's connection to the voice application: the socket's address, the connection cycle, registering endpoints;
// and the application's listening socket.
#include <stdlib.h> // getenv
#include <string.h> // memcpy

#include "libvoice_plugin.h"
#include "request.h"
#include "text.h"
#include "trace.h"

namespace {

// A variable that exists wins, even when it is empty.
const char *setting(const char *variable, const char *otherwise) {
    const char *value = getenv(variable);
    return value ? value : otherwise;
}

void attempt_repeat_later(kex_timer_t *timer) {
    kex_timer_start(timer, LIBVOICE_RETRY_MS);
}

// One attempt of the connection cycle: connect unless connected, then register. The timer lives until both have worked.
void libvoice_datamodel_ready_cb(kex_timer_t *timer) {
    TRACE_ENTER();
    if (!libvoice_get_kex_peer_handler()) {
        peer_t *peer = libvoice_plugin_connect();
        if (!peer) {
            TRACE_ERROR("Can't connect to %s retrying in 10s", libvoice_get_ipc_socket_uri());
            attempt_repeat_later(timer);
            TRACE_LEAVE();
            return;
        }
        libvoice_set_kex_peer_handler(peer);
    }
    TRACE_INFO("Trying to registering plugin %s", _PLUGIN_NAME); // Kept: "to registering".
    if (!libvoice_kex_register_plugin(_PLUGIN_NAME)) {
        // The connection is kept: the next attempt only registers.
        TRACE_ERROR("Plugin registration failed. Trying again in 10s.");
        attempt_repeat_later(timer);
        TRACE_LEAVE();
        return;
    }
    kex_timer_destroy(timer);
    TRACE_LEAVE();
}

// Codec records one after another, as they travel.
struct CodecList {
    uint8_t bytes[LIBVOICE_ENDPOINT_CODECS * LIBVOICE_CODEC_RECORD_BYTES];
    uint32_t length = 0;

    explicit CodecList(const void *const *codecs) {
        // The length first: a full list needs no null pointer behind it.
        for (; codecs && length < sizeof bytes && *codecs; ++codecs, length += LIBVOICE_CODEC_RECORD_BYTES)
            memcpy(bytes + length, *codecs, LIBVOICE_CODEC_RECORD_BYTES);
    }
};

} // namespace

extern "C" {

// ---- The socket's address

const char *libvoice_get_ipc_socket_uri() {
    return setting("ZIL_VOIP_IPC_SOCKET_URI", "kex://ipc:[/var/run/voip_ipc_sock]");
}

const char *libvoice_get_ipc_socket() {
    return setting("ZIL_VOIP_IPC_SOCKET", "/var/run/voip_ipc_sock");
}

// ---- Listening and connecting

peer_t *libvoice_app_connect(connection_t *connection, const char *path) {
    TRACE_ENTER();
    if (!path || path[0] == '\0') {
        TRACE_LEAVE();
        return nullptr;
    }
    TRACE_INFO("Creating IPC socket %s", path);
    peer_t *listener = connection_listenOnIPC(connection, path);
    if (!listener)
        TRACE_ERROR("Error creating IPC socket %s", path);
    TRACE_LEAVE();
    return listener;
}

peer_t *libvoice_plugin_connect() {
    TRACE_ENTER();
    peer_t *peer = kex_client_connect(libvoice_get_kex_handler(), libvoice_get_ipc_socket_uri());
    TRACE_LEAVE();
    return peer;
}

void libvoice_register_datamodel_cb() {
    TRACE_ENTER();
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, libvoice_datamodel_ready_cb);
    kex_timer_start(timer, 0); // the first attempt runs on the next turn of the loop, not inside the caller
    TRACE_LEAVE();
}

// ---- Endpoints

uint32_t libvoice_register_endpoint(int32_t type, const char *name, void *ignored, const void *const *codecs,
                                    int32_t *endpoint) {
    libvoice_kex_datamodel_add_endpoint(name); // whatever it answers: an instance may be left from before
    int32_t number = -1;
    if (!libvoice_kex_register_endpoint(type, name, ignored, codecs, &number)) {
        libvoice_kex_datamodel_delete_endpoint(name);
        return LIBVOICE_ERR_INVALID_ARG;
    }
    if (endpoint)
        *endpoint = number;
    // With the table full the application knows an endpoint that has no entry here; nothing is undone.
    return libvoice_set_endpoint(name, number, nullptr) ? LIBVOICE_OK : LIBVOICE_ERR_INVALID_ARG;
}

int libvoice_kex_register_endpoint(int32_t type, const char *name, void *, const void *const *codecs,
                                   int32_t *endpoint) {
    TRACE_ENTER();
    // Not tested: without a request the send below fails.
    request_t *request = request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "register_endpoint",
                                                        LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    const voice::ObjectPath path(_PLUGIN_NAME, name);
    const CodecList codec_list(codecs);
    voice::request_add_text(request, "plugin_name", _PLUGIN_NAME);
    voice::request_add_text(request, "endpoint_name", voice::or_empty(name));
    voice::request_add_text(request, "endpoint_path", path.text());
    voice::request_add_u16(request, "type", static_cast<uint16_t>(type));
    voice::request_add_bytes(request, "codeclist", codec_list.bytes, codec_list.length);
    reply_t *reply = nullptr;
    if (!voice::request_send(request, libvoice_get_kex_peer_handler()))
        TRACE_ERROR("Failed to send register request.");
    else
        reply = voice::reply_await(request);
    const bool registered = reply != nullptr;
    if (registered) {
        // A value that does not convert leaves -1 and still counts as success.
        int16_t number = -1;
        variant_toInt16(_reply_return_value(reply), &number);
        if (endpoint)
            *endpoint = number;
        TRACE_INFO("Got endpoint index '%d'.", number);
    }
    request_destroy(request);
    TRACE_LEAVE();
    return registered;
}

uint32_t libvoice_deregister_endpoint(int32_t endpoint) {
    if (!libvoice_kex_deregister_endpoint(endpoint))
        return LIBVOICE_ERR_INVALID_ENDPOINT;
    if (!libvoice_kex_datamodel_delete_endpoint(libvoice_get_endpoint_name(endpoint)))
        return LIBVOICE_ERR_INVALID_ENDPOINT;
    libvoice_delete_endpoint_entry_by_endpoint(endpoint);
    return LIBVOICE_OK;
}

int libvoice_kex_deregister_endpoint(int32_t endpoint) {
    TRACE_ENTER();
    request_t *request = request_create_executeFunction(LIBVOICE_APPLICATION_PATH, "deregister_endpoint",
                                                        LIBVOICE_REQUEST_FLAGS_LIFECYCLE);
    if (!request) {
        TRACE_ERROR("Can't create request to send deregister_endpoint.");
        TRACE_LEAVE();
        return 0;
    }
    // Kept: the receiver calls this argument "endpoint".
    voice::request_add_u16(request, "endpoint_id", static_cast<uint16_t>(endpoint));
    bool deregistered = false;
    if (!voice::request_send(request, libvoice_get_kex_peer_handler()))
        TRACE_ERROR("Failed to send deregister request.");
    else
        deregistered = voice::reply_await(request) != nullptr;
    request_destroy(request);
    TRACE_LEAVE();
    return deregistered;
}
}
