// SPDX-License-Identifier: MIT
// Implements request.h.
#include "request.h"
#include "check.h"
#include "host.h"
#include "page.h"

namespace conformance {

namespace {

// The value is the caller's no more.
void request_add(request_t *r, const char *name, variant_t *value) {
    expect(lib.request_addParameter(r, name, value) != 0, "request_addParameter answers no");
    lib.variant_cleanup(value);
}

} // namespace

request_t *request_make_to(const char *path, const char *function, uint32_t flags) {
    request_t *r = lib.request_create_executeFunction(path, function, flags);
    expect(r != nullptr, "request_create_executeFunction(\"%s\", \"%s\") answers null", path, function);
    return r;
}

request_t *request_make(const char *function, uint32_t flags) {
    return request_make_to("Conformance", function, flags);
}

void request_add_text(request_t *r, const char *name, const char *text) {
    variant_t value = {};
    expect(lib.variant_setChar(&value, text) != 0, "variant_setChar answers no");
    request_add(r, name, &value);
}

void request_add_number(request_t *r, const char *name, uint32_t number) {
    variant_t value = {};
    expect(lib.variant_setUInt32(&value, number) != 0, "variant_setUInt32 answers no");
    request_add(r, name, &value);
}

void request_add_bytes(request_t *r, const char *name, const void *bytes, uint32_t length) {
    variant_t value = {};
    expect(lib.variant_setByteArray(&value, bytes, length) != 0, "variant_setByteArray answers no to %u bytes", length);
    request_add(r, name, &value);
}

void request_add_descriptors(request_t *r, const char *name, const int *descriptors, unsigned count) {
    variant_t value;
    expect(lib.variant_initialize(&value, VARIANT_LIST) != 0, "variant_initialize answers no to a list");
    variant_list_t *list = lib.variant_da_list(&value);
    for (unsigned i = 0; i < count; i++) {
        variant_t item = {};
        lib.variant_setFd(&item, descriptors[i]);
        expect(lib.variant_list_add(list, &item) != 0, "variant_list_add answers no to descriptor %d", descriptors[i]);
        lib.variant_cleanup(&item);
    }
    request_add(r, name, &value);
}

void request_send(peer_t *peer, request_t *r) {
    expect(lib.kex_sendRequest(bus, peer, r) != 0, "kex_sendRequest answers no");
}

void call_one_way(peer_t *peer, const char *function, uint32_t number) {
    request_t *r = request_make(function);
    request_add_number(r, "value", number);
    request_send(peer, r);
    lib.request_destroy(r);
}

void request_wait(request_t *r) {
    const timeval limit = {kPatience / 1000, 0};
    expect(lib.kex_waitForReply(bus, r, &limit) != 0, "kex_waitForReply answers no");
}

reply_t *request_call(peer_t *peer, request_t *r) {
    const unsigned ran = page->ran;
    reply_t *reply = request_call_in_vain(peer, r);
    expect(page->ran != ran, "there is a reply, although no function ran");
    return reply;
}

reply_t *request_call_in_vain(peer_t *peer, request_t *r) {
    request_send(peer, r);
    request_wait(r);
    reply_t *reply = lib.request_reply(r);
    expect(reply != nullptr, "request_reply answers null after a wait that answered yes");
    return reply;
}

void call_and_wait(peer_t *peer, const char *function, uint32_t number) {
    request_t *r = request_make(function);
    request_add_number(r, "value", number);
    request_call(peer, r);
    lib.request_destroy(r);
}

const variant_t *reply_value(reply_t *reply) {
    reply_item_t *item = lib.reply_firstItem(reply);
    expect(item != nullptr, "the reply has no item");
    if (lib.reply_item_type(item) == REPLY_ITEM_ERROR)
        fail("the reply holds error %#x: %s (%s)", lib.reply_item_error(item), lib.reply_item_errorDescription(item),
             lib.reply_item_errorInfo(item));
    const variant_t *value = lib.reply_item_returnValue(item);
    expect(value != nullptr, "the return value's item has no value");
    return value;
}

uint32_t reply_number(reply_t *reply) {
    uint32_t number = 0;
    expect(lib.variant_toUInt32(reply_value(reply), &number) != 0, "the return value is no number");
    return number;
}

const char *reply_text(reply_t *reply) {
    const char *text = nullptr;
    expect(lib.variant_toChar(reply_value(reply), &text) != 0, "the return value is no text");
    return text;
}

unsigned reply_count(reply_t *reply) {
    unsigned count = 0;
    for (reply_item_t *item = lib.reply_firstItem(reply); item != nullptr; item = lib.reply_nextItem(item))
        count++;
    return count;
}

uint32_t argument_number(argument_list_t *arguments) {
    uint32_t number = 0;
    return lib.argument_getUInt32(arguments, "value", 0, &number) != 0 ? number : 0;
}

} // namespace conformance
