// SPDX-License-Identifier: MIT
// Which function a call runs, and on which object.
#include "far.h"
#include "groups.h"
#include "page.h"
#include "request.h"

#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

// The object's name, and what stands in front of it: which function ran.
int answer_name(const char *prefix, function_call_t *call, variant_t *return_value) {
    char text[64] = "";
    const char *name = lib.object_name(lib.fcall_object(call), 1);
    strncat(text, prefix, 31);
    strncat(text, name != nullptr ? name : "(null)", 31);
    lib.fcall_destroy(call);
    return lib.variant_setChar(return_value, text) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void hooks_set() {
    on_run = [](function_call_t *call, argument_list_t *, variant_t *value) {
        return answer_name("run ", call, value);
    };
    on_again = [](function_call_t *call, argument_list_t *, variant_t *v) { return answer_name("again ", call, v); };
    on_plain = [](function_call_t *call, argument_list_t *, variant_t *v) { return answer_name("plain ", call, v); };
    on_item = [](function_call_t *call, argument_list_t *, variant_t *v) { return answer_name("item ", call, v); };
}

object_t *object_at(const char *path) {
    object_t *object = lib.kex_getObject(bus, path, 0);
    expect(object != nullptr, "kex_getObject answers null for \"%s\"", path);
    return object;
}

object_t *instance_make(const char *name) {
    object_t *object = lib.object_createInstance(object_at("plain.Item"), 0, name);
    expect(object != nullptr, "object_createInstance answers null");
    return object;
}

void serve() {
    hooks_set();
    far_listen();
    expect(lib.object_commit(instance_make("ready")) != 0, "object_commit answers no");
    instance_make("uncommitted");
    far_serve();
    host_end();
}

void expect_answer(peer_t *peer, const char *path, const char *function, const char *answer) {
    request_t *r = request_make_to(path, function);
    expect_text(path, reply_text(request_call(peer, r)), answer);
    lib.request_destroy(r);
}

void expect_error(peer_t *peer, const char *path, const char *function) {
    request_t *r = request_make_to(path, function);
    const unsigned ran = page->ran;
    reply_item_t *item = lib.reply_firstItem(request_call_in_vain(peer, r));
    expect(page->ran == ran, "%s.%s: a function ran", path, function);
    expect(item != nullptr, "%s.%s: the reply is empty", path, function);
    expect(lib.reply_nextItem(item) == nullptr, "%s.%s: the reply holds more than one item", path, function);
    expect(lib.reply_item_type(item) == REPLY_ITEM_ERROR, "%s.%s: an item of type %d", path, function,
           lib.reply_item_type(item));
    saw("%s.%s: error %#x", path, function, lib.reply_item_error(item));
    lib.request_destroy(r);
    call_and_wait(peer, "run", 1); // the connection lives on
}

void with_a_class() {
    peer_t *peer = far_connect();
    expect_answer(peer, "Conformance", "run", "run Conformance");
    expect_answer(peer, "Conformance", "again", "again Conformance");
    expect_answer(peer, "Conformance.Twin", "run", "run Twin");
    host_end();
}

void without_a_class() {
    expect_answer(far_connect(), "plain", "conformance_plain", "plain plain");
    host_end();
}

void of_an_instance() {
    expect_answer(far_connect(), "plain.Item.ready", "run", "item ready");
    host_end();
}

void undeclared() {
    expect_error(far_connect(), "Conformance", "undeclared"); // exported under the right name
    host_end();
}

void of_another_class() {
    peer_t *peer = far_connect();
    expect_error(peer, "plain", "run");
    expect_error(peer, "Conformance", "conformance_plain");
    host_end();
}

void never_a_symbol() {
    peer_t *peer = far_connect();
    expect_error(peer, "plain", "exit");
    expect_error(peer, "plain", "Conformance_run");
    expect_error(peer, "Conformance", "../run");
    host_end();
}

void of_a_template() {
    peer_t *peer = far_connect();
    expect_error(peer, "plain.Item", "run");
    expect_error(peer, "plain.Item.Part", "run");
    host_end();
}

void unknown_object() {
    peer_t *peer = far_connect();
    for (const char *path : {"Nobody", "Conformance.Nobody", "plain.Item.nobody", "Conformance.", ".", "conformance"})
        expect_error(peer, path, "run");
    host_end();
}

void uncommitted() {
    expect_error(far_connect(), "plain.Item.uncommitted", "run");
    host_end();
}

void without_a_symbol() {
    const char *const missing[] = {"Conformance", "has_no_symbol", "value"};
    far_connect();
    expect_number("kex_declareFunctions", lib.kex_declareFunctions(bus, missing, 1, 3), 0);
    host_end();
}

void malformed_rows() {
    const char *const nameless[] = {"Conformance", nullptr, "value"};
    const char *const empty[] = {"Conformance", "", "value"};
    host_begin();
    expect_number("a row without a function", lib.kex_declareFunctions(bus, nameless, 1, 3), 0);
    expect_number("a row with an empty one", lib.kex_declareFunctions(bus, empty, 1, 3), 0);
    host_end();
}

// The first call finds an instance that is to be deleted, and commits that; the second finds nothing.
int commit_and_answer(function_call_t *call, argument_list_t *, variant_t *return_value) {
    const int status = answer_name("item ", call, return_value);
    expect(lib.object_commit(object_at("plain.Item")) != 0, "object_commit answers no");
    return status;
}

void serve_deleted() {
    on_item = commit_and_answer;
    far_listen();
    object_t *instance = instance_make("ready");
    expect(lib.object_commit(instance) != 0, "object_commit answers no");
    expect(lib.object_delete(instance) != 0, "object_delete answers no");
    far_serve();
    host_end();
}

void deleted() {
    peer_t *peer = far_connect();
    expect_answer(peer, "plain.Item.ready", "run", "item ready");
    expect_error(peer, "plain.Item.ready", "run");
    host_end();
}

// ----------------------------------------------------------------------------------- What a call tells

peer_t *last_caller;

int same_caller(function_call_t *call, argument_list_t *, variant_t *return_value) {
    peer_t *caller = lib.fcall_peer(call);
    expect(caller != nullptr, "fcall_peer answers null");
    const int same = caller == last_caller;
    last_caller = caller;
    lib.fcall_destroy(call);
    return lib.variant_setInt32(return_value, same) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void serve_same_caller() {
    on_run = same_caller;
    far_plain();
}

uint32_t number_from(peer_t *peer) {
    request_t *r = request_make();
    const uint32_t number = reply_number(request_call(peer, r));
    lib.request_destroy(r);
    return number;
}

void callers() {
    peer_t *one = far_connect();
    peer_t *two = far_connect_again();
    expect(one != two, "two connections have one handle");
    expect_number("first call", number_from(one), 0);
    expect_number("second call of the same peer", number_from(one), 1);
    expect_number("a call of the other one", number_from(two), 0);
    expect_number("the second one of that", number_from(two), 1);
    host_end();
}

// The caller goes while its function runs; what it works with stays.
int outlives_caller(function_call_t *call, argument_list_t *, variant_t *return_value) {
    object_t *object = lib.fcall_object(call);
    request_t *request = lib.fcall_request(call);
    const int64_t end = now_in_milliseconds() + kPatience;
    request_t *other = request_make("again");
    lib.kex_sendRequest(bus, lib.fcall_peer(call), other);
    lib.kex_waitForReply(bus, other, nullptr); // the caller ends in this call
    lib.request_destroy(other);
    expect(now_in_milliseconds() < end, "the wait did not see that the peer had closed");
    expect_text("object", lib.object_name(object, 1), "Conformance");
    expect_number("attributes", lib.request_attributes(request), 0x8001);
    expect(lib.fcall_object(call) == object && lib.fcall_request(call) == request, "the call has changed");
    lib.reply_addError(lib.request_reply(request), 1, "nobody", "reads this");
    lib.fcall_destroy(call);
    lib.variant_setChar(return_value, "nor this");
    event("ran");
    return KEX_FUNCTION_DONE;
}

void serve_outlives() {
    on_run = outlives_caller;
    far_listen();
    turn_until("the call", [] { return event_was("ran"); });
    host_end();
}

void outlived() {
    peer_t *peer = far_connect();
    on_again = [](function_call_t *, argument_list_t *, variant_t *) -> int { process_vanish(); };
    request_t *r = request_make("run", 0x8001);
    request_send(peer, r);
    turn_until("the call that asks this process", [] { return false; });
}

constexpr char kFound[] = "The bus finds a declared function once by its exported name: `__<Class>_<function>` for an "
                          "object with a class, `__<function>` for one without.";
constexpr char kRefused[] = "A call to an unknown object, to a template, to an instance that is not committed, or to a "
                            "function that is not declared runs nothing and is answered with one error";

constexpr Check kChecks[] = {
    {"functions.with_a_class", kMust, kFound, with_a_class, serve, 0, false},
    {"functions.without_a_class", kMust, kFound, without_a_class, serve, 0, false},
    {"functions.of_an_instance", kMust, kFound, of_an_instance, serve, 0, false},
    {"functions.undeclared", kMust, kRefused, undeclared, serve, 0, false},
    {"functions.of_another_class", kMust, kRefused, of_another_class, serve, 0, false},
    {"functions.never_a_symbol", kMust, "No name that comes from a peer is looked up among the program's symbols.",
     never_a_symbol, serve, 0, false},
    {"functions.of_a_template", kMust, kRefused, of_a_template, serve, 0, false},
    {"functions.unknown_object", kMust, kRefused, unknown_object, serve, 0, false},
    {"functions.uncommitted", kMust, kRefused, uncommitted, serve, 0, false},
    {"functions.deleted", kMust,
     "object_commit() carries it out: until then it is found and can be called, and its name is taken.", deleted,
     serve_deleted, 0, false},
    {"functions.without_a_symbol", kMust,
     "@return yes; no when a symbol is missing (each one is traced at level 100) or a row is malformed",
     without_a_symbol, far_plain, 0, false},
    {"functions.malformed_rows", kMust,
     "@return yes; no when a symbol is missing (each one is traced at level 100) or a row is malformed", malformed_rows,
     nullptr, 0, false},
    {"functions.callers", kMust, "The handle of one connection; never used for another one.", callers,
     serve_same_caller, 0, false},
    {"functions.outlive_their_caller", kMust,
     "Object, peer and request of the call stay valid until the function returns.", outlived, serve_outlives, 0, false},
};

} // namespace

const Group kFunctions = group_of(kChecks);

} // namespace conformance
