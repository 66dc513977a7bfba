/* SPDX-License-Identifier: MIT */
/* A host in C: brings a platform of its own, links the shared library and calls through it. Built twice, as a
 * position-independent program and as a fixed one, whose data references the linker moves into the program: host and
 * library must see one copy of the exported tables either way. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "libvoice_plugin.h"

static int failures;

#define CHECK(condition)                                             \
    do {                                                             \
        if (!(condition)) {                                          \
            printf("host.c:%d: failed: %s\n", __LINE__, #condition); \
            ++failures;                                              \
        }                                                            \
    } while (0)

/* ---- a platform just large enough: one request, one call, one argument */

struct kex {
    int unused;
};
struct peer {
    int unused;
};
struct request {
    char path[64], function[32];
    uint32_t flags;
    unsigned parameters;
    unsigned char bytes[64];
    uint32_t length;
};
struct argument_list {
    const void *bytes;
    uint32_t length;
};
struct function_call {
    unsigned destroyed;
};

static struct request the_request;
static unsigned sent, destroyed, traces;
static int returned = -1;

int zilTrace(int level, const char *format, ...) {
    (void)level;
    (void)format;
    ++traces;
    return 1;
}
int zilTraceZ(int level, const char *zone, const char *format, ...) {
    (void)level;
    (void)zone;
    (void)format;
    ++traces;
    return 1;
}

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    memset(&the_request, 0, sizeof(the_request));
    snprintf(the_request.path, sizeof(the_request.path), "%s", path);
    snprintf(the_request.function, sizeof(the_request.function), "%s", function);
    the_request.flags = flags;
    return &the_request;
}
int variant_initialize(variant_t *v, uint32_t type) {
    memset(v, 0, sizeof(*v));
    v->opaque[0] = type;
    return 1;
}
int variant_setChar(variant_t *v, const char *text) {
    v->opaque[1] = (uint64_t)(uintptr_t)text;
    return 1;
}
int variant_setByteArray(variant_t *v, const void *data, uint32_t length) {
    v->opaque[1] = (uint64_t)(uintptr_t)data;
    v->opaque[2] = length;
    return 1;
}
int variant_setBool(variant_t *v, int value) {
    (void)v;
    returned = value;
    return 1;
}
void variant_cleanup(variant_t *v) {
    memset(v, 0, sizeof(*v));
}
int request_addParameter(request_t *r, const char *name, const variant_t *value) {
    (void)name;
    ++r->parameters;
    if (value->opaque[0] == VARIANT_BYTES) {
        r->length = (uint32_t)value->opaque[2];
        memcpy(r->bytes, (const void *)(uintptr_t)value->opaque[1], r->length);
    }
    return 1;
}
int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r) {
    sent += bus != NULL && peer != NULL && r == &the_request;
    return 1;
}
void request_destroy(request_t *r) {
    destroyed += r == &the_request;
}
int peer_setEventHandler(peer_t *peer, int event, void *userdata, int (*handler)(peer_t *, int, void *)) {
    return peer != NULL && event == PEER_EVENT_CLOSED && userdata == NULL && handler != NULL;
}
request_t *fcall_request(function_call_t *call) {
    (void)call;
    return &the_request;
}
uint32_t request_attributes(request_t *r) {
    return r->flags;
}
void fcall_destroy(function_call_t *call) {
    ++call->destroyed;
}
int argument_getByteArray(argument_list_t *a, const char *name, uint32_t attributes, void **data, uint32_t *length) {
    (void)attributes;
    if (strcmp(name, "signal") != 0)
        return 0;
    *data = malloc(a->length);
    memcpy(*data, a->bytes, a->length);
    *length = a->length;
    return 1;
}

/* The rest is never reached here. */
#define UNREACHED(result, name, arguments) \
    result name arguments {                \
        abort();                           \
    }
