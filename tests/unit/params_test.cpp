// SPDX-License-Identifier: MIT
// The parameter buffer: byte layout, exact room, the odd results at a buffer's end.
#include "voice_test.h"

namespace voice_test {
namespace {

constexpr uint32_t kId = 0x11090207, kOther = 0x13090206, kThird = 0x02FE000A;
constexpr uint8_t kCanary = 0xa5;

std::string hex(const void *bytes, size_t length) {
    std::string result;
    for (size_t i = 0; i < length; ++i)
        result += text("%02x ", static_cast<const uint8_t *>(bytes)[i]);
    return result;
}

std::string hex(const std::string &bytes) {
    return hex(bytes.data(), bytes.size());
}

const char *const kIdTrace = "x libvoice_p_id@params: Error buflen < 4";
const char *const kLengthTrace = "x libvoice_p_len@params: Error buflen < 4";
const char *const kCutOffTrace = "x libvoice_get_param@params: buflen < p_len_aligned";

// ------------------------------------------------------------------------------------------------------------ writing

struct AddRow : Named {
    uint32_t room;
    std::string value;
    uint32_t result;
};

class AddParamTable : public VoiceTest, public testing::WithParamInterface<AddRow> {};

// Writes into an area with a canary before and behind the room, and compares every byte of it.
TEST_P(AddParamTable, WritesExactlyItsItem) {
    const AddRow &row = GetParam();
    alignas(4) uint8_t area[600];
    memset(area, kCanary, sizeof(area));
    uint8_t *const start = area + 8;
    uint8_t *cursor = start;
    uint32_t remaining = row.room;
    const uint32_t length = static_cast<uint32_t>(row.value.size());

    EXPECT_EQ(libvoice_add_param(kId, length, row.value.data(), &cursor, &remaining), row.result)
        << "room " << row.room;

    const std::string written = row.result == LIBVOICE_OK ? item(kId, row.value) : "";
    EXPECT_EQ(cursor - start, static_cast<ptrdiff_t>(written.size()));
    EXPECT_EQ(remaining, row.room - written.size());
    const std::string expected =
        std::string(8, '\xa5') + written + std::string(sizeof(area) - 8 - written.size(), '\xa5');
    EXPECT_EQ(hex(area, sizeof(area)), hex(expected));
    EXPECT_THAT(bus().log(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    AddParam, AddParamTable,
    testing::Values(AddRow{"EmptyItemExactFit", 8, "", LIBVOICE_OK}, AddRow{"EmptyItemOneShort", 7, "", 9},
                    AddRow{"EmptyItemNoRoom", 0, "", 9}, AddRow{"OneByte", 12, "a", LIBVOICE_OK},
                    AddRow{"OneByteOneShort", 11, "a", 9}, AddRow{"ThreeBytes", 64, "abc", LIBVOICE_OK},
                    AddRow{"FourBytesExactFit", 12, "abcd", LIBVOICE_OK}, AddRow{"FourBytesOneShort", 11, "abcd", 9},
                    AddRow{"FiveBytesTakeSixteen", 16, "abcde", LIBVOICE_OK},
                    AddRow{"FiveBytesOneShort", 15, "abcde", 9}, AddRow{"EightBytes", 100, "abcdefgh", LIBVOICE_OK},
                    AddRow{"Large", 512, std::string(500, 'x'), LIBVOICE_OK},
                    AddRow{"LargeExactFit", 508, std::string(500, 'x'), LIBVOICE_OK},
                    AddRow{"LargeOneShort", 507, std::string(500, 'x'), 9}),
    [](const auto &row) { return row.param.name; });

class AddParam : public VoiceTest {};

TEST_F(AddParam, ExactFitIsAccepted) {
    alignas(4) uint8_t buffer[16];
    memset(buffer, kCanary, sizeof(buffer));
    uint8_t *cursor = buffer;
    uint32_t remaining = sizeof(buffer);
    EXPECT_EQ(libvoice_add_param(kId, 5, "hello", &cursor, &remaining), LIBVOICE_OK);
    EXPECT_EQ(remaining, 0u);
    EXPECT_EQ(hex(buffer + 13, 3), "00 00 00 ") << "the bytes after the value are zero";
}

TEST_F(AddParam, ValueOfAnEmptyItemIsNotRead) {
    alignas(4) uint8_t buffer[8];
    uint8_t *cursor = buffer;
    uint32_t remaining = sizeof(buffer);
    EXPECT_EQ(libvoice_add_param(kId, 0, nullptr, &cursor, &remaining), LIBVOICE_OK);
    EXPECT_EQ(hex(buffer, 8), hex(item(kId, "")));
}

TEST_F(AddParam, ALengthWithoutAValueIsAnInvalidArgument) {
    alignas(4) uint8_t area[24];
    memset(area, kCanary, sizeof(area));
    uint8_t *cursor = area;
    uint32_t remaining = 12;
    EXPECT_EQ(libvoice_add_param(kId, 4, nullptr, &cursor, &remaining), LIBVOICE_ERR_INVALID_ARG);
    // What does not fit is said first.
    EXPECT_EQ(libvoice_add_param(kId, 5, nullptr, &cursor, &remaining), LIBVOICE_ERR_PARAM_NO_SPACE);
    EXPECT_EQ(libvoice_add_param(kId, 0xFFFFFFF5u, nullptr, &cursor, &remaining), LIBVOICE_ERR_PARAM_NO_SPACE);
    EXPECT_EQ(cursor, area);
    EXPECT_EQ(remaining, 12u);
    EXPECT_EQ(hex(area, sizeof(area)), hex(std::string(sizeof(area), '\xa5')));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(AddParam, ItemsFollowEachOtherAndMayRepeat) {
    alignas(4) uint8_t buffer[64];
    uint8_t *cursor = buffer;
    uint32_t remaining = sizeof(buffer);
    EXPECT_EQ(libvoice_add_param(kId, 2, "ab", &cursor, &remaining), LIBVOICE_OK);
    EXPECT_EQ(libvoice_add_param(kOther, 0, nullptr, &cursor, &remaining), LIBVOICE_OK);
    EXPECT_EQ(libvoice_add_param(kId, 4, "cdef", &cursor, &remaining), LIBVOICE_OK);
    const std::string expected = item(kId, "ab") + item(kOther, "") + item(kId, "cdef");
    EXPECT_EQ(hex(buffer, expected.size()), hex(expected));
    EXPECT_EQ(remaining, sizeof(buffer) - expected.size());
}

TEST_F(AddParam, LengthsThatDoNotFit32BitsAreRefused) {
    const uint32_t lengths[] = {0xFFFFFFF4u, 0xFFFFFFF5u, 0xFFFFFFF8u, 0xFFFFFFFCu,
                                0xFFFFFFFDu, 0xFFFFFFFFu, 0x80000000u};
    for (const uint32_t length : lengths) {
        alignas(4) uint8_t buffer[32];
        memset(buffer, kCanary, sizeof(buffer));
        uint8_t *cursor = buffer;
        uint32_t remaining = sizeof(buffer);
        EXPECT_EQ(libvoice_add_param(kId, length, "x", &cursor, &remaining), LIBVOICE_ERR_PARAM_NO_SPACE)
            << "length " << length;
        EXPECT_EQ(cursor, buffer);
        EXPECT_EQ(remaining, sizeof(buffer));
        EXPECT_EQ(hex(buffer, sizeof(buffer)), hex(std::string(sizeof(buffer), '\xa5')));
    }
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(AddParam, ALengthThatWrapsIsRefusedEvenWithAllTheRoomThereIs) {
    for (const uint32_t length : {0xFFFFFFF5u, 0xFFFFFFFFu}) {
        alignas(4) uint8_t buffer[32];
        memset(buffer, kCanary, sizeof(buffer));
        uint8_t *cursor = buffer;
        uint32_t remaining = 0xFFFFFFFFu;
        EXPECT_EQ(libvoice_add_param(kId, length, "x", &cursor, &remaining), LIBVOICE_ERR_PARAM_NO_SPACE);
        EXPECT_EQ(cursor, buffer);
        EXPECT_EQ(remaining, 0xFFFFFFFFu);
        EXPECT_EQ(hex(buffer, sizeof(buffer)), hex(std::string(sizeof(buffer), '\xa5')));
    }
}

// ------------------------------------------------------------------------------------------------------------ reading

// A buffer of its exact size on the heap: a read past its end shows in the sanitizer.
class Buffer {
public:
    explicit Buffer(const std::string &bytes)
        : bytes_(bytes), start_(static_cast<uint8_t *>(malloc(bytes.empty() ? 1 : bytes.size()))) {
        memcpy(start_, bytes.data(), bytes.size());
        cursor = start_;
        remaining = static_cast<uint32_t>(bytes.size());
    }
    ~Buffer() {
        EXPECT_EQ(hex(start_, bytes_.size()), hex(bytes_)) << "readers never change a buffer";
        EXPECT_EQ(static_cast<size_t>(cursor - start_) + remaining, bytes_.size()) << "the pair belongs together";
        free(start_);
    }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;

    ptrdiff_t consumed() const { return cursor - start_; }
    uint8_t *at(size_t offset) const { return start_ + offset; }

    uint8_t *cursor;
    uint32_t remaining;

private:
    std::string bytes_;
    uint8_t *start_;
};

uint8_t preset_byte;

struct ReadRow : Named {
    std::string bytes;
    uint32_t result;
    ptrdiff_t consumed;
    ptrdiff_t value; // offset of the value handed out; -1: the outputs keep what they held
    uint32_t length;
    std::vector<std::string> log;
};

class GetParamTable : public VoiceTest, public testing::WithParamInterface<ReadRow> {};

TEST_P(GetParamTable, FindsAndConsumes) {
    const ReadRow &row = GetParam();
    Buffer buffer(row.bytes);
    uint32_t length = 77;
    uint8_t *value = &preset_byte;
    EXPECT_EQ(libvoice_get_param(kId, &length, &value, &buffer.cursor, &buffer.remaining), row.result);
    EXPECT_EQ(buffer.consumed(), row.consumed);
    if (row.value < 0) {
        EXPECT_EQ(value, &preset_byte) << "value written";
        EXPECT_EQ(length, 77u) << "length written";
    } else {
        EXPECT_EQ(value, buffer.at(static_cast<size_t>(row.value)));
        EXPECT_EQ(length, row.length);
    }
    EXPECT_LINES(bus().log(), row.log);
}

INSTANTIATE_TEST_SUITE_P(
    GetParam, GetParamTable,
    testing::Values(
        ReadRow{"EmptyBuffer", "", 7, 0, -1, 0, {}}, ReadRow{"OneByteTail", "\1", 7, 0, -1, 0, {kIdTrace}},
        ReadRow{"TwoByteTail", "\1\2", 7, 0, -1, 0, {kIdTrace}},
        ReadRow{"ThreeByteTail", "\1\2\3", 7, 0, -1, 0, {kIdTrace}},
        ReadRow{"IdentifierAtTheVeryEnd", word(kId), 7, 4, -1, 0, {}},
        ReadRow{"LengthOfOneByte", word(kId) + "\1", 8, 4, -1, 0, {kLengthTrace}},
        ReadRow{"LengthOfThreeBytes", word(kId) + "\1\2\3", 8, 4, -1, 0, {kLengthTrace}},
        ReadRow{"LengthOfAnotherItemCut", word(kOther) + "\1\2\3", 8, 4, -1, 0, {kLengthTrace}},
        ReadRow{"EmptyItem", item(kId, ""), 0, 8, 8, 0, {}},
        ReadRow{"FirstItem", item(kId, "abcde") + item(kOther, "x"), 0, 16, 8, 5, {}},
        ReadRow{"SecondItem", item(kOther, "x") + item(kId, "abcd"), 0, 24, 20, 4, {}},
        ReadRow{"AfterAnEmptyItem", item(kOther, "") + item(kId, "abcd"), 0, 20, 16, 4, {}},
        ReadRow{"NotThere", item(kOther, "x") + item(kThird, "abcd"), 7, 24, -1, 0, {}},
        ReadRow{"NotThereThenTail", item(kOther, "x") + "\1\2", 7, 12, -1, 0, {kIdTrace}},
        ReadRow{"ValueShorterThanItsLength", word(kId) + word(10) + "abcdefgh", 0, 8, -1, 0, {kCutOffTrace}},
        ReadRow{"ValueWithoutItsPadding", word(kId) + word(5) + "abcde", 0, 8, -1, 0, {kCutOffTrace}},
        ReadRow{"AnotherItemsValueCutOff", word(kOther) + word(10) + "abcdefgh", 0, 8, -1, 0, {kCutOffTrace}},
        ReadRow{"NothingAfterTheLength", word(kId) + word(1), 0, 8, -1, 0, {kCutOffTrace}},
        ReadRow{"LargestLength", word(kId) + word(0xFFFFFFFFu) + "abcd", 0, 8, -1, 0, {kCutOffTrace}},
        ReadRow{"LengthWhosePaddingWraps", word(kId) + word(0xFFFFFFFDu) + "abcd", 0, 8, -1, 0, {kCutOffTrace}},
        ReadRow{"LargestLengthWithoutWrap", word(kId) + word(0xFFFFFFFCu) + "abcd", 0, 8, -1, 0, {kCutOffTrace}}),
    [](const auto &row) { return row.param.name; });

class GetParam : public VoiceTest {};

TEST_F(GetParam, RepeatedIdentifiersAreReadInOrder) {
    Buffer buffer(item(kId, "one") + item(kOther, "x") + item(kId, "three"));
    uint32_t length = 0;
    uint8_t *value = nullptr;
    EXPECT_EQ(libvoice_get_param(kId, &length, &value, &buffer.cursor, &buffer.remaining), LIBVOICE_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(value), length), "one");
    EXPECT_EQ(libvoice_get_param(kId, &length, &value, &buffer.cursor, &buffer.remaining), LIBVOICE_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(value), length), "three");
    EXPECT_EQ(libvoice_get_param(kId, &length, &value, &buffer.cursor, &buffer.remaining),
              LIBVOICE_ERR_PARAM_NOT_FOUND);
}

TEST_F(GetParam, IdentifierZeroIsAnIdentifierLikeAnyOther) {
    Buffer buffer(item(kOther, "x") + item(0, "nil!"));
    uint32_t length = 0;
    uint8_t *value = nullptr;
    EXPECT_EQ(libvoice_get_param(0, &length, &value, &buffer.cursor, &buffer.remaining), LIBVOICE_OK);
    EXPECT_EQ(length, 4u);
}

class GetCurrentParamTable : public VoiceTest, public testing::WithParamInterface<ReadRow> {};

TEST_P(GetCurrentParamTable, ReadsWhatIsThere) {
    const ReadRow &row = GetParam();
    Buffer buffer(row.bytes);
    uint32_t id = 66, length = 77;
    uint8_t *value = &preset_byte;
    EXPECT_EQ(libvoice_get_current_param(&id, &length, &value, &buffer.cursor, &buffer.remaining), row.result);
    EXPECT_EQ(buffer.consumed(), row.consumed);
    if (row.value < 0) {
        EXPECT_EQ(value, &preset_byte) << "value written";
        EXPECT_EQ(length, 77u) << "length written";
        EXPECT_EQ(id, 66u) << "identifier written";
    } else {
        EXPECT_EQ(value, buffer.at(static_cast<size_t>(row.value)));
        EXPECT_EQ(length, row.length);
        EXPECT_EQ(id, word_at(row.bytes.data(), 0));
    }
    EXPECT_LINES(bus().log(), row.log);
}

INSTANTIATE_TEST_SUITE_P(
    GetCurrentParam, GetCurrentParamTable,
    testing::Values(ReadRow{"EmptyBuffer", "", 8, 0, -1, 0, {kLengthTrace}},
                    ReadRow{"OneByteTail", "\1", 8, 0, -1, 0, {kIdTrace}},
                    ReadRow{"ThreeByteTail", "\1\2\3", 8, 0, -1, 0, {kIdTrace}},
                    ReadRow{"IdentifierAtTheVeryEnd", word(kId), 8, 4, -1, 0, {kLengthTrace}},
                    ReadRow{"LengthOfOneByte", word(kId) + "\1", 8, 4, -1, 0, {kLengthTrace}},
                    ReadRow{"LengthOfThreeBytes", word(kId) + "\1\2\3", 8, 4, -1, 0, {kLengthTrace}},
                    ReadRow{"EmptyItem", item(kOther, ""), 0, 8, 8, 0, {}},
                    ReadRow{"PaddedItem", item(kOther, "abcde"), 0, 16, 8, 5, {}},
                    ReadRow{"OneOfTwo", item(kThird, "abcd") + item(kId, "x"), 0, 12, 8, 4, {}},
                    ReadRow{"ValueShorterThanItsLength", word(kId) + word(10) + "abcdefgh", 0, 8, -1, 0, {}},
                    ReadRow{"ValueWithoutItsPadding", word(kId) + word(5) + "abcde", 0, 8, -1, 0, {}},
                    ReadRow{"LargestLength", word(kId) + word(0xFFFFFFFFu) + "abcd", 0, 8, -1, 0, {}},
                    ReadRow{"LengthWhosePaddingWraps", word(kId) + word(0xFFFFFFFEu), 0, 8, -1, 0, {}}),
    [](const auto &row) { return row.param.name; });

class GetCurrentParam : public VoiceTest {};

TEST_F(GetCurrentParam, WalksAWholeBuffer) {
    Buffer buffer(item(kId, "one") + item(kOther, "") + item(kThird, "12345678"));
    std::string seen;
    while (buffer.remaining != 0) {
        uint32_t id = 0, length = 0;
        uint8_t *value = nullptr;
        ASSERT_EQ(libvoice_get_current_param(&id, &length, &value, &buffer.cursor, &buffer.remaining), LIBVOICE_OK);
        seen += text("%08x/%u ", id, length);
    }
    EXPECT_EQ(seen, "11090207/3 13090206/0 02fe000a/8 ");
}

TEST_F(GetCurrentParam, NothingAllocatesOrCopies) {
    Buffer buffer(item(kId, "one") + item(kOther, "two!"));
    uint32_t id = 0, length = 0;
    uint8_t *value = nullptr;
    const unsigned before = fake::memory_allocations();
    EXPECT_EQ(libvoice_get_current_param(&id, &length, &value, &buffer.cursor, &buffer.remaining), LIBVOICE_OK);
    EXPECT_EQ(libvoice_get_param(kOther, &length, &value, &buffer.cursor, &buffer.remaining), LIBVOICE_OK);
    EXPECT_EQ(fake::memory_allocations(), before);
}

} // namespace
} // namespace voice_test
