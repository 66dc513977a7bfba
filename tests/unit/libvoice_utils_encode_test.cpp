// SPDX-License-Identifier: MIT
// Data blocks that are written. Expected texts are written out by hand from the layout of the block.
#include "libvoice_utils_fixture.h"

#include <algorithm>
#include <vector>

namespace voice_test {
namespace {

class DataBlockEncode : public VoiceTest {
protected:
    libvoice_db_message_fields message_ = {};
    libvoice_db_common_fields common_ = {};

    // The text that an encoder writes; proves that the length counts the terminator and that nothing behind it changed.
    std::string encoded(uint32_t type) {
        std::vector<char> out(LIBVOICE_DB_TEXT_BYTES, static_cast<char>(kUntouched));
        uint32_t length = 0;
        EXPECT_EQ(libvoice_db_encode(&message_, &common_, out.data(), &length, type), 0u);
        const std::string text = out.data();
        EXPECT_EQ(length, text.size() + 1);
        for (size_t i = length; i < out.size(); ++i)
            EXPECT_EQ(static_cast<uint8_t>(out[i]), kUntouched) << "behind the text, at " << i;
        EXPECT_TRUE(bus().log().empty());
        return text;
    }
    std::string call_setup() { return encoded(0x80); }
    std::string message_waiting() { return encoded(0x82); }

