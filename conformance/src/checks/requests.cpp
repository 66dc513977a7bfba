// SPDX-License-Identifier: MIT
// Requests: what they are made of, and that it arrives.
#include "far.h"
#include "groups.h"
#include "request.h"

#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

void creation() {
    static char endless[100000];
    memset(endless, 'x', sizeof endless - 1);
    expect(lib.request_create_executeFunction(nullptr, "run", 0) == nullptr, "no path, and a request");
    expect(lib.request_create_executeFunction("Conformance", nullptr, 0) == nullptr, "no function, and a request");
    expect(lib.request_create_executeFunction("", "run", 0) == nullptr, "an empty path, and a request");
    expect(lib.request_create_executeFunction("Conformance", "", 0) == nullptr, "an empty function, and a request");
    expect(lib.request_create_executeFunction(endless, "run", 0) == nullptr, "a path of 99,999 bytes, and a request");
    saw("null five times");
}

void data() {
    int word = 0;
    request_t *r = request_make();
    expect(lib.request_data(r) == nullptr, "there is data before any was set");
    lib.request_setData(r, &word);
    expect(lib.request_data(r) == &word, "another pointer comes back");
    lib.request_setData(r, nullptr);
    expect(lib.request_data(r) == nullptr, "it cannot be set to null");
    lib.request_destroy(r);
    saw("the pointer that was set");
}

void flags_kept() {
    for (const uint32_t flags : {0u, 1u, 0x8001u, 0xfedcba98u}) {
        request_t *r = request_make("run", flags);
        expect(lib.request_attributes(r) == flags, "%#x became %#x", flags, lib.request_attributes(r));
        lib.request_destroy(r);
    }
    saw("four words of flags");
}

int flags_answer(function_call_t *call, argument_list_t *, variant_t *return_value) {
    const uint32_t flags = lib.request_attributes(lib.fcall_request(call));
    lib.fcall_destroy(call);
    return lib.variant_setUInt32(return_value, flags) ? KEX_FUNCTION_DONE : KEX_FUNCTION_FAILED;
}

void flags_arrive() {
    peer_t *peer = far_connect();
    for (const uint32_t flags : {0u, 1u, 0x8001u, 0x80000000u, 0xfedcba98u, UINT32_MAX}) {
        request_t *r = request_make("run", flags);
        const uint32_t arrived = reply_number(request_call(peer, r));
        expect(arrived == flags, "%#x arrives as %#x", flags, arrived);
        lib.request_destroy(r);
    }
    saw("six words of flags");
    host_end();
}

void flags_arrive_serve() {
    on_run = flags_answer;
    far_plain();
}

// The number that came, of whatever type, as text of its value: what both sides agree on.
int number_answer(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    uint16_t number16 = 0;
    uint32_t number = 0;
    int32_t integer = 0;
    const bool is16 = lib.argument_getUInt16(arguments, "value", 0, &number16) != 0;
    const bool is32 = lib.argument_getUInt32(arguments, "value", 0, &number) != 0;
    const bool is_signed = lib.argument_getInt32(arguments, "value", 0, &integer) != 0;
    lib.fcall_destroy(call);
    const int64_t seen = is_signed ? integer : is32 ? int64_t{number} : -1;
    expect(!is16 || number16 == seen, "one number is read as %u and %" PRId64, number16, seen);
    expect(!is32 || !is_signed || int64_t{number} == integer, "one number is read as %u and %d", number, integer);
    lib.variant_setInt32(return_value, static_cast<int32_t>(seen));
    return KEX_FUNCTION_DONE;
}

void numbers_arrive() {
    constexpr int64_t kNumbers[][2] = {
        {VARIANT_INT16, INT16_MIN}, {VARIANT_INT16, INT16_MAX},   {VARIANT_UINT16, UINT16_MAX}, {VARIANT_INT32, -1},
        {VARIANT_INT32, INT32_MIN}, {VARIANT_UINT32, UINT32_MAX}, {VARIANT_INT32, INT32_MAX},   {VARIANT_UINT32, 0},
    };
    peer_t *peer = far_connect();
    for (const auto &row : kNumbers) {
        variant_t value = {};
        if (row[0] == VARIANT_INT16)
            lib.variant_setInt16(&value, static_cast<int16_t>(row[1]));
        else if (row[0] == VARIANT_UINT16)
            lib.variant_setUInt16(&value, static_cast<uint16_t>(row[1]));
        else if (row[0] == VARIANT_INT32)
            lib.variant_setInt32(&value, static_cast<int32_t>(row[1]));
        else
            lib.variant_setUInt32(&value, static_cast<uint32_t>(row[1]));
        request_t *r = request_make();
        lib.request_addParameter(r, "value", &value);
        lib.variant_cleanup(&value);
        int32_t arrived = 0;
        expect(lib.variant_toInt32(reply_value(request_call(peer, r)), &arrived) != 0, "the answer is no number");
        expect(arrived == static_cast<int32_t>(row[1]), "%" PRId64 " of type %" PRId64 " arrives as %d", row[1], row[0],
               arrived);
        lib.request_destroy(r);
    }
    saw("eight numbers at the ends of their types");
    host_end();
}

