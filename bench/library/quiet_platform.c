/* SPDX-License-Identifier: MIT */
/* A platform that takes what it is given and does next to nothing, so that what remains is the library's own cost. It stands
 * before the bundled bus and in place of what the measured paths call; the rest is never reached. */
#include <stdlib.h>
#include <string.h>

#include "quiet_platform.h"

#define THING(type, name)          \
    static char name##_memory[64]; \
    type *const quiet_##name = (type *)(void *)name##_memory

THING(request_t, request);
THING(reply_t, reply);
THING(function_call_t, call);
THING(argument_list_t, arguments);
THING(object_t, object);
THING(peer_t, peer);

unsigned char quiet_copy[QUIET_BYTES];
unsigned char quiet_arrived[QUIET_BYTES];
uint32_t quiet_arrived_length;

int zilTrace(int level, const char *format, ...) {
    (void)level, (void)format;
    return 0;
}
int zilTraceZ(int level, const char *zone, const char *format, ...) {
    (void)level, (void)zone, (void)format;
    return 0;
}

int variant_initialize(variant_t *v, uint32_t type) {
    v->opaque[0] = type;
    return 1;
}
int variant_setChar(variant_t *v, const char *text) {
    v->opaque[1] = (uintptr_t)text;
    return 1;
}
int variant_setBool(variant_t *v, int value) {
    v->opaque[1] = (uint64_t)value;
    return 1;
}
int variant_setByteArray(variant_t *v, const void *data, uint32_t length) {
    v->opaque[1] = length;
    memcpy(quiet_copy, data, length < QUIET_BYTES ? length : QUIET_BYTES);
    return 1;
}
void variant_cleanup(variant_t *v) {
    v->opaque[0] = 0;
}

request_t *request_create_executeFunction(const char *path, const char *function, uint32_t flags) {
    (void)path, (void)function, (void)flags;
    return quiet_request;
}
int request_addParameter(request_t *r, const char *name, const variant_t *value) {
    (void)r, (void)name, (void)value;
    return 1;
}
uint32_t request_attributes(request_t *r) {
    (void)r;
    return 0;
}
reply_t *request_reply(request_t *r) {
    (void)r;
    return quiet_reply;
}
void request_destroy(request_t *r) {
    (void)r;
}
int kex_sendRequest(kex_t *bus, peer_t *peer, request_t *r) {
    (void)bus, (void)peer, (void)r;
    return 1;
}

request_t *fcall_request(function_call_t *call) {
    (void)call;
    return quiet_request;
}
object_t *fcall_object(function_call_t *call) {
    (void)call;
    return quiet_object;
}
peer_t *fcall_peer(function_call_t *call) {
    (void)call;
    return quiet_peer;
}
void fcall_destroy(function_call_t *call) {
    (void)call;
}
const char *object_name(object_t *object, uint32_t flags) {
    (void)object, (void)flags;
    return "FXS1";
}

int argument_getChar(argument_list_t *a, const char *name, uint32_t attributes, char **text) {
    (void)a, (void)name, (void)attributes;
    *text = strdup("fxs1");
    return 1;
}
int argument_getByteArray(argument_list_t *a, const char *name, uint32_t attributes, void **data, uint32_t *length) {
    (void)a, (void)name, (void)attributes;
    *data = malloc(QUIET_BYTES);
    *length = quiet_arrived_length;
    return *data ? (memcpy(*data, quiet_arrived, quiet_arrived_length), 1) : 0;
}
