// SPDX-License-Identifier: MIT
// Data blocks as hosts read and write them. The expected bytes are typed by hand from ETSI EN 300 659-3.
#include "caller_display.h"

#include "libvoice_plugin.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The text without the eight digits of the time, which is that of now, and without the checksum.
std::string without_time(std::string text) {
    return text.substr(0, 8) + text.substr(24, text.size() - 26);
}

} // namespace

TEST(CallerDisplay, NumberAndNameAreWritten) {
    char text[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = caller_display_encode("101", "Al", "22", text);
    EXPECT_EQ(length, strlen(text) + 1);
    // Call setup; date and time; calling line 101; name Al; called line 22.
    EXPECT_EQ(without_time(text).substr(0, 2), "80");
    EXPECT_EQ(without_time(text).substr(4, 4), "0108");
    for (const char *item : {"0203313031", "0702416C", "03023232"})
        EXPECT_NE(without_time(text).find(item), std::string::npos) << item << " in " << text;
}

TEST(CallerDisplay, NoNumberIsWithheld) {
    for (const char *number : {static_cast<const char *>(nullptr), ""}) {
        char text[LIBVOICE_DB_TEXT_BYTES];
        caller_display_encode(number, nullptr, nullptr, text);
        EXPECT_EQ(without_time(text), "800D0108040150");
    }
}

TEST(CallerDisplay, WhatIsWrittenIsRead) {
    char text[LIBVOICE_DB_TEXT_BYTES];
    caller_display display;
    caller_display_encode("12345678901234567890", "Aunt \"Mary\"", nullptr, text);
    ASSERT_TRUE(caller_display_decode(text, &display));
    EXPECT_STREQ(display.number, "12345678901234567890");
    EXPECT_STREQ(display.name, "Aunt .Mary.") << "it is printed inside quotes";
    EXPECT_STREQ(display.called, "");
    EXPECT_EQ(strlen(display.time), 8u);
    EXPECT_EQ(display.no_number, 0);
    caller_display_encode("", "", "", text);
    ASSERT_TRUE(caller_display_decode(text, &display));
    EXPECT_EQ(display.no_number, 'P');
}

TEST(CallerDisplay, BrokenBlocksAreNotRead) {
    caller_display display;
    message_display waiting;
    EXPECT_TRUE(caller_display_decode("80050203313031"
                                      "1C",
                                      &display))
        << "the sum of 80 05 02 03 31 30 31";
    for (const char *text : {"", "80", "8005020331303100", "820B0B01FF130103", "80050203313031ZZ"})
        EXPECT_FALSE(caller_display_decode(text, &display)) << text;
    for (const char *text : {"", "82",
                             "80050203313031"
                             "1C",
                             "820300000085"})
        EXPECT_FALSE(message_display_decode(text, &waiting)) << text;
}

TEST(MessageDisplay, CountAndLamp) {
    char text[LIBVOICE_DB_TEXT_BYTES];
    message_display display;
    for (uint8_t messages : {0, 1, 255}) {
        message_display_encode(messages, text);
        EXPECT_TRUE(display_is_messages(text));
        ASSERT_TRUE(message_display_decode(text, &display)) << text;
        EXPECT_EQ(display.messages, messages);
        EXPECT_EQ(display.lamp, messages > 0);
    }
    EXPECT_EQ(without_time(text).substr(0, 2), "82");
    EXPECT_NE(without_time(text).find("0B01FF"), std::string::npos) << text;
    EXPECT_NE(without_time(text).find("1301FF"), std::string::npos) << text;
    caller_display_encode("1", nullptr, nullptr, text);
    EXPECT_FALSE(display_is_messages(text));
}
