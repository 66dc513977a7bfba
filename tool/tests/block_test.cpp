// SPDX-License-Identifier: MIT
#include "block.h"

#include "samples.h"
#include "words.h"

#include <gtest/gtest.h>

namespace {

using voicectl::Block;
using voicectl::block_read;
using voicectl::block_write;
using voicectl::CallerDisplay;
using voicectl::Checksum;

TEST(Block, IsReadWithTheSumOfTheBus) {
    const Block block = block_read(voicectl::kCallerBlock);
    EXPECT_EQ(block.problem, "");
    EXPECT_EQ(block.carried, Checksum::sum);
    EXPECT_EQ(block.hex, voicectl::kCallerBlock);
    EXPECT_EQ(display_words(block.display), "101 \"FXS1\" at 11-21 11:38 for 102");
}

// ETSI EN 300 659-3: all bytes of a message on a line, the checksum included, add up to zero.
TEST(Block, IsReadWithTheComplementOfTheLine) {
    const std::string line = block_read(voicectl::kCallerBlock).line_hex;
    unsigned sum = 0;
    for (size_t at = 0; at < line.size(); at += 2)
        sum += static_cast<unsigned>(std::stoi(line.substr(at, 2), nullptr, 16));
    EXPECT_EQ(sum % 256, 0u);
    const Block block = block_read(line);
    EXPECT_EQ(block.problem, "");
    EXPECT_EQ(block.carried, Checksum::complement);
    EXPECT_EQ(block.hex, voicectl::kCallerBlock);
}

TEST(Block, DigitsMayBeOfEitherCaseAndApart) {
    EXPECT_EQ(block_read("80 05 02 03 31 30 31 1c").hex, "800502033130311C");
}

TEST(Block, WhatIsNoneIsSaid) {
    EXPECT_EQ(block_read("").problem, "no hexadecimal text of whole bytes");
    EXPECT_EQ(block_read("80050").problem, "no hexadecimal text of whole bytes");
    EXPECT_EQ(block_read("80zz").problem, "no hexadecimal text of whole bytes");
    EXPECT_EQ(block_read("8001").problem, "2 bytes are no block: type, length and checksum alone are 3");
    EXPECT_EQ(block_read("810000").problem, "type 0x81 is neither a call set-up, 0x80, nor a message waiting, 0x82");
    EXPECT_EQ(block_read("8006020331303159").problem, "its length says 9 bytes in all, there are 8");
    EXPECT_EQ(block_read("800502043130311D").problem, "item 0x02 runs past the end");
    EXPECT_EQ(block_read("8001028300").problem, "its length says 4 bytes in all, there are 5");
    EXPECT_EQ(block_read("80010283").problem, "item 0x02 runs past the end");
    EXPECT_EQ(block_read("80050203313031AA").problem, "checksum AA is neither the sum 1C nor its two's complement E4");
}

TEST(Block, EveryFieldIsWrittenAndReadAgain) {
    CallerDisplay display;
    display.time = "12312359";
    display.number = "12345678901234567890";
    display.name = std::string(50, 'n');
    display.called = "09876543210987654321";
    display.call_type = 255;
    const Block call = block_write(display);
    ASSERT_EQ(call.problem, "");
    EXPECT_EQ(call.hex.substr(0, 2), "80");
    EXPECT_EQ(call.display.time, display.time);
    EXPECT_EQ(call.display.number, display.number);
    EXPECT_EQ(call.display.name, display.name);
    EXPECT_EQ(call.display.called, display.called);
    EXPECT_EQ(call.display.call_type, 255);

    CallerDisplay reasons;
    reasons.no_number = 'P';
    reasons.no_name = 'O';
    EXPECT_EQ(display_words(block_write(reasons).display), "number withheld name unavailable");
}

TEST(Block, MessagesThatWaitAreWritten) {
    CallerDisplay display;
    display.kind = CallerDisplay::Kind::messages;
    display.messages = 3;
    EXPECT_EQ(block_write(display).hex, voicectl::kWaitingBlock) << "the lamp is on for messages";
    display.lamp = false;
    EXPECT_EQ(display_words(block_write(display).display), "3 messages, lamp off");
}

TEST(Block, ShowsAsTextAndAsJson) {
    const Block block = block_read("800502033130311C");
    EXPECT_EQ(block_text(block), "call set-up of 8 bytes, with the plain sum, as between processes\n"
                                 "shows    101\n"
                                 "on bus   800502033130311C\n"
                                 "on line  80050203313031E4");
    EXPECT_EQ(block_json(block), R"({"shows":{"kind":"call","number":"101"},"text":"101","carried":"sum",)"
                                 R"("bus":"800502033130311C","line":"80050203313031E4"})");
}

} // namespace
