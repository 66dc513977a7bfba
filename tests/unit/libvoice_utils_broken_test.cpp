// SPDX-License-Identifier: MIT
// Data blocks that break the rules: nothing is read beyond the text, and what is said of them.
#include "libvoice_utils_fixture.h"

namespace voice_test {
namespace {

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

TEST_F(DataBlockDecode, MutilatedBlocksNeverLeaveTheirText) {
    const std::string whole = "801C0108303130323033303402013104014F070141080150030132110101A2";
    const char alphabet[] = "0123456789ABCDEFabcdef -+xX\t\x80\xFFz";
    Chance chance(7);
    for (int round = 0; round < 4000; ++round) {
        std::string text = whole;
        for (size_t changes = chance.below(4); changes-- > 0;)
            text[chance.below(text.size())] = alphabet[chance.below(sizeof alphabet - 1)];
        text.resize(chance.below(4) ? text.size() : chance.below(text.size() + 1));
        ASSERT_LE(call_setup(text), 1u);
        ASSERT_LE(message_waiting(text), 1u);
        if (round % 100 == 0)
            bus().clear_log();
    }
    EXPECT_TRUE(time_.untouched_from(9) && number_.untouched_from(21) && name_.untouched_from(51));
    EXPECT_TRUE(called_.untouched_from(21));
}

} // namespace
} // namespace voice_test
