// SPDX-License-Identifier: MIT
// Values and lists by themselves.
#include "support/bus_test.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace support;

namespace {

class Variant : public DescriptorTest {};

TEST_F(Variant, ZeroFilledIsAnEmptyText) {
    variant_t v = {};
    EXPECT_EQ(show(&v), "text \"\"");
    variant_cleanup(&v);
}

TEST_F(Variant, InitializeMakesTheEmptyValueOfEachType) {
    const struct {
        uint32_t type;
        const char *shown;
    } rows[] = {
        {VARIANT_TEXT, "text \"\""},   {VARIANT_INT16, "i16 0"}, {VARIANT_INT32, "i32 0"},  {VARIANT_UINT16, "u16 0"},
        {VARIANT_UINT32, "u32 0"},     {VARIANT_BOOL, "false"},  {VARIANT_LIST, "list []"}, {VARIANT_FD, "fd"},
        {VARIANT_BYTES, "bytes \"\""}, {VARIANT_NONE, "none"},
    };
    for (const auto &row : rows) {
        variant_t v;
        memset(&v, 0xA5, sizeof v); // it does not look at what was there
        ASSERT_TRUE(variant_initialize(&v, row.type));
        EXPECT_EQ(show(&v), row.shown);
        EXPECT_EQ(variant_type(&v), row.type);
        EXPECT_EQ(variant_fd(&v), -1) << row.shown;
        variant_cleanup(&v);
    }
    variant_t v = {};
    for (uint32_t type : {1u, 2u, 5u, 9u, 14u, 20u, 254u, 256u, UINT32_MAX})
        EXPECT_FALSE(variant_initialize(&v, type)) << type;
}

TEST_F(Variant, CleanupTwiceIsHarmless) {
    variant_t v = list({text("a"), bytes("b")});
    variant_cleanup(&v);
    variant_cleanup(&v);
    EXPECT_EQ(variant_type(&v), uint32_t{VARIANT_NONE});
}

TEST_F(Variant, SettersReleaseWhatWasThere) {
    variant_t v = text("a");
    EXPECT_TRUE(variant_setByteArray(&v, "xyz", 3));
    EXPECT_TRUE(variant_setChar(&v, "b"));
    EXPECT_TRUE(variant_setUInt32(&v, 1));
    variant_cleanup(&v); // the leak checker sees the rest
}

TEST_F(Variant, TextMayBeSetFromItself) {
    variant_t v = text("whole");
    const char *inner = nullptr;
    ASSERT_TRUE(variant_toChar(&v, &inner));
    EXPECT_TRUE(variant_setChar(&v, inner + 2));
    EXPECT_EQ(show(&v), "text \"ole\"");
    variant_cleanup(&v);
}

// What each conversion answers for each kind of value; "-" is no, and then the output keeps what it held.
TEST_F(Variant, ConversionsFollowTheirTable) {
    struct Row {
        variant_t value;
        const char *as_bool, *as_i16, *as_u16, *as_i32, *as_u32;
    } rows[] = {
        {i16(-1), "1", "-1", "-", "-1", "-"},
        {i16(0), "0", "0", "0", "0", "0"},
        {u16(65535), "1", "-", "65535", "65535", "65535"},
        {i32(-32768), "1", "-32768", "-", "-32768", "-"},
        {i32(-32769), "1", "-", "-", "-32769", "-"},
        {i32(32767), "1", "32767", "32767", "32767", "32767"},
        {i32(32768), "1", "-", "32768", "32768", "32768"},
        {u32(65536), "1", "-", "-", "65536", "65536"},
        {u32(0x80000000u), "1", "-", "-", "-", "2147483648"},
        {boolean(true), "1", "-", "-", "-", "-"},
        {boolean(false), "0", "-", "-", "-", "-"},
        {text("1"), "-", "-", "-", "-", "-"},
        {bytes("1"), "-", "-", "-", "-", "-"},
        {none(), "-", "-", "-", "-", "-"},
        {list({}), "-", "-", "-", "-", "-"},
        {descriptor(5), "-", "-", "-", "-", "-"},
    };
    for (Row &row : rows) {
        SCOPED_TRACE(show(&row.value));
        auto check = [&](auto convert, auto number, const char *expected) {
            auto before = number;
            bool yes = convert(&row.value, &number) != 0;
            EXPECT_EQ(yes ? std::to_string(number) : "-", expected);
            if (!yes) {
                EXPECT_EQ(number, before);
            }
        };
        check(variant_toBool, int{77}, row.as_bool);
        check(variant_toInt16, int16_t{77}, row.as_i16);
        check(variant_toUInt16, uint16_t{77}, row.as_u16);
        check(variant_toInt32, int32_t{77}, row.as_i32);
        check(variant_toUInt32, uint32_t{77}, row.as_u32);
        variant_cleanup(&row.value);
    }
}

TEST_F(Variant, BooleanIsZeroOrOne) {
    variant_t v = {};
    variant_setBool(&v, -7);
    int value = 0;
    ASSERT_TRUE(variant_toBool(&v, &value));
    EXPECT_EQ(value, 1);
}

TEST_F(Variant, ListKeepsCopiesInOrder) {
    variant_t v = list({u32(1), text("two"), list({boolean(true)})});
    EXPECT_EQ(show(&v), "list [u32 1, text \"two\", list [true]]");
    variant_list_t *items = variant_da_list(&v);
    EXPECT_EQ(variant_list_size(items), 3u);
    EXPECT_EQ(variant_list_at(items, 3), nullptr);
    EXPECT_EQ(variant_list_at(items, UINT32_MAX), nullptr);
    EXPECT_TRUE(variant_list_add(items, variant_list_at(items, 1))) << "an item of the list itself";
    EXPECT_TRUE(variant_list_add(items, &v)) << "the list into itself: a copy";
    EXPECT_EQ(variant_list_size(items), 5u);
    variant_cleanup(&v);
}

TEST_F(Variant, ListsNestFourDeep) {
    variant_t v = list({list({list({list({u32(1)})})})});
    variant_t outer = list({});
    EXPECT_FALSE(variant_list_add(variant_da_list(&outer), &v)) << "a fifth level";
    variant_cleanup(&v);
    variant_cleanup(&outer);
}

TEST_F(Variant, OnlyAListHasAListInside) {
    variant_t v = text("x");
    EXPECT_EQ(variant_da_list(&v), nullptr);
    variant_cleanup(&v);
}

TEST_F(Variant, DescriptorThatWasSetIsBorrowed) {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    variant_t v = descriptor(fd);
    variant_t copies = list({descriptor(fd), descriptor(-5)});
    EXPECT_EQ(variant_fd(&v), fd);
    EXPECT_EQ(variant_fd(variant_list_at(variant_da_list(&copies), 0)), fd);
    variant_cleanup(&v);
    variant_cleanup(&copies);
    EXPECT_EQ(close(fd), 0) << "nobody closed it";
}

TEST_F(Variant, NullHandlesAreAnswered) {
    uint16_t u16_value;
    uint32_t u32_value;
    int32_t i32_value;
    int16_t i16_value;
    int int_value;
    const char *chars;
    const void *data;
    variant_t v = {};
    EXPECT_FALSE(variant_initialize(nullptr, VARIANT_TEXT));
    EXPECT_FALSE(variant_setChar(nullptr, "x"));
    EXPECT_FALSE(variant_setChar(&v, nullptr));
    EXPECT_FALSE(variant_setBool(nullptr, 1));
    EXPECT_FALSE(variant_setInt16(nullptr, 1));
    EXPECT_FALSE(variant_setInt32(nullptr, 1));
    EXPECT_FALSE(variant_setUInt16(nullptr, 1));
    EXPECT_FALSE(variant_setUInt32(nullptr, 1));
    EXPECT_FALSE(variant_setByteArray(nullptr, "x", 1));
    EXPECT_FALSE(variant_setByteArray(&v, nullptr, 1));
    EXPECT_FALSE(variant_setFd(nullptr, 1));
    EXPECT_FALSE(variant_toBool(nullptr, &int_value));
    EXPECT_FALSE(variant_toBool(&v, nullptr));
    EXPECT_FALSE(variant_toInt16(nullptr, &i16_value));
    EXPECT_FALSE(variant_toUInt16(nullptr, &u16_value));
    EXPECT_FALSE(variant_toInt32(nullptr, &i32_value));
    EXPECT_FALSE(variant_toUInt32(nullptr, &u32_value));
    EXPECT_FALSE(variant_toChar(nullptr, &chars));
    EXPECT_FALSE(variant_toByteArray(nullptr, &data, &u32_value));
    EXPECT_FALSE(variant_toInt16(&v, nullptr));
    EXPECT_FALSE(variant_toUInt16(&v, nullptr));
    EXPECT_FALSE(variant_toInt32(&v, nullptr));
    EXPECT_FALSE(variant_toUInt32(&v, nullptr));
    EXPECT_FALSE(variant_toChar(&v, nullptr));
    EXPECT_FALSE(variant_toByteArray(&v, nullptr, &u32_value));
    EXPECT_FALSE(variant_toByteArray(&v, &data, nullptr));
    EXPECT_EQ(variant_fd(nullptr), -1);
    variant_cleanup(nullptr);
    EXPECT_EQ(variant_da_list(nullptr), nullptr);
    EXPECT_FALSE(variant_list_add(nullptr, &v));
    EXPECT_FALSE(variant_list_add(nullptr, nullptr));
    variant_t items = list({});
    EXPECT_FALSE(variant_list_add(variant_da_list(&items), nullptr));
    variant_cleanup(&items);
    EXPECT_EQ(variant_list_size(nullptr), 0u);
    EXPECT_EQ(variant_list_at(nullptr, 0), nullptr);
    variant_list_destroy(nullptr);
    EXPECT_EQ(variant_type(nullptr), uint32_t{VARIANT_NONE});
}

TEST_F(Variant, ByteArrayOfAllBytesThereAreIsRefused) {
    variant_t v = text("before");
    EXPECT_FALSE(variant_setByteArray(&v, "x", UINT32_MAX)) << "there is no place for the zero byte behind it";
    EXPECT_EQ(show(&v), "text \"before\"");
    variant_cleanup(&v);
}

TEST_F(Variant, NoBytesNeedNoAddress) {
    variant_t v = text("before");
    EXPECT_TRUE(variant_setByteArray(&v, nullptr, 0));
    EXPECT_EQ(show(&v), "bytes \"\"");
    const char *chars;
    EXPECT_FALSE(variant_toChar(&v, &chars)) << "it is no text";
    variant_cleanup(&v);
    v = text("text");
    const void *data;
    uint32_t length;
    EXPECT_FALSE(variant_toByteArray(&v, &data, &length)) << "it is no byte array";
    variant_cleanup(&v);
}

} // namespace
