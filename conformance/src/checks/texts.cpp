// SPDX-License-Identifier: MIT
// Texts are bytes up to their zero: nobody looks at their encoding.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <stdlib.h>
#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

// Its argument, in each of the places where a text can stand.
int text_answer(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *text = nullptr;
    expect(lib.argument_getChar(arguments, "value", 0, &text) != 0 && text != nullptr, "argument_getChar answers no");
    lib.variant_setChar(return_value, text);
    lib.fcall_destroy(call);
    free(text);
    return KEX_FUNCTION_DONE;
}

void serve() {
    on_run = text_answer;
    far_plain();
}

int error_answer(function_call_t *call, argument_list_t *arguments, variant_t *) {
    char *text = nullptr;
    expect(lib.argument_getChar(arguments, "value", 0, &text) != 0 && text != nullptr, "argument_getChar answers no");
    expect(lib.reply_addError(lib.request_reply(lib.fcall_request(call)), 1, text, text) != 0,
           "reply_addError answers no");
    lib.fcall_destroy(call);
    free(text);
    return KEX_FUNCTION_DONE;
}

void serve_error() {
    on_run = error_answer;
    far_plain();
}

void expect_echo(peer_t *peer, const char *text) {
    request_t *r = request_make();
    request_add_text(r, "value", text);
    expect_text("text", reply_text(request_call(peer, r)), text);
    lib.request_destroy(r);
}

void empty() {
    expect_echo(far_connect(), "");
    host_end();
}

void utf8() {
    expect_echo(far_connect(), "G\xc3\xbcnter \xe2\x82\xac \xf0\x9f\x93\x9e");
    host_end();
}

void latin1() {
    expect_echo(far_connect(), "G\xfcnter");
    host_end();
}

// From 1 to 255, each once: control characters, broken UTF-8, line breaks.
const char *all_bytes() {
    static char text[256];
    for (int i = 0; i < 255; i++)
        text[i] = static_cast<char>(i + 1);
    return text;
}

void any_bytes() {
    expect_echo(far_connect(), all_bytes());
    host_end();
}

void any_bytes_in_errors() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_add_text(r, "value", all_bytes());
    reply_item_t *item = lib.reply_firstItem(request_call(peer, r));
    expect_number("type", lib.reply_item_type(item), REPLY_ITEM_ERROR);
    expect(strcmp(lib.reply_item_errorDescription(item), all_bytes()) == 0, "the description has changed");
    expect(strcmp(lib.reply_item_errorInfo(item), all_bytes()) == 0, "the info has changed");
    lib.request_destroy(r);
    host_end();
}

void long_text() {
    static char text[60001];
    peer_t *peer = far_connect();
    memset(text, 'x', sizeof text - 1);
    request_t *r = request_make();
    request_add_text(r, "value", text);
    expect_number("length", static_cast<int64_t>(strlen(reply_text(request_call(peer, r)))), sizeof text - 1);
    lib.request_destroy(r);
    host_end();
}

constexpr char kAnyBytes[] = "Zero-terminated text: any other bytes, in whatever encoding.";

constexpr Check kChecks[] = {
    {"texts.empty", kMust, kAnyBytes, empty, serve, 0, false},
    {"texts.utf8", kMust, kAnyBytes, utf8, serve, 0, false},
    {"texts.latin1", kMust, kAnyBytes, latin1, serve, 0, false},
    {"texts.any_bytes", kMust, kAnyBytes, any_bytes, serve, 0, false},
    {"texts.any_bytes_in_errors", kMust, kAnyBytes, any_bytes_in_errors, serve_error, 0, false},
    {"texts.long", Level::should, kAnyBytes, long_text, serve, 0, false},
};

} // namespace

const Group kTexts = group_of(kChecks);

} // namespace conformance