#pragma GCC diagnostic ignored "-Wunused-parameter"
UNREACHED(int, variant_setInt16, (variant_t * v, int16_t x))
UNREACHED(int, variant_setInt32, (variant_t * v, int32_t x))
UNREACHED(int, variant_setUInt16, (variant_t * v, uint16_t x))
UNREACHED(int, variant_setUInt32, (variant_t * v, uint32_t x))
UNREACHED(int, variant_setFd, (variant_t * v, int x))
UNREACHED(int, variant_toBool, (const variant_t *v, int *x))
UNREACHED(int, variant_toInt16, (const variant_t *v, int16_t *x))
UNREACHED(int, variant_fd, (const variant_t *v))
UNREACHED(variant_list_t *, variant_da_list, (variant_t * v))
UNREACHED(int, variant_list_add, (variant_list_t * l, const variant_t *v))
UNREACHED(uint32_t, variant_list_size, (const variant_list_t *l))
UNREACHED(const variant_t *, variant_list_at, (const variant_list_t *l, uint32_t i))
UNREACHED(void, variant_list_destroy, (variant_list_t * l))
UNREACHED(void, request_setReplyHandler, (request_t * r, void (*h)(request_t *, reply_item_t *)))
UNREACHED(void, request_setDoneHandler, (request_t * r, void (*h)(request_t *)))
UNREACHED(void, request_setData, (request_t * r, void *d))
UNREACHED(reply_t *, request_reply, (request_t * r))
UNREACHED(int, kex_waitForReply, (kex_t * b, request_t *r, const struct timeval *t))
UNREACHED(reply_item_t *, reply_firstItem, (reply_t * r))
UNREACHED(reply_item_t *, reply_nextItem, (reply_item_t * i))
UNREACHED(int32_t, reply_item_type, (reply_item_t * i))
UNREACHED(uint32_t, reply_item_error, (reply_item_t * i))
UNREACHED(const char *, reply_item_errorDescription, (reply_item_t * i))
UNREACHED(const char *, reply_item_errorInfo, (reply_item_t * i))
UNREACHED(const variant_t *, reply_item_returnValue, (reply_item_t * i))
UNREACHED(int, reply_addError, (reply_t * r, uint32_t c, const char *d, const char *i))
UNREACHED(object_t *, fcall_object, (function_call_t * c))
UNREACHED(peer_t *, fcall_peer, (function_call_t * c))
UNREACHED(const char *, object_name, (object_t * o, uint32_t f))
UNREACHED(int, argument_getChar, (argument_list_t * a, const char *n, uint32_t f, char **x))
UNREACHED(int, argument_getUInt16, (argument_list_t * a, const char *n, uint32_t f, uint16_t *x))
UNREACHED(int, argument_getUInt32, (argument_list_t * a, const char *n, uint32_t f, uint32_t *x))
UNREACHED(int, argument_getInt32, (argument_list_t * a, const char *n, uint32_t f, int32_t *x))
UNREACHED(int, argument_getList, (argument_list_t * a, const char *n, uint32_t f, variant_list_t **x))
UNREACHED(peer_t *, kex_client_connect, (kex_t * b, const char *u))
UNREACHED(peer_t *, connection_listenOnIPC, (connection_t * c, const char *p))
UNREACHED(kex_timer_t *, kex_timer_create, (void))
UNREACHED(void, kex_timer_setHandler, (kex_timer_t * t, void (*h)(kex_timer_t *)))
UNREACHED(int, kex_timer_start, (kex_timer_t * t, uint32_t m))
UNREACHED(void, kex_timer_destroy, (kex_timer_t * t))
UNREACHED(object_t *, kex_getObject, (kex_t * b, const char *p, uint32_t f))
UNREACHED(object_t *, object_getObject, (object_t * o, const char *n, uint32_t f, void *r))
UNREACHED(object_t *, object_createInstance, (object_t * o, uint32_t i, const char *n))
UNREACHED(int, object_delete, (object_t * o))
UNREACHED(int, object_commit, (object_t * o))

/* ---- the host */

static uint32_t seen_length;

static int32_t on_signal(libvoice_signal_t *message) {
    seen_length = message->length;
    return memcmp(libvoice_signal_params(message), "abcd", 4) == 0 ? 0 : 1;
}

int main(void) {
    struct kex bus = {0};
    struct peer application = {0};
    CHECK(strcmp(libvoice_version(), LIBVOICE_VERSION) == 0);

    /* One copy of the tables: written here, read there, and the other way round. */
    endpt_table[4].used = 1;
    endpt_table[4].endpoint = 77;
    strcpy(endpt_table[4].name, "FXS5");
    CHECK(is_valid_endpoint(77) == 1);
    CHECK(get_endpt_entry(77) == &endpt_table[4]);
    CHECK(libvoice_set_endpoint("FXS1", 5, NULL) == 1);
    CHECK(endpt_table[0].used == 1 && strcmp(endpt_table[0].name, "FXS1") == 0);
    libvoice_set_pluginname("FXS");
    CHECK(strcmp(_PLUGIN_NAME, "FXS") == 0 && libvoice_get_pluginname() == _PLUGIN_NAME);
    libvoice_set_ep_suffix("LINE");
    CHECK(strcmp(ep_suffix, "LINE") == 0 && libvoice_get_ep_suffix() == ep_suffix);
    CHECK(libvoice_plugin_add("DECT") == 0 && strcmp(voice_plugin_table[0].plugin_name, "DECT") == 0);
    CHECK(libvoice_result_texts[9] == libvoice_strerror(9) && voice_service_result_texts[11] == NULL);

    /* A request leaves ... */
    libvoice_set_kex_handler(&bus);
    CHECK(libvoice_set_kex_peer_handler(&application) == 1);
    struct {
        libvoice_event_t head;
        char params[4];
    } event = {{5, {1, 2}, 0, 4}, {'a', 'b', 'c', 'd'}};
    CHECK(libvoice_send_event(&event.head) == LIBVOICE_OK);
    CHECK(sent == 1 && destroyed == 1 && the_request.parameters == 2);
    CHECK(strcmp(the_request.path, LIBVOICE_APPLICATION_PATH) == 0 && strcmp(the_request.function, "event") == 0);
    CHECK(the_request.length == 24 && memcmp(the_request.bytes, &event, 24) == 0);

    /* ... and a call arrives. */
    libvoice_registered_callbacks.voice_plugin_signal = on_signal;
    struct {
        libvoice_signal_t head;
        char params[4];
    } signal = {{5, {1, 2, 3, 4}, 0, 4}, {'a', 'b', 'c', 'd'}};
    struct argument_list arguments = {&signal, sizeof(signal)};
    struct function_call call = {0};
    variant_t return_value;
    CHECK(__EndPoint_signal(&call, &arguments, &return_value) == 0);
    CHECK(call.destroyed == 1 && returned == 1 && seen_length == 4);
    CHECK(traces > 0);
    return failures != 0;
}
