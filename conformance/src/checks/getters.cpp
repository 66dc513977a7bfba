// SPDX-License-Identifier: MIT
// What a function reads of its call.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <stdlib.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

enum Getter { kChar, kUInt16, kUInt32, kInt32, kBytes_, kList, kGetters_ };
constexpr const char *kNames[] = {"argument_getChar",  "argument_getUInt16",    "argument_getUInt32",
                                  "argument_getInt32", "argument_getByteArray", "argument_getList"};

// What it answers for the argument; what it gives is freed.
bool getter_answers(Getter getter, argument_list_t *arguments, const char *name) {
    uint16_t number16 = 0;
    uint32_t number = 0;
    int32_t integer = 0;
    char *text = nullptr;
    void *bytes = nullptr;
    variant_list_t *list = nullptr;
    int answer = 0;
    if (getter == kChar)
        answer = lib.argument_getChar(arguments, name, 0, &text);
    else if (getter == kUInt16)
        answer = lib.argument_getUInt16(arguments, name, 0, &number16);
    else if (getter == kUInt32)
        answer = lib.argument_getUInt32(arguments, name, 0, &number);
    else if (getter == kInt32)
        answer = lib.argument_getInt32(arguments, name, 0, &integer);
    else if (getter == kBytes_)
        answer = lib.argument_getByteArray(arguments, name, 0, &bytes, &number);
    else
        answer = lib.argument_getList(arguments, name, 0, &list);
    if (answer != 0) {
        free(text);
        free(bytes);
        lib.variant_list_destroy(list);
    }
    return answer != 0;
}

void expect_getters(argument_list_t *arguments, const char *name, const bool (&answers)[kGetters_]) {
    for (int getter = 0; getter < kGetters_; getter++) {
        const bool answer = getter_answers(static_cast<Getter>(getter), arguments, name);
        expect(answer == answers[getter], "%s answers %s for \"%s\"", kNames[getter], answer ? "yes" : "no", name);
    }
}

int kinds_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    expect_getters(arguments, "text", {true, false, false, false, false, false});
    expect_getters(arguments, "small", {false, true, true, true, false, false});
    expect_getters(arguments, "bytes", {false, false, false, false, true, false});
    expect_getters(arguments, "list", {false, false, false, false, false, true});
    expect_getters(arguments, "boolean", {false, false, false, false, false, false});
    expect_getters(arguments, "descriptor", {false, false, false, false, false, false});
    saw("six getters on six kinds");
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_kinds() {
    on_run = kinds_check;
    far_plain();
}

void argument_add(request_t *r, const char *name, variant_t *value) {
    expect(lib.request_addParameter(r, name, value) != 0, "request_addParameter answers no to \"%s\"", name);
    lib.variant_cleanup(value);
}

void kinds() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    variant_t value = {};
    request_add_text(r, "text", "5");
    request_add_number(r, "small", 5);
    request_add_bytes(r, "bytes", "\5\0\0\0", 4);
    request_add_descriptors(r, "list", nullptr, 0);
    lib.variant_setBool(&value, 1);
    argument_add(r, "boolean", &value);
    lib.variant_setFd(&value, -1);
    argument_add(r, "descriptor", &value);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

int missing_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    const bool none[kGetters_] = {};
    expect_getters(arguments, "value", none);
    expect_getters(arguments, "other", none);
    expect_getters(arguments, "", none);
    saw("six getters on two declared names, and on none");
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_missing() {
    on_run = missing_check;
    far_plain();
}

void missing() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_add_number(r, "valu", 5); // by name: neither shorter, longer nor in its place
    request_add_text(r, "value2", "text");
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

int range_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    expect_getters(arguments, "minus", {false, false, false, true, false, false});
    expect_getters(arguments, "large", {false, false, true, true, false, false});
    expect_getters(arguments, "larger", {false, false, true, false, false, false});
    expect_getters(arguments, "most16", {false, true, true, true, false, false});
    saw("-1, 65536, 2147483648 and 65535");
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_range() {
    on_run = range_check;
    far_plain();
}

void range() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    variant_t value = {};
    lib.variant_setInt32(&value, -1);
    argument_add(r, "minus", &value);
    request_add_number(r, "large", 65536);
    request_add_number(r, "larger", 2147483648u);
    lib.variant_setUInt16(&value, 65535);
    argument_add(r, "most16", &value);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

int names_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    uint32_t number = 0;
    expect(lib.argument_getUInt32(arguments, "value", 0, &number) != 0, "\"value\" is missing");
    expect_number("value", number, 1);
    expect(lib.argument_getUInt32(arguments, "other", 0, &number) != 0, "\"other\" is missing");
    expect_number("other", number, 2);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_names() {
    on_run = names_check;
    far_plain();
}

void any_order() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_add_number(r, "other", 2);
    request_add_number(r, "value", 1);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

void second_name() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_add_number(r, "second", 2);
    request_add_number(r, "value", 1);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

void undeclared() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_add_text(r, "nobody declared this", "text");
    request_add_number(r, "value", 1);
    request_add_number(r, "other", 2);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

constexpr char kKind[] = "An argument of another kind, or an integer that does not fit, counts as missing.";
constexpr char kByName[] = "Arguments match by name (a declaration may give one a second name), never by position.";

constexpr Check kChecks[] = {
    {"getters.kinds", kMust, kKind, kinds, serve_kinds, 0, false},
    {"getters.range", kMust, kKind, range, serve_range, 0, false},
    {"getters.missing", kMust, "Getters answer non-zero when the argument is there.", missing, serve_missing, 0, false},
    {"getters.any_order", kMust, kByName, any_order, serve_names, 0, false},
    {"getters.second_name", kMust, kByName, second_name, serve_names, 0, false},
    {"getters.undeclared", kMust, "Arguments that nobody declared do no harm.", undeclared, serve_names, 0, false},
};

} // namespace

const Group kGetters = group_of(kChecks);

} // namespace conformance