    struct Cut {
        uint32_t length; // that is given
        const char *head;
        const char *checksum;
    };
    // A field of a call setup of which all but the last byte is written at most; `digits` are those of each.
    void expect_cut(libvoice_db_field &into, std::string bytes, const char *digits, std::initializer_list<Cut> rows) {
        const auto most = static_cast<uint32_t>(bytes.size() - 1);
        for (const Cut &row : rows) {
            into = field(bytes, row.length);
            EXPECT_EQ(call_setup(), row.head + repeated(std::min(row.length, most), digits) + row.checksum)
                << row.length;
        }
    }
};

TEST_F(DataBlockEncode, DateTimeAndNumberOfACallSetup) {
    std::string time = "11301530", number = "0123456789";
    common_.date_time = field(time);
    common_.calling_number = field(number);
    char out[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = 0;
    EXPECT_EQ(libvoice_db_call_setup_encode(nullptr, &common_, out, &length), 0u);
    EXPECT_STREQ(out, "8016"
                      "0108"
                      "3131333031353330"
                      "020A"
                      "30313233343536373839"
                      "46");
    EXPECT_EQ(length, 51u);
}

TEST_F(DataBlockEncode, BothRecordsNullLeaveTypeLengthAndChecksum) {
    char out[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = 0;
    EXPECT_EQ(libvoice_db_call_setup_encode(nullptr, nullptr, out, &length), 0u);
    EXPECT_STREQ(out, "800080");
    EXPECT_EQ(length, 7u);
    EXPECT_EQ(libvoice_db_message_waiting_encode(nullptr, nullptr, out, &length), 0u);
    EXPECT_STREQ(out, "820082");
    EXPECT_EQ(length, 7u);
}

TEST_F(DataBlockEncode, AbsentFieldsAreLeftOut) {
    EXPECT_EQ(call_setup(), "800080");
    EXPECT_EQ(message_waiting(), "820082");
}

TEST_F(DataBlockEncode, AnAbsentFieldsLengthMeansNothing) {
    common_.date_time.length = common_.calling_number.length = common_.no_calling_number.length = 4;
    message_.name.length = message_.no_name.length = message_.slot2.length = 4;
    message_.call_type.length = message_.messages.length = 4;
    EXPECT_EQ(call_setup(), "800080");
    EXPECT_EQ(message_waiting(), "820082");
}

TEST_F(DataBlockEncode, ItemsOfACallSetupStandInTheirOrder) {
    std::string time = "01020304", number = "1", no_number = "O", name = "A", no_name = "P", called = "2",
                type = "\x01";
    common_ = {field(time), field(number), field(no_number)};
    message_.name = field(name);
    message_.no_name = field(no_name);
    message_.slot2 = field(called);
    message_.call_type = field(type);
    EXPECT_EQ(call_setup(), "801C"
                            "01083031303230333034"
                            "020131"
                            "04014F"
                            "070141"
                            "080150"
                            "030132"
                            "110101"
                            "A2");
}

TEST_F(DataBlockEncode, ItemsOfAMessageWaitingStandInTheirOrder) {
    std::string time = "01020304", number = "1", no_number = "O", name = "A", no_name = "P", visual = "\xFF",
                messages = "\x02";
    common_ = {field(time), field(number), field(no_number)};
    message_.name = field(name);
    message_.no_name = field(no_name);
    message_.slot2 = field(visual);
    message_.messages = field(messages);
    EXPECT_EQ(message_waiting(), "821C"
                                 "01083031303230333034"
                                 "020131"
                                 "04014F"
                                 "070141"
                                 "080150"
                                 "0B01FF"
                                 "130102"
                                 "7C");
}

TEST_F(DataBlockEncode, FieldsOfTheOtherTypeAreNotWritten) {
    std::string byte = "\x01";
    message_.slot3 = message_.slot5 = message_.slot6 = field(byte);
    message_.messages = field(byte);
    EXPECT_EQ(call_setup(), "800080");
    message_.messages = {};
    message_.call_type = field(byte);
    EXPECT_EQ(message_waiting(), "820082");
}

TEST_F(DataBlockEncode, AnotherTypeHasTheCommonItemsOnly) {
    std::string reason = "O", name = "A";
    common_.no_calling_number = field(reason);
    message_.name = field(name);
    EXPECT_EQ(encoded(0x81), "810304014FD8");
    EXPECT_EQ(encoded(0), "000304014F57");
    EXPECT_EQ(encoded(0x180), "800304014FD7") << "the low byte is written, the whole word compared";
    EXPECT_EQ(encoded(0xFFFFFF82), "820304014FD9");
}

TEST_F(DataBlockEncode, ADateTimeOfMoreThanEightBytesIsCut) {
    std::string time = "113015301234";
    common_.date_time = field(time);
    EXPECT_EQ(call_setup(), "800A0108313133303135333021");
}

TEST_F(DataBlockEncode, AShortDateTimeKeepsWhatTheBufferHeld) {
    std::string time = "123";
    common_.date_time = field(time);
    EXPECT_EQ(call_setup(), "800A01083132335555555555D2");
    common_.date_time.length = 0;
    EXPECT_EQ(call_setup(), "800A010855555555555555553B");
}

TEST_F(DataBlockEncode, ACallingNumberOf25CharactersIsCutTo20) {
    std::string number = "1234567890123456789012345";
    common_.calling_number = field(number);
    EXPECT_EQ(call_setup(), "80160214"
                            "3132333435363738393031323334353637383930"
                            "C6");
}

TEST_F(DataBlockEncode, ACallingNumberIsCutAboveTwentyOnly) {
    expect_cut(common_.calling_number, repeated(20, "0") + "9", "30",
               {{0, "80020200", "84"},
                {1, "80030201", "B6"},
                {19, "80150213", "3A"},
                {20, "80160214", "6C"},
                {21, "80160214", "6C"},
                {0xFFFFFFFF, "80160214", "6C"}});
}

TEST_F(DataBlockEncode, ACallingNumberStopsAtAZeroAndIsFilledWithZeros) {
    std::string number("12\0"
                       "45",
                       5);
    common_.calling_number = field(number);
    EXPECT_EQ(call_setup(), "80070205"
                            "3132000000"
                            "F1");
}

TEST_F(DataBlockEncode, ACallingNumberIsNotReadPastItsZero) {
    char *number = static_cast<char *>(malloc(3));
    memcpy(number, "12", 3);
    common_.calling_number = {number, 20};
    EXPECT_EQ(call_setup(), "80160214"
                            "3132" +
                                repeated(18, "00") + "0F");
    free(number);
}

TEST_F(DataBlockEncode, ReasonsForAbsenceOfTheNumberAreOneByteWhateverTheLength) {
    std::string reason = "P";
    for (const uint32_t length : {0u, 1u, 21u, 0xFFFFFFFFu}) {
        common_.no_calling_number = field(reason, length);
        EXPECT_EQ(call_setup(), "8003040150D8") << length;
        EXPECT_EQ(message_waiting(), "8203040150DA") << length;
    }
}

TEST_F(DataBlockEncode, ANameOf60BytesIsCutTo50) {
    std::string name(60, 'A');
    message_.name = field(name);
    EXPECT_EQ(call_setup(), "80340732" + repeated(50, "41") + "9F");
    EXPECT_EQ(message_waiting(), "82340732" + repeated(50, "41") + "A1");
}

TEST_F(DataBlockEncode, ANameIsCutAboveFiftyOnly) {
    expect_cut(message_.name, repeated(50, "A") + "Z", "41",
               {{0, "80020700", "89"},
                {1, "80030701", "CC"},
                {49, "80330731", "5C"},
                {50, "80340732", "9F"},
                {51, "80340732", "9F"},
                {0xFFFFFFFF, "80340732", "9F"}});
}

TEST_F(DataBlockEncode, ANameIsCopiedAsItIsZerosIncluded) {
    std::string name("A\0\xFF", 3);
    message_.name = field(name);
    EXPECT_EQ(call_setup(), "8005070341"
                            "00FFCF");
}

TEST_F(DataBlockEncode, ACalledNumberOf21CharactersIsLeftOut) {
    std::string called(20, '7');
    message_.slot2 = field(called);
    EXPECT_EQ(call_setup(), "80160314" + repeated(20, "37") + "F9");
    called = std::string(21, '7');
    message_.slot2 = field(called);
    EXPECT_EQ(call_setup(), "800080");
    message_.slot2.length = 0xFFFFFFFF;
    EXPECT_EQ(call_setup(), "800080");
    message_.slot2.length = 0;
    EXPECT_EQ(call_setup(), "8002030085");
}

TEST_F(DataBlockEncode, AReasonForAbsenceOfTheNameIsLeftOutOfACallSetupByItsLength) {
    std::string reason = "O";
    for (const uint32_t length : {0u, 1u, 20u}) {
        message_.no_name = field(reason, length);
        EXPECT_EQ(call_setup(), "800308014FDB") << length;
    }
    for (const uint32_t length : {21u, 0xFFFFFFFFu}) {
        message_.no_name = field(reason, length);
        EXPECT_EQ(call_setup(), "800080") << length;
    }
}

TEST_F(DataBlockEncode, AReasonForAbsenceOfTheNameIsAlwaysInAMessageWaiting) {
    std::string reason = "O";
    for (const uint32_t length : {0u, 1u, 20u, 21u, 0xFFFFFFFFu}) {
        message_.no_name = field(reason, length);
        EXPECT_EQ(message_waiting(), "820308014FDD") << length;
    }
}

TEST_F(DataBlockEncode, CallTypeAndVisualIndicatorAreOneByteWhateverTheLength) {
    std::string type = "\x01", visual = "\xFF";
    for (const uint32_t length : {0u, 1u, 21u, 0xFFFFFFFFu}) {
        message_ = {};
        message_.call_type = field(type, length);
        EXPECT_EQ(call_setup(), "800311010196") << length;
        message_ = {};
        message_.slot2 = field(visual, length);
        EXPECT_EQ(message_waiting(), "82030B01FF90") << length;
    }
}

TEST_F(DataBlockEncode, ANumberOfMessagesWithoutALengthIsLeftOut) {
    std::string messages = "\x05";
    message_.messages = field(messages, 0);
    EXPECT_EQ(message_waiting(), "820082");
    for (const uint32_t length : {1u, 21u, 0xFFFFFFFFu}) {
        message_.messages = field(messages, length);
        EXPECT_EQ(message_waiting(), "82031301059E") << length;
    }
}

TEST_F(DataBlockEncode, DigitsAreUpperCase) {
    std::string messages = "\x0A";
    message_.messages = field(messages);
    EXPECT_EQ(message_waiting(), "820313010AA3");
}

TEST_F(DataBlockEncode, EveryByteValueIsWrittenAndCounted) {
    for (unsigned value = 0; value < 256; ++value) {
        std::string type(1, static_cast<char>(value));
        message_.call_type = field(type);
        EXPECT_EQ(call_setup(), fake::text("80031101%02X%02X", value, (0x95 + value) & 0xFF));
    }
}

TEST_F(DataBlockEncode, TheLargestBlocksHave118And99Bytes) {
    std::string time = "12312359", text(60, '8'), called(20, '8'), byte = "\x01";
    common_ = {field(time), field(text), field(byte)};
    message_.name = field(text);
    message_.no_name = field(byte);
    message_.slot2 = field(called);
    message_.call_type = message_.messages = field(byte);
    EXPECT_EQ(call_setup().size(), 2u * 118);
    EXPECT_EQ(message_waiting().size(), 2u * 99);
}

TEST_F(DataBlockEncode, CommonItemsAreWrittenAtThePosition) {
    std::string number = "12", reason = "O";
    common_.calling_number = field(number);
    common_.no_calling_number = field(reason);
    std::vector<uint8_t> out(16, kUntouched);
    uint32_t position = 7;
    uint8_t count = 99;
    EXPECT_EQ(libvoice_db_encode_common(&common_, reinterpret_cast<char *>(out.data()), &position, &count), 0u);
    EXPECT_EQ(position, 14u);
    EXPECT_EQ(count, 7);
    EXPECT_EQ(out, (std::vector<uint8_t>{0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x02, 0x02, 0x31, 0x32, 0x04, 0x01,
                                         0x4F, 0x55, 0x55}));
}

TEST_F(DataBlockEncode, AllCommonItemsHave35Bytes) {
    std::string time = "12312359", number(20, '1'), reason = "O";
    common_ = {field(time), field(number), field(reason)};
    char out[64];
    uint32_t position = 2;
    uint8_t count = 0;
    EXPECT_EQ(libvoice_db_encode_common(&common_, out, &position, &count), 0u);
    EXPECT_EQ(position, 37u);
    EXPECT_EQ(count, 35);
}

TEST_F(DataBlockEncode, ANullCommonRecordWritesNothingAndCountsZero) {
    char out[4] = {'a', 'b', 'c', 'd'};
    uint32_t position = 1;
    uint8_t count = 99;
    EXPECT_EQ(libvoice_db_encode_common(nullptr, out, &position, &count), 0u);
    EXPECT_EQ(position, 1u);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(memcmp(out, "abcd", 4), 0);
}

TEST_F(DataBlockEncode, NullOutputsAreHarmless) {
    uint32_t number = 7;
    uint8_t count = 7;
    char out[] = "abc";
    EXPECT_EQ(libvoice_db_encode(&message_, &common_, nullptr, &number, 0x80), 0u);
    EXPECT_EQ(libvoice_db_encode(&message_, &common_, out, nullptr, 0x80), 0u);
    EXPECT_EQ(libvoice_db_encode_common(&common_, nullptr, &number, &count), 0u);
    EXPECT_EQ(libvoice_db_encode_common(&common_, out, nullptr, &count), 0u);
    EXPECT_EQ(libvoice_db_encode_common(&common_, out, &number, nullptr), 0u);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(count, 7);
}

} // namespace
} // namespace voice_test
