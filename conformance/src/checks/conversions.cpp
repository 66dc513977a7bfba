// SPDX-License-Identifier: MIT
// Reading values as another type: what fits, what does not, and that nothing is written then.
#include "binding.h"
#include "groups.h"

#include <inttypes.h>

namespace conformance {

namespace {

constexpr Level kMust = Level::must;

enum class As { int16, uint16, int32, uint32 };

struct Row {
    uint32_t type;
    int64_t number;
    bool fits[4]; // as int16, uint16, int32, uint32
};

constexpr Row kRows[] = {
    {VARIANT_INT16, 0, {true, true, true, true}},
    {VARIANT_INT16, -1, {true, false, true, false}},
    {VARIANT_INT16, INT16_MIN, {true, false, true, false}},
    {VARIANT_INT16, INT16_MAX, {true, true, true, true}},
    {VARIANT_UINT16, INT16_MAX, {true, true, true, true}},
    {VARIANT_UINT16, INT16_MAX + 1, {false, true, true, true}},
    {VARIANT_UINT16, UINT16_MAX, {false, true, true, true}},
    {VARIANT_INT32, INT16_MIN, {true, false, true, false}},
    {VARIANT_INT32, INT16_MIN - 1, {false, false, true, false}},
    {VARIANT_INT32, -1, {true, false, true, false}},
    {VARIANT_INT32, UINT16_MAX, {false, true, true, true}},
    {VARIANT_INT32, UINT16_MAX + 1, {false, false, true, true}},
    {VARIANT_INT32, INT32_MIN, {false, false, true, false}},
    {VARIANT_INT32, INT32_MAX, {false, false, true, true}},
    {VARIANT_UINT32, INT16_MAX, {true, true, true, true}},
    {VARIANT_UINT32, UINT16_MAX + 1, {false, false, true, true}},
    {VARIANT_UINT32, int64_t{INT32_MAX} + 1, {false, false, false, true}},
    {VARIANT_UINT32, UINT32_MAX, {false, false, false, true}},
};

void number_set(variant_t *value, uint32_t type, int64_t number) {
    if (type == VARIANT_INT16)
        lib.variant_setInt16(value, static_cast<int16_t>(number));
    else if (type == VARIANT_UINT16)
        lib.variant_setUInt16(value, static_cast<uint16_t>(number));
    else if (type == VARIANT_INT32)
        lib.variant_setInt32(value, static_cast<int32_t>(number));
    else
        lib.variant_setUInt32(value, static_cast<uint32_t>(number));
}

// What the conversion writes over, to see that it does not when it answers no. No row has it.
constexpr int64_t kUntouched = 0x5a5a;

template <class Number, class Convert>
bool number_convert(const Convert &convert, const variant_t *value, int64_t *number) {
    Number read = static_cast<Number>(kUntouched);
    const bool fits = convert(value, &read) != 0;
    *number = static_cast<int64_t>(read);
    return fits;
}

bool number_read(As as, const variant_t *value, int64_t *number) {
    switch (as) {
    case As::int16:
        return number_convert<int16_t>(lib.variant_toInt16, value, number);
    case As::uint16:
        return number_convert<uint16_t>(lib.variant_toUInt16, value, number);
    case As::int32:
        return number_convert<int32_t>(lib.variant_toInt32, value, number);
    default:
        return number_convert<uint32_t>(lib.variant_toUInt32, value, number);
    }
}

void rows_check(As as) {
    for (const Row &row : kRows) {
        variant_t value = {};
        int64_t number = 0;
        number_set(&value, row.type, row.number);
        const bool fits = number_read(as, &value, &number);
        const bool expected = row.fits[static_cast<int>(as)];
        expect(fits == expected, "%" PRId64 " of type %u is %s", row.number, row.type,
               fits ? "taken, although it does not fit" : "not taken");
        if (fits)
            expect(number == row.number, "%" PRId64 " of type %u is read as %" PRId64, row.number, row.type, number);
        lib.variant_cleanup(&value);
    }
    saw("%zu numbers", sizeof kRows / sizeof *kRows);
}

void to_int16() {
    rows_check(As::int16);
}
void to_uint16() {
    rows_check(As::uint16);
}
void to_int32() {
    rows_check(As::int32);
}
void to_uint32() {
    rows_check(As::uint32);
}

constexpr As kAll[] = {As::int16, As::uint16, As::int32, As::uint32};

void left_alone() {
    for (const Row &row : kRows) {
        variant_t value = {};
        number_set(&value, row.type, row.number);
        for (const As as : kAll) {
            int64_t number = 0;
            if (!number_read(as, &value, &number))
                expect(number == kUntouched, "%" PRId64 " of type %u: the output became %" PRId64, row.number, row.type,
                       number);
        }
        lib.variant_cleanup(&value);
    }
    variant_t text = {};
    int yes = 7;
    lib.variant_setChar(&text, "1");
    expect(lib.variant_toBool(&text, &yes) == 0 && yes == 7, "a text as a boolean: the output became %d", yes);
    lib.variant_cleanup(&text);
    saw("outputs stay where the answer is no");
}

void boolean_is_no_number() {
    variant_t value = {};
    int16_t number = 7;
    lib.variant_setBool(&value, 1);
    expect_number("variant_toInt16", lib.variant_toInt16(&value, &number), 0);
    expect_number("number", number, 7);
}

void booleans() {
    struct {
        int given, expected;
    } const rows[] = {{0, 0}, {1, 1}, {5, 1}, {-1, 1}};
    for (const auto &row : rows) {
        variant_t value = {};
        int yes = 7;
        lib.variant_setBool(&value, row.given);
        expect(lib.variant_toBool(&value, &yes) != 0, "variant_toBool answers no");
        expect(yes == row.expected, "%d became %d", row.given, yes);
    }
    saw("0, 1, 5 and -1 as 0, 1, 1 and 1");
}

void booleans_of_integers() {
    for (const Row &row : kRows) {
        variant_t value = {};
        int yes = 7;
        number_set(&value, row.type, row.number);
        expect(lib.variant_toBool(&value, &yes) != 0, "no boolean of %" PRId64 ", type %u", row.number, row.type);
        expect(yes == (row.number != 0 ? 1 : 0), "%" PRId64 " of type %u as a boolean: %d", row.number, row.type, yes);
    }
    saw("%zu integers", sizeof kRows / sizeof *kRows);
}

void other_types() {
    constexpr uint8_t kOne[] = {1, 0, 0, 0};
    variant_t values[5] = {};
    lib.variant_setChar(&values[0], "12");
    lib.variant_setByteArray(&values[1], kOne, sizeof kOne);
    lib.variant_setFd(&values[2], 0);
    lib.variant_initialize(&values[3], VARIANT_NONE);
    lib.variant_initialize(&values[4], VARIANT_LIST);
    for (unsigned i = 0; i < 5; i++) {
        for (const As as : kAll) {
            int64_t number = 0;
            expect(!number_read(as, &values[i], &number), "a value of type %u is read as a number",
                   lib.variant_type(&values[i]));
        }
        int yes = 0;
        const void *bytes = nullptr;
        uint32_t length = 0;
        const char *text = nullptr;
        expect(lib.variant_toBool(&values[i], &yes) == 0, "type %u is read as a boolean", lib.variant_type(&values[i]));
        expect(i == 0 || lib.variant_toChar(&values[i], &text) == 0, "type %u is read as a text",
               lib.variant_type(&values[i]));
        expect(i == 1 || lib.variant_toByteArray(&values[i], &bytes, &length) == 0, "type %u is read as bytes",
               lib.variant_type(&values[i]));
    }
    for (variant_t &value : values)
        lib.variant_cleanup(&value);
    saw("text, bytes, descriptor, none and list");
}

void numbers_are_no_texts() {
    for (const Row &row : kRows) {
        variant_t value = {};
        const char *text = nullptr;
        const void *bytes = nullptr;
        uint32_t length = 0;
        number_set(&value, row.type, row.number);
        expect(lib.variant_toChar(&value, &text) == 0, "a number of type %u is read as a text", row.type);
        expect(lib.variant_toByteArray(&value, &bytes, &length) == 0, "a number of type %u is read as bytes", row.type);
    }
    saw("%zu integers", sizeof kRows / sizeof *kRows);
}

constexpr char kFits[] = "A conversion that does not apply (another type, no value, a null variant, a number that does "
                         "not fit) answers no and leaves *value alone.";

constexpr Check kChecks[] = {
    {"conversions.int16", kMust, "From integers that fit; never from a boolean.", to_int16, nullptr, 0, false},
    {"conversions.uint16", Level::should, kFits, to_uint16, nullptr, 0, false},
    {"conversions.int32", Level::should, kFits, to_int32, nullptr, 0, false},
    {"conversions.uint32", Level::should, kFits, to_uint32, nullptr, 0, false},
    {"conversions.left_alone", kMust, kFits, left_alone, nullptr, 0, false},
    {"conversions.boolean_is_no_number", kMust, "From integers that fit; never from a boolean.", boolean_is_no_number,
     nullptr, 0, false},
    {"conversions.booleans", kMust, "From booleans and integers; 0 or 1.", booleans, nullptr, 0, false},
    {"conversions.booleans_of_integers", kMust, "From booleans and integers; 0 or 1.", booleans_of_integers, nullptr, 0,
     false},
    {"conversions.other_types", kMust, kFits, other_types, nullptr, 0, false},
    {"conversions.numbers_are_no_texts", Level::should, kFits, numbers_are_no_texts, nullptr, 0, false},
};

} // namespace

const Group kConversions = group_of(kChecks);

} // namespace conformance
