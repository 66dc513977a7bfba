// SPDX-License-Identifier: MIT
// What a function answers, and how it arrives.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

int errors_then_value(function_call_t *call, argument_list_t *, variant_t *return_value) {
    reply_t *reply = lib.request_reply(lib.fcall_request(call));
    char text[] = "the second";
    lib.variant_setUInt32(return_value, 5);
    expect(lib.reply_addError(reply, 196640, "the first", "its info") != 0, "reply_addError answers no");
    expect(lib.reply_addError(reply, UINT32_MAX, text, "") != 0, "reply_addError answers no to the second error");
    memset(text, 'x', sizeof text - 1); // copied
    expect(lib.reply_addError(reply, 0, "", "third") != 0, "reply_addError answers no to the third error");
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void error_check(reply_item_t *item, uint32_t code, const char *description, const char *info) {
    expect(item != nullptr, "an error is missing");
    expect(lib.reply_item_type(item) == REPLY_ITEM_ERROR, "an item of type %d where an error should stand",
           lib.reply_item_type(item));
    expect_number("error", lib.reply_item_error(item), code);
    expect_text("description", lib.reply_item_errorDescription(item), description);
    expect_text("info", lib.reply_item_errorInfo(item), info);
    expect(lib.reply_item_returnValue(item) == nullptr, "an error has a return value");
}

void error_order() {
    request_t *r = request_make();
    reply_t *reply = request_call(far_connect(), r);
    reply_item_t *item = lib.reply_firstItem(reply);
    error_check(item, 196640, "the first", "its info");
    item = lib.reply_nextItem(item);
    error_check(item, UINT32_MAX, "the second", "");
    item = lib.reply_nextItem(item);
    error_check(item, 0, "", "third");
    lib.request_destroy(r);
    host_end();
}

void value_behind_errors() {
    request_t *r = request_make();
    reply_t *reply = request_call(far_connect(), r);
    expect_number("items", reply_count(reply), 4);
    reply_item_t *last = lib.reply_firstItem(reply);
    while (lib.reply_nextItem(last) != nullptr)
        last = lib.reply_nextItem(last);
    expect_number("type of the last", lib.reply_item_type(last), REPLY_ITEM_RETURN_VALUE);
    lib.request_destroy(r);
    host_end();
}

void errors_serve() {
    on_run = errors_then_value;
    far_plain();
}

int value_after_the_end(function_call_t *call, argument_list_t *, variant_t *return_value) {
    expect(lib.variant_type(return_value) == VARIANT_NONE, "return_value enters with type %u",
           lib.variant_type(return_value));
    lib.fcall_destroy(call);
    expect(lib.variant_setChar(return_value, "after fcall_destroy()") != 0, "variant_setChar answers no");
    return KEX_FUNCTION_DONE;
}

void late_value() {
    request_t *r = request_make();
    expect_text("return value", reply_text(request_call(far_connect(), r)), "after fcall_destroy()");
    lib.request_destroy(r);
    host_end();
}

void late_value_serve() {
    on_run = value_after_the_end;
    far_plain();
}

void no_value() {
    request_t *r = request_make();
    reply_t *reply = request_call(far_connect(), r);
    expect_number("items", reply_count(reply), 0);
    lib.request_destroy(r);
    host_end();
}

int fails_silently(function_call_t *call, argument_list_t *, variant_t *) {
    lib.fcall_destroy(call);
    return KEX_FUNCTION_FAILED;
}

void status_adds_nothing_serve() {
    on_run = fails_silently;
    far_plain();
}

constexpr uint8_t kThreeBytes[] = {0, 1, 2};

// As many values as there are types, told by the argument.
int value_of_type(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    const uint32_t type = argument_number(arguments);
    lib.fcall_destroy(call);
    const int set[] = {
        type == VARIANT_TEXT && lib.variant_setChar(return_value, "text"),
        type == VARIANT_INT16 && lib.variant_setInt16(return_value, -16),
        type == VARIANT_INT32 && lib.variant_setInt32(return_value, -32),
        type == VARIANT_UINT16 && lib.variant_setUInt16(return_value, 16),
        type == VARIANT_UINT32 && lib.variant_setUInt32(return_value, 32),
        type == VARIANT_BOOL && lib.variant_setBool(return_value, 1),
        type == VARIANT_BYTES && lib.variant_setByteArray(return_value, kThreeBytes, sizeof kThreeBytes),
    };
    for (const int one : set) {
        if (one != 0)
            return KEX_FUNCTION_DONE;
    }
    return KEX_FUNCTION_FAILED;
}

int64_t number_of(const variant_t *value) {
    int32_t number = 0;
    int yes = 0;
    if (lib.variant_toInt32(value, &number) != 0)
        return number;
    return lib.variant_toBool(value, &yes) != 0 ? yes : INT64_MIN;
}

void kinds() {
    constexpr int64_t kNumbers[][2] = {
        {VARIANT_INT16, -16}, {VARIANT_INT32, -32}, {VARIANT_UINT16, 16}, {VARIANT_UINT32, 32}, {VARIANT_BOOL, 1}};
    peer_t *peer = far_connect();
    for (const auto &row : kNumbers) {
        request_t *r = request_make();
        request_add_number(r, "value", static_cast<uint32_t>(row[0]));
        const variant_t *value = reply_value(request_call(peer, r));
        expect_number("type", lib.variant_type(value), row[0]);
        expect_number("number", number_of(value), row[1]);
        lib.request_destroy(r);
    }
    request_t *r = request_make();
    request_add_number(r, "value", VARIANT_TEXT);
    expect_text("text", reply_text(request_call(peer, r)), "text");
    lib.request_destroy(r);
    r = request_make();
    request_add_number(r, "value", VARIANT_BYTES);
    const void *bytes = nullptr;
    uint32_t length = 0;
    expect(lib.variant_toByteArray(reply_value(request_call(peer, r)), &bytes, &length) != 0, "there are no bytes");
    expect(length == sizeof kThreeBytes && memcmp(bytes, kThreeBytes, sizeof kThreeBytes) == 0, "%u other bytes arrive",
           length);
    lib.request_destroy(r);
    host_end();
}

void kinds_serve() {
    on_run = value_of_type;
    far_plain();
}

void items_live_with_reply() {
    peer_t *peer = far_connect();
    request_t *first = request_make();
    reply_t *reply = request_call(peer, first);
    const char *description = lib.reply_item_errorDescription(lib.reply_firstItem(reply));
    for (unsigned i = 0; i < 20; i++) {
        request_t *other = request_make();
        request_call(peer, other);
        lib.request_destroy(other);
    }
    expect_text("after 20 other replies", description, "the first");
    expect(lib.request_reply(first) == reply, "the request has another reply now");
    lib.request_destroy(first);
    host_end();
}

constexpr Check kChecks[] = {
    {"replies.error_order", kMust, "A reply's items, in order: errors, then at most one return value.", error_order,
     errors_serve, 0, false},
    {"replies.value_behind_errors", kMust, "A reply's items, in order: errors, then at most one return value.",
     value_behind_errors, errors_serve, 0, false},
    {"replies.late_value", kMust,
     "return_value enters as VARIANT_NONE, belongs to the bus and stays valid after fcall_destroy().", late_value,
     late_value_serve, 0, false},
    {"replies.no_value", kMust, "Left as it came, the reply has no return value.", no_value, far_plain, 0, false},
    {"replies.status_adds_nothing", kMust, "It adds nothing to the reply.", no_value, status_adds_nothing_serve, 0,
     false},
    {"replies.kinds", kMust, "the function's return value", kinds, kinds_serve, 0, false},
    {"replies.items_live_with_reply", kMust, "Items live as long as the reply.", items_live_with_reply, errors_serve, 0,
     false},
};

} // namespace

const Group kReplies = group_of(kChecks);

} // namespace conformance