void numbers_arrive_serve() {
    on_run = number_answer;
    far_plain();
}

int text_answer(function_call_t *call, argument_list_t *arguments, variant_t *return_value) {
    char *text = nullptr;
    const bool there = lib.argument_getChar(arguments, "value", 0, &text) != 0;
    lib.fcall_destroy(call);
    lib.variant_setChar(return_value, there && text != nullptr ? text : "(none)");
    free(text);
    return KEX_FUNCTION_DONE;
}

void value_copied() {
    char text[] = "as it was";
    variant_t value = {};
    peer_t *peer = far_connect();
    request_t *r = request_make();
    lib.variant_setChar(&value, text);
    expect(lib.request_addParameter(r, "value", &value) != 0, "request_addParameter answers no");
    lib.variant_setChar(&value, "something else");
    lib.variant_cleanup(&value);
    expect_text("arrived", reply_text(request_call(peer, r)), "as it was");
    lib.request_destroy(r);
    host_end();
}

void value_copied_serve() {
    on_run = text_answer;
    far_plain();
}

void zero_filled_value() {
    variant_t value = {};
    peer_t *peer = far_connect();
    request_t *r = request_make();
    expect(lib.request_addParameter(r, "value", &value) != 0, "request_addParameter answers no to a zero-filled value");
    expect_text("arrived", reply_text(request_call(peer, r)), "");
    lib.request_destroy(r);
    host_end();
}

void handler_must_not_run(request_t *) {
    fail("the handler of a request ran that kex_sendRequest had answered with no");
}

void after_a_no() {
    host_begin();
    request_t *r = request_make();
    lib.request_setDoneHandler(r, handler_must_not_run);
    expect_number("kex_sendRequest to nobody", lib.kex_sendRequest(bus, nullptr, r), 0);
    turn_for(100);
    lib.request_destroy(r);
    turn_for(50);
    host_end();
}

void sent_in_turns() {
    peer_t *peer = far_connect();
    call_one_way(peer, "run", 1);
    line_hear_in_turns('1');
    host_end();
    saw("the call ran without a wait");
}

void sent_once() {
    peer_t *peer = far_connect();
    request_t *r = request_make();
    request_send(peer, r);
    expect_number("kex_sendRequest once more", lib.kex_sendRequest(bus, peer, r), 0);
    expect(lib.kex_waitForReply(bus, r, nullptr) != 0, "kex_waitForReply answers no");
    expect_number("kex_sendRequest after the reply", lib.kex_sendRequest(bus, peer, r), 0);
    lib.request_destroy(r);
    host_end();
}

int run_said(function_call_t *call, argument_list_t *, variant_t *) {
    line_say('1');
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void sent_in_turns_serve() {
    on_run = run_said;
    far_plain();
}

void sent_at_the_end() {
    peer_t *peer = far_connect();
    for (uint32_t i = 0; i < 3; i++)
        call_one_way(peer, "run", i);
    host_end();
    line_hear('1');
    line_hear('1');
    line_hear('1');
    saw("three calls that were queued when kex_destroy() was called");
}

constexpr char kAttributes[] =
    "32 bits, carried to the receiver as they are, who reads them with request_attributes().";

constexpr Check kChecks[] = {
    {"requests.creation", kMust, "NULL when path or function is null, empty or too long.", creation, nullptr, 0, false},
    {"requests.data", kMust, "That word, or NULL.", data, nullptr, 0, false},
    {"requests.flags_kept", kMust, "The flags given at creation; at the receiver, those that arrived.", flags_kept,
     nullptr, 0, false},
    {"requests.flags_arrive", kMust, kAttributes, flags_arrive, flags_arrive_serve, 0, false},
    {"requests.numbers_arrive", kMust,
     "An argument of another kind, or an integer that does not fit, counts as missing.", numbers_arrive,
     numbers_arrive_serve, 0, false},
    {"requests.value_copied", kMust, "The value is copied: clean your own variant right after.", value_copied,
     value_copied_serve, 0, false},
    {"requests.zero_filled_value", kMust, "A zero-filled variant is valid (an empty text).", zero_filled_value,
     value_copied_serve, 0, false},
    {"requests.after_a_no", kMust, "After a no, no handler of the request ever runs.", after_a_no, nullptr, 0, false},
    {"requests.sent_in_turns", kMust, "It leaves at the next turn of the loop, at a wait, or when enough is queued.",
     sent_in_turns, sent_in_turns_serve, 0, false},
    {"requests.sent_once", Level::should, "A request that was sent is not sent again: no", sent_once, far_plain, 0,
     false},
    {"requests.sent_at_the_end", Level::should,
     "Sends what is still queued for at most 1 s, closes every peer, frees everything that belongs to the bus.",
     sent_at_the_end, sent_in_turns_serve, 0, false},
};

} // namespace

const Group kRequests = group_of(kChecks);

} // namespace conformance
