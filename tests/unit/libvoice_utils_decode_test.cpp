// SPDX-License-Identifier: MIT
// Data blocks that are read: each item reaches its field. Blocks are written out by hand; joining the encoder to the decoder
// comes on top.
#include "libvoice_utils_fixture.h"

namespace voice_test {
namespace {

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

TEST_F(DataBlockDecode, AnEncodedBlockDecodesToItsFields) {
    Chance chance(1);
    for (int round = 0; round < 300; ++round) {
        std::string time = "12312359", number(chance.below(26), '0'), name(chance.below(61), 'A'),
                    called(chance.below(21), '0');
        for (char &c : number)
            c = static_cast<char>('0' + chance.below(10));
        for (char &c : name)
            c = static_cast<char>(1 + chance.below(255));
        for (char &c : called)
            c = static_cast<char>('0' + chance.below(10));
        std::string byte(1, static_cast<char>(chance.below(256)));
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

} // namespace
} // namespace voice_test
