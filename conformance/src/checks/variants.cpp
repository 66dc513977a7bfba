// SPDX-License-Identifier: MIT
// Values: how they are made, set and released.
#include "binding.h"
#include "groups.h"

#include <string.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;
constexpr uint32_t kTypes[] = {VARIANT_TEXT, VARIANT_INT16, VARIANT_INT32, VARIANT_UINT16, VARIANT_UINT32,
                               VARIANT_BOOL, VARIANT_LIST,  VARIANT_FD,    VARIANT_BYTES,  VARIANT_NONE};

void zero_filled() {
    variant_t value = {};
    const char *text = nullptr;
    expect_number("type", lib.variant_type(&value), VARIANT_TEXT);
    expect(lib.variant_toChar(&value, &text) != 0, "variant_toChar answers no");
    expect_text("text", text, "");
    lib.variant_cleanup(&value);
}

void garbage() {
    for (const int byte : {0xff, 0xa5, 0x01, 0x80}) {
        for (const uint32_t type : kTypes) {
            variant_t value;
            memset(static_cast<void *>(&value), byte, sizeof value);
            expect(lib.variant_initialize(&value, type) != 0, "variant_initialize answers no to type %u", type);
            expect(lib.variant_type(&value) == type, "type %u became %u", type, lib.variant_type(&value));
            lib.variant_cleanup(&value);
        }
    }
    saw("ten types in memory of four kinds");
}

void unknown_type() {
    for (const uint32_t type : {1u, 2u, 5u, 9u, 17u, 20u, 254u, 256u, UINT32_MAX}) {
        variant_t value = {};
        expect(lib.variant_initialize(&value, type) == 0, "variant_initialize answers yes to type %u", type);
    }
    saw("nine numbers answered with no");
}

void empty_numbers() {
    for (const uint32_t type : {VARIANT_INT16, VARIANT_INT32, VARIANT_UINT16, VARIANT_UINT32}) {
        variant_t value;
        int32_t number = 7;
        lib.variant_initialize(&value, type);
        expect(lib.variant_toInt32(&value, &number) != 0, "variant_toInt32 answers no to an empty value of type %u",
               type);
        expect_number("number", number, 0);
        lib.variant_cleanup(&value);
    }
    variant_t value;
    int yes = 7;
    lib.variant_initialize(&value, VARIANT_BOOL);
    expect(lib.variant_toBool(&value, &yes) != 0, "variant_toBool answers no");
    expect_number("boolean", yes, 0);
}

void empty_others() {
    variant_t value;
    const char *text = nullptr;
    const void *bytes = nullptr;
    uint32_t length = 7;
    lib.variant_initialize(&value, VARIANT_TEXT);
    expect(lib.variant_toChar(&value, &text) != 0, "variant_toChar answers no");
    expect_text("text", text, "");
    lib.variant_cleanup(&value);
    lib.variant_initialize(&value, VARIANT_BYTES);
    expect(lib.variant_toByteArray(&value, &bytes, &length) != 0, "variant_toByteArray answers no");
    expect_number("bytes", length, 0);
    lib.variant_cleanup(&value);
    lib.variant_initialize(&value, VARIANT_FD);
    expect_number("descriptor", lib.variant_fd(&value), -1);
    lib.variant_cleanup(&value);
    lib.variant_initialize(&value, VARIANT_LIST);
    expect(lib.variant_da_list(&value) != nullptr, "variant_da_list answers null");
    expect_number("items", lib.variant_list_size(lib.variant_da_list(&value)), 0);
    lib.variant_cleanup(&value);
}

// All types one after the other in one variant.
void value_set(variant_t *value, unsigned which) {
    const int set[] = {
        lib.variant_setChar(value, "some text"),
        lib.variant_setBool(value, 5),
        lib.variant_setInt16(value, -3),
        lib.variant_setByteArray(value, "\1\2\3", 3),
        lib.variant_setInt32(value, -70000),
        lib.variant_setUInt16(value, 65535),
        lib.variant_setFd(value, -1),
        lib.variant_setUInt32(value, 4000000000u),
    };
    for (const int one : set)
        expect(one != 0, "a setter answers no (round %u)", which);
}

