// SPDX-License-Identifier: MIT
// Lists, filled in place.
#include "far.h"
#include "groups.h"
#include "request.h"

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr char kInPlace[] = "The list inside a list variant, to be filled in place; it lives as long as the variant.";

variant_list_t *list_begin(variant_t *value) {
    expect(lib.variant_initialize(value, VARIANT_LIST) != 0, "variant_initialize answers no to a list");
    variant_list_t *list = lib.variant_da_list(value);
    expect(list != nullptr, "variant_da_list answers null");
    return list;
}

void number_add(variant_list_t *list, uint32_t number) {
    variant_t item = {};
    lib.variant_setUInt32(&item, number);
    expect(lib.variant_list_add(list, &item) != 0, "variant_list_add answers no to item %u", number);
    lib.variant_cleanup(&item);
}

void in_place() {
    variant_t value;
    variant_list_t *list = list_begin(&value);
    number_add(list, 1);
    number_add(list, 2);
    expect(lib.variant_da_list(&value) == list, "the second variant_da_list gives another list");
    number_add(lib.variant_da_list(&value), 3);
    expect_number("items", lib.variant_list_size(list), 3);
    lib.variant_cleanup(&value);
}

void of_no_list() {
    variant_t value = {};
    expect(lib.variant_da_list(&value) == nullptr, "a zero-filled variant has a list");
    lib.variant_setUInt32(&value, 1);
    expect(lib.variant_da_list(&value) == nullptr, "a number has a list");
    variant_t none;
    lib.variant_initialize(&none, VARIANT_NONE);
    expect(lib.variant_da_list(&none) == nullptr, "a variant without a value has a list");
    saw("null for text, number and none");
}

void copies() {
    variant_t value;
    variant_list_t *list = list_begin(&value);
    variant_t item = {};
    lib.variant_setChar(&item, "first");
    lib.variant_list_add(list, &item);
    lib.variant_setChar(&item, "second");
    lib.variant_list_add(list, &item);
    lib.variant_cleanup(&item);
    variant_t outer;
    variant_list_t *outer_list = list_begin(&outer);
    expect(lib.variant_list_add(outer_list, &value) != 0, "a list cannot be put into a list");
    lib.variant_cleanup(&value);
    lib.variant_cleanup(&outer);
    saw("a list within a list, cleaned before it");
}

void many() {
    variant_t value;
    variant_list_t *list = list_begin(&value);
    for (uint32_t i = 0; i < 1000; i++)
        number_add(list, i);
    expect_number("items", lib.variant_list_size(list), 1000);
    lib.variant_cleanup(&value);
}

// A list of a number, a text, a list of two numbers and nothing.
int mixed_check(function_call_t *call, argument_list_t *arguments, variant_t *) {
    variant_list_t *list = nullptr;
    uint32_t number = 0;
    const char *text = nullptr;
    expect(lib.argument_getList(arguments, "value", 0, &list) != 0, "argument_getList answers no");
    expect_number("items", lib.variant_list_size(list), 4);
    expect(lib.variant_toUInt32(lib.variant_list_at(list, 0), &number) != 0, "the first item is no number");
    expect_number("first", number, 1);
    expect(lib.variant_toChar(lib.variant_list_at(list, 1), &text) != 0, "the second item is no text");
    expect_text("second", text, "two");
    expect_number("type of the third", lib.variant_type(lib.variant_list_at(list, 2)), VARIANT_LIST);
    expect_number("type of the fourth", lib.variant_type(lib.variant_list_at(list, 3)), VARIANT_NONE);
    expect(lib.variant_list_at(list, 4) == nullptr && lib.variant_list_at(list, UINT32_MAX) == nullptr,
           "there is an item behind the last");
    lib.variant_list_destroy(list);
    lib.fcall_destroy(call);
    return KEX_FUNCTION_DONE;
}

void serve_mixed() {
    on_run = mixed_check;
    far_plain();
}

void arrive() {
    variant_t value;
    variant_t item = {};
    variant_list_t *list = list_begin(&value);
    number_add(list, 1);
    lib.variant_setChar(&item, "two");
    lib.variant_list_add(list, &item);
    lib.variant_cleanup(&item);
    number_add(list_begin(&item), 3);
    lib.variant_list_add(list, &item);
    lib.variant_cleanup(&item);
    lib.variant_initialize(&item, VARIANT_NONE);
    lib.variant_list_add(list, &item);
    peer_t *peer = far_connect();
    request_t *r = request_make();
    expect(lib.request_addParameter(r, "value", &value) != 0, "request_addParameter answers no");
    lib.variant_cleanup(&value);
    request_call(peer, r);
    lib.request_destroy(r);
    host_end();
}

void null_item() {
    variant_t value;
    variant_list_t *list = list_begin(&value);
    expect_number("variant_list_add", lib.variant_list_add(list, nullptr), 0);
    lib.variant_cleanup(&value);
}

constexpr Check kChecks[] = {
    {"lists.in_place", kMust, kInPlace, in_place, nullptr, 0, false},
    {"lists.of_no_list", kMust, "NULL on failure.", of_no_list, nullptr, 0, false},
    {"lists.copies", kMust, "Appends a copy.", copies, nullptr, 0, false},
    {"lists.many", kMust, "An ordered list of values.", many, nullptr, 0, false},
    {"lists.arrive", kMust, "NULL past the end.", arrive, serve_mixed, 0, false},
    {"lists.null_item", kMust,
     "A null handle never crashes: creators return NULL, actions return 0 (variant_fd: -1), destroyers do nothing.",
     null_item, nullptr, 0, false},
};

} // namespace

const Group kLists = group_of(kChecks);

} // namespace conformance
