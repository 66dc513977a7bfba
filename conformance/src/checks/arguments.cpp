// SPDX-License-Identifier: MIT
// Arguments: whose they are, what attributes do, and those without a value.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <stdlib.h>
#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

int ownership_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    char *first = nullptr;
    char *second = nullptr;
    lib.argument_getChar(arguments, "value", 0, &first);
    lib.argument_getChar(arguments, "value", 0, &second);
    expect(first != nullptr && second != nullptr && first != second, "two reads give one text");
    memset(first, 'x', strlen(first));
    free(first);
    expect_text("the second read", second, "a text");
    lib.fcall_destroy(call);
    expect_text("after fcall_destroy()", second, "a text");
    free(second);
    return KEX_FUNCTION_DONE;
}

void serve_ownership() {
    on_run = ownership_check;
    far_plain();
}

void ownership() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_add_text(r, "value", "a text");
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

int attributes_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    const uint32_t flags = lib.request_attributes(lib.fcall_request(call));
    expect_number("attributes", flags, 0x8001);
    for (const uint32_t attributes : {0u, flags}) {
        uint32_t number = 0;
        expect(lib.argument_getUInt32(arguments, "value", attributes, &number) != 0 && number == 1,
               "no with attributes %#x", attributes);
    }
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_attributes() {
    on_run = attributes_check;
    far_plain();
}

void attributes() {
    peer_t *peer = far_connect();
    request_t *r = request_make("run", 0x8001);
    request_add_number(r, "value", 1);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

int absent_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    char *text = const_cast<char *>("untouched");
    void *bytes = text;
    uint32_t length = 7;
    variant_list_t *list = reinterpret_cast<variant_list_t *>(text);
    expect(lib.argument_getChar(arguments, "value", 0, &text) != 0, "argument_getChar answers no");
    expect(text == nullptr, "argument_getChar gives a text");
    expect(lib.argument_getByteArray(arguments, "value", 0, &bytes, &length) != 0, "argument_getByteArray answers no");
    expect(bytes == nullptr && length == 0, "argument_getByteArray gives %u bytes", length);
    expect(lib.argument_getList(arguments, "value", 0, &list) != 0, "argument_getList answers no");
    expect(list == nullptr, "argument_getList gives a list");
    saw("yes, with null pointers and length 0");
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_absent() {
    on_run = absent_check;
    far_plain();
}

void absent() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    variant_t value;
    lib.variant_initialize(&value, VARIANT_NONE);
    expect(lib.request_addParameter(r, "value", &value) != 0, "request_addParameter answers no");
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

constexpr Check kChecks[] = {
    {"arguments.ownership", kMust, "Text, bytes and lists are the caller's: free(), or variant_list_destroy().",
     ownership, serve_ownership, 0, false},
    {"arguments.attributes", kMust, "`attributes` are 0 or the request's flags; a bus may ignore them.", attributes,
     serve_attributes, 0, false},
    {"arguments.absent", kMust, "Present without a value: non-zero with a null pointer and length 0.", absent,
     serve_absent, 0, false},
};

} // namespace

const Group kArguments = group_of(kChecks);

} // namespace conformance