void setters_replace() {
    variant_t value = {};
    uint32_t number = 0;
    value_set(&value, 0);
    expect_number("type", lib.variant_type(&value), VARIANT_UINT32);
    expect(lib.variant_toUInt32(&value, &number) != 0, "variant_toUInt32 answers no");
    expect_number("number", number, 4000000000u);
    lib.variant_cleanup(&value);
}

void cleanup_twice() {
    for (unsigned i = 0; i < 3; i++) {
        variant_t value = {};
        lib.variant_setChar(&value, "a text");
        if (i == 1)
            lib.variant_setByteArray(&value, "bytes", 5);
        if (i == 2) {
            lib.variant_cleanup(&value);
            lib.variant_initialize(&value, VARIANT_LIST);
            lib.variant_da_list(&value);
        }
        lib.variant_cleanup(&value);
        lib.variant_cleanup(&value);
        lib.variant_cleanup(&value);
    }
    saw("text, bytes and list cleaned three times");
}

void cleanup_empties() {
    variant_t value = {};
    const char *text = "";
    uint32_t number = 7;
    lib.variant_setUInt32(&value, 5);
    lib.variant_cleanup(&value);
    expect(lib.variant_toUInt32(&value, &number) == 0, "the number %u is still there", number);
    lib.variant_setChar(&value, "five");
    lib.variant_cleanup(&value);
    expect(lib.variant_toChar(&value, &text) == 0 || *text == '\0', "the text \"%s\" is still there", text);
    expect(lib.variant_setChar(&value, "again") != 0 && lib.variant_toChar(&value, &text) != 0,
           "it cannot be set again");
    expect_text("set again", text, "again");
    lib.variant_cleanup(&value);
}

void stays_inside() {
    struct Guarded {
        uint64_t before;
        variant_t value;
        uint64_t behind;
    };
    constexpr uint64_t kGuard = 0x1122334455667788;
    Guarded guarded = {kGuard, {}, kGuard};
    for (const uint32_t type : kTypes) {
        lib.variant_initialize(&guarded.value, type);
        value_set(&guarded.value, type);
        lib.variant_cleanup(&guarded.value);
    }
    expect(guarded.before == kGuard && guarded.behind == kGuard, "memory beside the variant's 32 bytes was written");
    expect_number("bytes", sizeof(variant_t), 32);
    expect_number("alignment", alignof(variant_t), 8);
}

void type_of_null() {
    variant_t value;
    expect_number("of NULL", lib.variant_type(nullptr), VARIANT_NONE);
    lib.variant_initialize(&value, VARIANT_NONE);
    expect_number("of none", lib.variant_type(&value), VARIANT_NONE);
}

constexpr char kEmpty[] =
    "Makes *v an empty value of the type: \"\", 0, false, no bytes, descriptor -1, an empty list.";

constexpr Check kChecks[] = {
    {"variants.zero_filled", kMust, "A zero-filled variant is valid (an empty text).", zero_filled, nullptr, 0, false},
    {"variants.garbage", kMust, "Does not look at what *v held before, so that it serves on uninitialised memory.",
     garbage, nullptr, 0, false},
    {"variants.unknown_type", kMust, "@return no for an unknown type code.", unknown_type, nullptr, 0, false},
    {"variants.empty_numbers", kMust, kEmpty, empty_numbers, nullptr, 0, false},
    {"variants.empty_others", kMust, kEmpty, empty_others, nullptr, 0, false},
    {"variants.setters_replace", kMust, "Setters set type and value and release what was there.", setters_replace,
     nullptr, 0, false},
    {"variants.cleanup_twice", kMust, "Calling it twice is harmless.", cleanup_twice, nullptr, 0, false},
    {"variants.cleanup_empties", kMust, "Releases what the variant holds and leaves it empty.", cleanup_empties,
     nullptr, 0, false},
    {"variants.stays_inside", kMust, "The caller allocates it; its contents are the bus's own.", stays_inside, nullptr,
     0, false},
    {"variants.type_of_null", Level::should, "A variant_type_code; VARIANT_NONE for NULL.", type_of_null, nullptr, 0,
     false},
};

} // namespace

const Group kVariants = group_of(kChecks);

} // namespace conformance
