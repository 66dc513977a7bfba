// SPDX-License-Identifier: MIT
// Caller-display data blocks. Expected texts are written out by hand from the layout of the block; joining the encoder
// to the decoder comes on top.
#include "libvoice_utils.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "voice_test.h"

namespace voice_test {
namespace {

constexpr uint8_t kUntouched = 0x55;

libvoice_db_field field(std::string &bytes) {
    return {bytes.data(), static_cast<uint32_t>(bytes.size())};
}
libvoice_db_field field(std::string &bytes, uint32_t length) {
    return {bytes.data(), length};
}

std::string repeated(unsigned count, const std::string &text) {
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

// ------------------------------------------------------------------------------------------------------- Encoding

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

// ------------------------------------------------------------------------------------------------------- Decoding

// A target with a known byte around it.
template <size_t bytes>
struct Target {
    char before = kUntouched;
    char data[bytes];
    char after = kUntouched;

    Target() { memset(data, kUntouched, bytes); }
    bool untouched_from(size_t start) const {
        for (size_t i = start; i < bytes; ++i)
            if (data[i] != kUntouched)
                return false;
        return before == kUntouched && after == kUntouched;
    }
    bool untouched() const { return untouched_from(0); }
};

constexpr const char *kCallSetup = "libvoice_db_call_setup_decode";
constexpr const char *kMessageWaiting = "libvoice_db_message_waiting_decode";

// A trace message as the log shows it.
std::string info(const std::string &function, const std::string &message) {
    return "i[SIGNL] " + function + "@libvoice_utils: " + message;
}
std::string warning(const std::string &function, const std::string &message) {
    return "![SIGNL] " + function + "@libvoice_utils: " + message;
}
std::string error(const std::string &function, const std::string &message) {
    return "x[SIGNL] " + function + "@libvoice_utils: " + message;
}
std::string wrong_checksum(const std::string &found, const std::string &rest) {
    return error("libvoice_db_verify_checksum",
                 "Invalid Data Block checksum : checksum = " + found + ", checksum in msg = " + rest);
}

class DataBlockDecode : public VoiceTest {
protected:
    Target<12> time_;
    Target<32> number_;
    Target<1> no_number_;
    Target<64> name_;
    Target<1> no_name_;
    Target<32> called_;
    Target<1> visual_;
    Target<1> type_;
    Target<1> messages_;

    // Both decoders share the field `slot2`: text for one, a byte for the other.
    libvoice_db_common_fields common_ = {{time_.data, 8}, {number_.data, 20}, {no_number_.data, 0}};
    libvoice_db_message_fields setup_ = {
        {name_.data, 50}, {no_name_.data, 0}, {called_.data, 20}, {}, {type_.data, 0}, {}, {}, {messages_.data, 1}};
    libvoice_db_message_fields waiting_ = {
        {name_.data, 50}, {no_name_.data, 0}, {visual_.data, 0}, {}, {type_.data, 0}, {}, {}, {messages_.data, 1}};

    // Decodes a text that lies in memory of exactly its size. The passed length is a lie, as it may be.
    uint32_t call_setup(const std::string &text, uint32_t length = 0) {
        return decoded(libvoice_db_call_setup_decode, text, length, &setup_);
    }
    uint32_t message_waiting(const std::string &text, uint32_t length = 0) {
        return decoded(libvoice_db_message_waiting_decode, text, length, &waiting_);
    }
    template <typename Decoder>
    uint32_t decoded(Decoder decoder, const std::string &text, uint32_t length, libvoice_db_message_fields *message) {
        char *copy = static_cast<char *>(malloc(text.size() + 1));
        memcpy(copy, text.c_str(), text.size() + 1);
        const uint32_t result = decoder(copy, length, message, &common_);
        free(copy);
        return result;
    }

    bool nothing_written() const {
        return time_.untouched() && number_.untouched() && no_number_.untouched() && name_.untouched() &&
               no_name_.untouched() && called_.untouched() && visual_.untouched() && type_.untouched() &&
               messages_.untouched();
    }
};

// The text of a block with the checksum that its bytes give.
std::string block(std::initializer_list<unsigned> bytes) {
    std::string text;
    unsigned sum = 0;
    for (const unsigned byte : bytes) {
        text += fake::text("%02X", byte);
        sum += byte;
    }
    return text + fake::text("%02X", sum & 0xFF);
}

TEST_F(DataBlockDecode, ABlockWithoutItemsIsRightForItsTypeOnly) {
    EXPECT_EQ(call_setup("800080"), 0u);
    EXPECT_LOG(info(kCallSetup, "db = 800080"), info(kCallSetup, "mtype = 0x80, len = 0x00"));
    bus().clear_log();
    EXPECT_EQ(message_waiting("800080"), 1u);
    EXPECT_LOG(info(kMessageWaiting, "db = 800080"), info(kMessageWaiting, "mtype = 0x80, len = 0x00"),
               error(kMessageWaiting, "Wrong message type received: 0x80"));
    bus().clear_log();
    EXPECT_EQ(message_waiting("820082"), 0u);
    EXPECT_LOG(info(kMessageWaiting, "db = 820082"), info(kMessageWaiting, "mtype = 0x82, len = 0x00"));
    bus().clear_log();
    EXPECT_EQ(call_setup("820082"), 1u);
    EXPECT_LOG(info(kCallSetup, "db = 820082"), info(kCallSetup, "mtype = 0x82, len = 0x00"),
               error(kCallSetup, "Wrong message received: 0x82"));
    EXPECT_TRUE(nothing_written());
}

TEST_F(DataBlockDecode, AWrongChecksumIsOneTraceMessageAndNoMoreIsSaidOfTheType) {
    EXPECT_EQ(call_setup("800081"), 0u);
    EXPECT_LOG(info(kCallSetup, "db = 800081"), info(kCallSetup, "mtype = 0x80, len = 0x00"),
               wrong_checksum("0x81", "81"));
    bus().clear_log();
    EXPECT_EQ(message_waiting("800081"), 0u);
    EXPECT_LOG(info(kMessageWaiting, "db = 800081"), info(kMessageWaiting, "mtype = 0x80, len = 0x00"),
               wrong_checksum("0x81", "81"));
    EXPECT_TRUE(nothing_written());
}

TEST_F(DataBlockDecode, TheLineAboutTheChecksumShowsTheRestOfTheText) {
    EXPECT_EQ(call_setup("8003110101FFand the rest"), 0u);
    EXPECT_LINES(bus().complaints(), wrong_checksum("0xff", "FFand the rest"));
    EXPECT_TRUE(type_.untouched());
}

TEST_F(DataBlockDecode, WhatFollowsTheChecksumIsNotRead) {
    EXPECT_EQ(call_setup("800311010196and the rest"), 0u);
    EXPECT_EQ(type_.data[0], 1);
    EXPECT_TRUE(bus().complaints().empty());
}

TEST_F(DataBlockDecode, OfAllChecksumsOneIsRight) {
    for (unsigned checksum = 0; checksum < 256; ++checksum) {
        bus().clear_log();
        const std::string text = fake::text("8000%02X", checksum);
        EXPECT_EQ(call_setup(text), 0u);
        EXPECT_EQ(bus().complaints().empty(), checksum == 0x80) << text;
    }
}

TEST_F(DataBlockDecode, EveryItemOfACallSetupReachesItsField) {
    EXPECT_EQ(call_setup("801C"
                         "01083031303230333034"
                         "020131"
                         "04014F"
                         "070141"
                         "080150"
                         "030132"
                         "110101"
                         "A2"),
              0u);
    EXPECT_LOG(info(kCallSetup, "db = 801C0108303130323033303402013104014F070141080150030132110101A2"),
               info(kCallSetup, "mtype = 0x80, len = 0x1c"), info(kCallSetup, "time = 01020304"),
               info(kCallSetup, "id = 1"), info(kCallSetup, "name = A"), info(kCallSetup, "called id = 2"));
    EXPECT_STREQ(time_.data, "01020304");
    EXPECT_STREQ(number_.data, "1");
    EXPECT_EQ(no_number_.data[0], 'O');
    EXPECT_STREQ(name_.data, "A");
    EXPECT_EQ(no_name_.data[0], 'P');
    EXPECT_STREQ(called_.data, "2");
    EXPECT_EQ(type_.data[0], 1);
    EXPECT_TRUE(messages_.untouched());
}

TEST_F(DataBlockDecode, EveryItemOfAMessageWaitingReachesItsField) {
    EXPECT_EQ(message_waiting("821C"
                              "01083031303230333034"
                              "020131"
                              "04014F"
                              "070141"
                              "080150"
                              "0B01FF"
                              "130102"
                              "7C"),
              0u);
    EXPECT_LOG(info(kMessageWaiting, "db = 821C0108303130323033303402013104014F0701410801500B01FF1301027C"),
               info(kMessageWaiting, "mtype = 0x82, len = 0x1c"), info(kMessageWaiting, "time = 01020304"),
               info(kMessageWaiting, "id = 1"), info(kMessageWaiting, "name = A"));
    EXPECT_STREQ(time_.data, "01020304");
    EXPECT_STREQ(number_.data, "1");
    EXPECT_EQ(no_number_.data[0], 'O');
    EXPECT_STREQ(name_.data, "A");
    EXPECT_EQ(no_name_.data[0], 'P');
    EXPECT_EQ(visual_.data[0], '\xFF');
    EXPECT_EQ(messages_.data[0], 2);
    EXPECT_TRUE(type_.untouched());
}

TEST_F(DataBlockDecode, LowerCaseDigitsReadLikeUpperCaseOnes) {
    EXPECT_EQ(call_setup("800308014fdb"), 0u);
    EXPECT_EQ(no_name_.data[0], 'O');
    EXPECT_EQ(message_waiting("82030b01fF90"), 0u);
    EXPECT_EQ(visual_.data[0], '\xFF');
    EXPECT_TRUE(bus().complaints().empty());
}

// Two characters that are not two digits count as strtol() takes them, in the checksum too; what follows is read as ever.
TEST_F(DataBlockDecode, WhatIsNotTwoDigitsReadsAsStrtolTakesIt) {
    EXPECT_EQ(call_setup("80080703"
                         "41 2-1"
                         "110105EB"),
              0u);
    EXPECT_EQ(std::string(name_.data, 4), std::string("A\x02\xFF\0", 4));
    EXPECT_EQ(type_.data[0], 5);
    EXPECT_TRUE(bus().complaints().empty());
}

TEST_F(DataBlockDecode, ThePassedLengthIsNotRead) {
    for (const uint32_t length : {0u, 1u, 12u, 0xFFFFFFFFu}) {
        type_ = {};
        EXPECT_EQ(call_setup("800311010196", length), 0u);
        EXPECT_EQ(type_.data[0], 1) << length;
    }
}

TEST_F(DataBlockDecode, ATextFillsItsCapacityAndEndsOneByteBehindIt) {
    // "123456789012"
    const std::string text =
        block({0x80, 14, 0x02, 12, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x30, 0x31, 0x32});
    struct Row {
        uint32_t capacity;
        const char *text;
        size_t written; // bytes that may differ from before
    };
    for (const Row row : {Row{20, "123456789012", 20}, Row{13, "123456789012", 13}, Row{12, "123456789012", 13},
                          Row{11, "12345678901", 12}, Row{8, "12345678", 9}, Row{1, "1", 2}, Row{0, "", 1}}) {
        bus().clear_log();
        number_ = {};
        common_.calling_number.length = row.capacity;
        EXPECT_EQ(call_setup(text), 0u);
        EXPECT_STREQ(number_.data, row.text) << row.capacity;
        EXPECT_EQ(number_.data[strlen(row.text)], '\0');
        for (size_t i = strlen(row.text); i < row.written; ++i)
            EXPECT_EQ(number_.data[i], '\0') << "capacity " << row.capacity << ", byte " << i;
        EXPECT_TRUE(number_.untouched_from(row.written)) << row.capacity;
        EXPECT_EQ(bus().log().back(), info(kCallSetup, std::string("id = ") + row.text));
    }
}

TEST_F(DataBlockDecode, AnEmptyTextClearsItsBuffer) {
    EXPECT_EQ(call_setup(block({0x80, 2, 0x02, 0})), 0u);
    for (size_t i = 0; i < 20; ++i)
        EXPECT_EQ(number_.data[i], '\0');
    EXPECT_TRUE(number_.untouched_from(20));
    EXPECT_EQ(bus().log().back(), info(kCallSetup, "id = "));
}

TEST_F(DataBlockDecode, EachTextFieldHasItsOwnCapacity) {
    for (const unsigned type : {0x01u, 0x03u, 0x07u}) {
        Target<8> target;
        libvoice_db_field &wanted = type == 0x01 ? common_.date_time : type == 0x03 ? setup_.slot2 : setup_.name;
        wanted = {target.data, 3};
        EXPECT_EQ(call_setup(block({0x80, 6, type, 4, 0x31, 0x32, 0x33, 0x34})), 0u);
        EXPECT_STREQ(target.data, "123") << type;
        EXPECT_TRUE(target.untouched_from(4)) << type;
    }
}

TEST_F(DataBlockDecode, ATextWithAZeroIsCopiedWholeAndShownUpToIt) {
    EXPECT_EQ(call_setup(block({0x80, 5, 0x07, 3, 0x41, 0x00, 0x42})), 0u);
    EXPECT_EQ(memcmp(name_.data, "A\0B\0", 4), 0);
    EXPECT_EQ(bus().log().back(), info(kCallSetup, "name = A"));
}

TEST_F(DataBlockDecode, OneByteFieldsDoNotReadTheirLength) {
    for (const uint32_t length : {0u, 1u, 21u, 0xFFFFFFFFu}) {
        no_number_ = {};
        common_.no_calling_number.length = length;
        EXPECT_EQ(call_setup(block({0x80, 3, 0x04, 1, 0x4F})), 0u);
        EXPECT_EQ(no_number_.data[0], 'O') << length;
        EXPECT_EQ(no_number_.after, kUntouched);
    }
}

TEST_F(DataBlockDecode, OfALongerOneByteItemTheFirstByteCounts) {
    EXPECT_EQ(call_setup(block({0x80, 5, 0x04, 3, 0x4F, 0x50, 0x51})), 0u);
    EXPECT_EQ(no_number_.data[0], 'O');
    EXPECT_EQ(no_number_.after, kUntouched);
}

TEST_F(DataBlockDecode, AOneByteItemWithoutAValueStoresTheByteBehindIt) {
    // First the next item's type, then, for the last item, the checksum: 80+05+04+00+11+01+07 = A2.
    EXPECT_EQ(call_setup(block({0x80, 5, 0x04, 0, 0x11, 1, 0x07})), 0u);
    EXPECT_EQ(no_number_.data[0], 0x11);
    EXPECT_EQ(type_.data[0], 0x07);
    EXPECT_EQ(call_setup("8002040086"), 0u);
    EXPECT_EQ(no_number_.data[0], '\x86');
}

TEST_F(DataBlockDecode, TheNumberOfMessagesNeedsALength) {
    waiting_.messages.length = 0;
    EXPECT_EQ(message_waiting("82031301059E"), 0u);
    EXPECT_TRUE(messages_.untouched());
    EXPECT_TRUE(bus().complaints().empty()) << "a known type all the same";
    waiting_.messages.length = 1;
    EXPECT_EQ(message_waiting("82031301059E"), 0u);
    EXPECT_EQ(messages_.data[0], 5);
}

TEST_F(DataBlockDecode, FieldsThatAreNotWantedAreSkippedInSilence) {
    common_ = {};
    setup_ = {};
    EXPECT_EQ(call_setup("801C0108303130323033303402013104014F070141080150030132110101A2"), 0u);
    EXPECT_EQ(bus().log().size(), 2u);
    EXPECT_TRUE(nothing_written());
}

TEST_F(DataBlockDecode, NullRecordsWantNothing) {
    const char *setup = "801C0108303130323033303402013104014F070141080150030132110101A2";
    EXPECT_EQ(libvoice_db_call_setup_decode(setup, 0, nullptr, nullptr), 0u);
    EXPECT_EQ(libvoice_db_call_setup_decode(setup, 0, &setup_, nullptr), 0u);
    EXPECT_STREQ(name_.data, "A");
    EXPECT_TRUE(time_.untouched());
    EXPECT_EQ(libvoice_db_call_setup_decode(setup, 0, nullptr, &common_), 0u);
    EXPECT_STREQ(time_.data, "01020304");
    EXPECT_TRUE(bus().complaints().empty());
}

TEST_F(DataBlockDecode, AnUnknownItemIsOneTraceMessageAndTheRestIsRead) {
    EXPECT_EQ(call_setup(block({0x80, 6, 0x0B, 1, 0xFF, 0x11, 1, 0x02})), 0u);
    EXPECT_LINES(bus().complaints(), warning(kCallSetup, "Unknown parameter received: 0x0b"));
    EXPECT_EQ(type_.data[0], 2);
    bus().clear_log();
    EXPECT_EQ(message_waiting(block({0x82, 6, 0x11, 1, 0x02, 0x13, 1, 0x03})), 0u);
    EXPECT_LINES(bus().complaints(), warning(kMessageWaiting, "Unknown parameter received: 0x11"));
    EXPECT_EQ(messages_.data[0], 3);
}

TEST_F(DataBlockDecode, EveryItemTypeIsKnownOrNamedInATraceMessage) {
    const std::string setup_knows = {0x01, 0x02, 0x03, 0x04, 0x07, 0x08, 0x11};
    const std::string waiting_knows = {0x01, 0x02, 0x04, 0x07, 0x08, 0x0B, 0x13};
    for (unsigned type = 0; type < 256; ++type) {
        bus().clear_log();
        EXPECT_EQ(call_setup(block({0x80, 3, type, 1, 0x31})), 0u);
        EXPECT_EQ(message_waiting(block({0x82, 3, type, 1, 0x31})), 0u);
        std::vector<std::string> expected;
        const std::string line = fake::text("Unknown parameter received: 0x%02x", type);
        if (setup_knows.find(static_cast<char>(type)) == std::string::npos)
            expected.push_back(warning(kCallSetup, line));
        if (waiting_knows.find(static_cast<char>(type)) == std::string::npos)
            expected.push_back(warning(kMessageWaiting, line));
        EXPECT_EQ(fake::difference(expected, bus().complaints()), "") << type;
    }
}

TEST_F(DataBlockDecode, AnItemThatRunsPastTheMessageEndsTheReadingInSilence) {
    // The second item claims 2 bytes where 1 is left.
    EXPECT_EQ(call_setup(block({0x80, 6, 0x04, 1, 0x4F, 0x11, 2, 0x01})), 0u);
    EXPECT_EQ(no_number_.data[0], 'O') << "items before it stay written";
    EXPECT_TRUE(type_.untouched());
    EXPECT_TRUE(bus().complaints().empty());
}

TEST_F(DataBlockDecode, EveryItemLengthIsMeasuredAgainstTheMessage) {
    for (unsigned length = 0; length < 256; ++length) {
        name_ = {};
        bus().clear_log();
        EXPECT_EQ(call_setup(block({0x80, 5, 0x07, length, 0x41, 0x42, 0x43})), 0u);
        EXPECT_EQ(name_.untouched(), length > 3) << length;
        if (length <= 3) {
            EXPECT_STREQ(name_.data, std::string("ABC").substr(0, length).c_str());
        }
    }
}

TEST_F(DataBlockDecode, ASingleByteLeftIsNoItem) {
    EXPECT_EQ(call_setup(block({0x80, 1, 0xEE})), 0u);
    EXPECT_EQ(call_setup(block({0x80, 4, 0x04, 1, 0x4F, 0xEE})), 0u);
    EXPECT_TRUE(bus().complaints().empty());
    EXPECT_EQ(no_number_.data[0], 'O');
}

TEST_F(DataBlockDecode, OfAnItemThatComesTwiceTheLastCounts) {
    EXPECT_EQ(call_setup(block({0x80, 7, 0x02, 2, 0x31, 0x32, 0x02, 1, 0x33})), 0u);
    EXPECT_STREQ(number_.data, "3");
    EXPECT_EQ(number_.data[1], '\0');
}

TEST_F(DataBlockDecode, ATextThatEndsTooSoonIsAWrongChecksum) {
    const std::string whole = "800308014FDB";
    for (size_t characters = 0; characters < whole.size(); ++characters) {
        bus().clear_log();
        // Without a length byte the block has no items, and its checksum would stand where the text has ended.
        EXPECT_EQ(call_setup(whole.substr(0, characters)), 0u) << characters;
        EXPECT_LINES(bus().complaints(), wrong_checksum("0x00", ""));
    }
    EXPECT_TRUE(nothing_written());
}

TEST_F(DataBlockDecode, ANullTextIsAWrongChecksum) {
    EXPECT_EQ(libvoice_db_call_setup_decode(nullptr, 12, &setup_, &common_), 0u);
    EXPECT_EQ(libvoice_db_message_waiting_decode(nullptr, 12, &waiting_, &common_), 0u);
    EXPECT_LINES(bus().complaints(), wrong_checksum("0x00", ""), wrong_checksum("0x00", ""));
    EXPECT_EQ(bus().log().front(), info(kCallSetup, "db = (null)"));
    EXPECT_TRUE(nothing_written());
}

TEST_F(DataBlockDecode, EveryMessageTypeByteIsRightOrNamedInATraceMessage) {
    for (unsigned type = 0; type < 256; ++type) {
        bus().clear_log();
        const std::string text = block({type, 0});
        EXPECT_EQ(call_setup(text), type == 0x80 ? 0u : 1u) << text;
        EXPECT_EQ(message_waiting(text), type == 0x82 ? 0u : 1u) << text;
        std::vector<std::string> expected;
        if (type != 0x80)
            expected.push_back(error(kCallSetup, fake::text("Wrong message received: 0x%02x", type)));
        if (type != 0x82)
            expected.push_back(error(kMessageWaiting, fake::text("Wrong message type received: 0x%02x", type)));
        EXPECT_EQ(fake::difference(expected, bus().complaints()), "") << text;
    }
}

TEST_F(DataBlockDecode, EveryMessageLengthIsMeasuredAgainstTheText) {
    // Three bytes of items and a checksum that is right for none of the lengths that fit by chance.
    for (unsigned length = 0; length < 256; ++length) {
        bus().clear_log();
        const std::string text = fake::text("80%02X0801EE99", length);
        EXPECT_EQ(call_setup(text), 0u);
        const char *rest[] = {"0801EE99", "01EE99", "EE99", "99"};
        const char *found[] = {"0x08", "0x01", "0xee", "0x99"};
        EXPECT_LINES(bus().complaints(),
                     length < 4 ? wrong_checksum(found[length], rest[length]) : wrong_checksum("0x00", ""));
        EXPECT_TRUE(nothing_written()) << length;
    }
}

TEST_F(DataBlockDecode, ALengthOf255IsReadToItsEnd) {
    // One unknown item that fills the message, and a known one that ends at the last byte.
    std::string bytes = "80FF"
                        "EEFA" +
                        repeated(250, "01") + "040150";
    // 80 + FF + EE + FA + 250 * 01 + 04 + 01 + 50 = 4B6
    EXPECT_EQ(call_setup(bytes + "B6"), 0u);
    EXPECT_LINES(bus().complaints(), warning(kCallSetup, "Unknown parameter received: 0xee"));
    EXPECT_EQ(no_number_.data[0], 'P');
}

TEST_F(DataBlockDecode, ASignInTheLengthMakesItTooLong) {
    EXPECT_EQ(call_setup("80-1040150D8"), 0u);
    EXPECT_LOG(info(kCallSetup, "db = 80-1040150D8"), info(kCallSetup, "mtype = 0x80, len = 0xffff"),
               wrong_checksum("0x00", ""));
    EXPECT_TRUE(nothing_written());
}

TEST_F(DataBlockDecode, ASignInTheLengthOfALongTextMakesItTooLong) {
    // A length of 0xFFFF asks for more bytes than any block has, and the text has more, too.
    EXPECT_EQ(call_setup("80-1" + repeated(600, "00")), 0u);
    EXPECT_LINES(bus().complaints(), wrong_checksum("0x00", ""));
    EXPECT_TRUE(nothing_written());
}

// The sanitizer watches the text's end in these two; what the results have in common is little.
TEST_F(DataBlockDecode, EveryCharacterInEveryPlaceIsReadWithinTheText) {
    for (size_t place = 0; place < 12; ++place) {
        for (unsigned character = 0; character < 256; ++character) {
            std::string text = "800308014FDB";
            text[place] = static_cast<char>(character);
            ASSERT_LE(call_setup(text.c_str()), place < 2 ? 1u : 0u) << text;
        }
        bus().clear_log();
    }
}

TEST_F(DataBlockDecode, TwoOddCharactersInAnyPlaceAreReadWithinTheText) {
    const std::string odd("\0 \t\n+-0189AFafgx\x7F\x80\xFF", 20);
    for (size_t place = 2; place < 12; place += 2) {
        for (const char first : odd) {
            for (const char second : odd) {
                std::string text = "800308014FDB";
                text[place] = first;
                text[place + 1] = second;
                ASSERT_EQ(call_setup(text.c_str()), 0u) << text;
            }
        }
        bus().clear_log();
    }
}

TEST_F(DataBlockDecode, BlanksAndSignsAreReadAsTheStandardLibraryDoes) {
    EXPECT_EQ(call_setup("80 3+8 14FDB"), 0u) << "blanks and a plus in front of one digit";
    EXPECT_EQ(no_name_.data[0], 'O');
    EXPECT_TRUE(bus().complaints().empty());
}

TEST_F(DataBlockDecode, NegativeBytesKeepSixteenBits) {
    // Type: -1 is 0xFFFF, its low byte counts in the sum.
    EXPECT_EQ(call_setup("-100FF"), 1u);
    EXPECT_LINES(bus().complaints(), error(kCallSetup, "Wrong message received: 0xffff"));
    bus().clear_log();
    // Checksum: 0xFFFF is not the sum 0xFF.
    EXPECT_EQ(call_setup("FF00-1"), 0u);
    EXPECT_LINES(bus().complaints(), wrong_checksum("0xffff", "-1"));
    bus().clear_log();
    // Item type.
    EXPECT_EQ(call_setup("8002-10081"), 0u);
    EXPECT_LINES(bus().complaints(), warning(kCallSetup, "Unknown parameter received: 0xffff"));
    bus().clear_log();
    // Item length: past any message.
    EXPECT_EQ(call_setup("800304-141C7"), 0u);
    EXPECT_TRUE(bus().complaints().empty());
    EXPECT_TRUE(nothing_written());
    // Value: the low byte is stored.
    EXPECT_EQ(call_setup("80030401-187"), 0u);
    EXPECT_EQ(no_number_.data[0], '\xFF');
}

TEST_F(DataBlockDecode, AnEncodedBlockDecodesToItsFields) {
    uint32_t random = 1;
    const auto next = [&random](uint32_t limit) {
        random = random * 1664525u + 1013904223u;
        return (random >> 8) % limit;
    };
    for (int round = 0; round < 300; ++round) {
        std::string time = "12312359", number(next(26), '0'), name(next(61), 'A'), called(next(21), '0');
        for (char &c : number)
            c = static_cast<char>('0' + next(10));
        for (char &c : name)
            c = static_cast<char>(1 + next(255));
        for (char &c : called)
            c = static_cast<char>('0' + next(10));
        std::string byte(1, static_cast<char>(next(256)));
        libvoice_db_common_fields common = {field(time), field(number), field(byte)};
        libvoice_db_message_fields message = {};
        message.name = field(name);
        message.no_name = field(byte);
        message.slot2 = field(called);
        message.call_type = field(byte);
        message.messages = field(byte);

        char text[LIBVOICE_DB_TEXT_BYTES];
        uint32_t length = 0;
        libvoice_db_call_setup_encode(&message, &common, text, &length);
        ASSERT_EQ(call_setup(text, length), 0u);
        EXPECT_STREQ(time_.data, "12312359");
        EXPECT_EQ(number_.data, number.substr(0, 20));
        EXPECT_EQ(no_number_.data[0], byte[0]);
        EXPECT_EQ(name_.data, name.substr(0, 50));
        EXPECT_EQ(no_name_.data[0], byte[0]);
        EXPECT_EQ(called_.data, called);
        EXPECT_EQ(type_.data[0], byte[0]);

        message.slot2 = field(byte);
        libvoice_db_message_waiting_encode(&message, &common, text, &length);
        ASSERT_EQ(message_waiting(text, length), 0u);
        EXPECT_EQ(visual_.data[0], byte[0]);
        EXPECT_EQ(messages_.data[0], byte[0]);
        EXPECT_TRUE(bus().complaints().empty());
        bus().clear_log();
    }
}

TEST_F(DataBlockDecode, MutilatedBlocksNeverLeaveTheirText) {
    const std::string whole = "801C0108303130323033303402013104014F070141080150030132110101A2";
    const char alphabet[] = "0123456789ABCDEFabcdef -+xX\t\x80\xFFz";
    uint32_t random = 7;
    const auto next = [&random](size_t limit) {
        random = random * 1664525u + 1013904223u;
        return static_cast<size_t>(random >> 8) % limit;
    };
    for (int round = 0; round < 4000; ++round) {
        std::string text = whole;
        for (size_t changes = next(4); changes-- > 0;)
            text[next(text.size())] = alphabet[next(sizeof alphabet - 1)];
        text.resize(next(4) ? text.size() : next(text.size() + 1));
        ASSERT_LE(call_setup(text), 1u);
        ASSERT_LE(message_waiting(text), 1u);
        if (round % 100 == 0)
            bus().clear_log();
    }
    EXPECT_TRUE(time_.untouched_from(9) && number_.untouched_from(21) && name_.untouched_from(51));
    EXPECT_TRUE(called_.untouched_from(21));
}

// ------------------------------------------------------------------------------------------------- Internal readers

class DataBlockBytes : public VoiceTest {};

TEST_F(DataBlockBytes, TwoCharactersReadAsTheStandardLibraryDoes) {
    struct Row {
        const char *text;
        unsigned value;
    };
    for (const Row row : {Row{"00", 0},
                          Row{"0A", 0x0A},
                          Row{"0a", 0x0A},
                          Row{"fF", 0xFF},
                          Row{"80", 0x80},
                          Row{" 5", 5},
                          Row{"\t7", 7},
                          Row{"\n7", 7},
                          Row{"5 ", 5},
                          Row{"  ", 0},
                          Row{"+5", 5},
                          Row{"-1", 0xFFFF},
                          Row{"-F", 0xFFF1},
                          Row{"-0", 0},
                          Row{"--", 0},
                          Row{"0x", 0},
                          Row{"x1", 0},
                          Row{"1x", 1},
                          Row{"g1", 0},
                          Row{"", 0},
                          Row{"A", 0x0A},
                          Row{"-", 0},
                          Row{"123", 0x12},
                          Row{"\xFF"
                              "1",
                              0},
                          Row{"1\x80", 0x1}})
        EXPECT_EQ(voice::libvoice_db_hex_byte(row.text), row.value) << '"' << row.text << '"';
}

TEST_F(DataBlockBytes, AChecksumIsThePlainSum) {
    EXPECT_EQ(voice::libvoice_db_verify_checksum("800080"), 1);
    EXPECT_EQ(voice::libvoice_db_verify_checksum("8003110101"
                                                 "96"),
              1);
    EXPECT_TRUE(bus().log().empty());
    // The two's complement that belongs on the line.
    EXPECT_EQ(voice::libvoice_db_verify_checksum("8003110101"
                                                 "6A"),
              0);
    EXPECT_LOG(wrong_checksum("0x6a", "6A"));
}

TEST_F(DataBlockBytes, AChecksumThatIsNotThereIsWrong) {
    for (const char *text : {"", "8", "80", "800", "8000", "80008", "80FF", "80-1", "-1-1"}) {
        bus().clear_log();
        EXPECT_EQ(voice::libvoice_db_verify_checksum(text), 0) << text;
        EXPECT_LOG(wrong_checksum("0x00", ""));
    }
    bus().clear_log();
    EXPECT_EQ(voice::libvoice_db_verify_checksum(nullptr), 0);
    EXPECT_LOG(wrong_checksum("0x00", ""));
}

} // namespace
} // namespace voice_test
