// SPDX-License-Identifier: MIT
// Texts from outside made fit for a line of output.
#include "printable.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string line(std::string text) {
    line_make_printable(text.data());
    return text;
}

std::string quoted(std::string text) {
    text_make_printable(text.data());
    return text;
}

} // namespace

TEST(Printable, ControlCharactersBecomeDots) {
    EXPECT_EQ(line("a\"b\nc\r\td\x1B[2J\x7F"), "a\"b.c..d.[2J.");
    EXPECT_EQ(line("\xC2\x9B[31m\xC2\x85\xC2\x80\xC2\x9F"), "..[31m......") << "C1";
    EXPECT_EQ(line("\xC2\xA0\xC3\xA9"), "\xC2\xA0\xC3\xA9") << "what follows C1 is a blank and letters";
}

TEST(Printable, QuotesBecomeDotsBetweenQuotes) {
    EXPECT_EQ(quoted("a\"b\nc\x1B\x7F\xC3\xA9"), "a.b.c..\xC3\xA9");
}

TEST(Printable, LettersOfAnyScriptStay) {
    for (const char *text : {"", "plain", "M\xC3\xBCller", "\xE6\x9D\xB1\xE4\xBA\xAC", "\xF0\x9F\x93\x9E"})
        EXPECT_EQ(quoted(text), text);
}

TEST(Printable, WhatIsNoUtf8BecomesDots) {
    EXPECT_EQ(line("\x9B[31m"), ".[31m") << "a C1 control in one byte";
    EXPECT_EQ(line("M\xFCller"), "M.ller");
    EXPECT_EQ(line("\xC0\x8A\xE0\x80\x8A"), ".....") << "line breaks written longer than they are";
    EXPECT_EQ(line("\xED\xA0\x80\xF4\x90\x80\x80"), ".......") << "a surrogate, and past the end of Unicode";
    EXPECT_EQ(line("cut \xE6\x9D"), "cut ..");
    EXPECT_EQ(line("\xE6\x9D"
                   "A"),
              "..A")
        << "what follows a broken one is read anew";
    EXPECT_EQ(line("\xFF\xFE"), "..");
}

TEST(Printable, LineSeparatorsAndDirectionMarksBecomeDots) {
    EXPECT_EQ(line("a\xE2\x80\xA8"
                   "b\xE2\x80\xA9"
                   "c"),
              "a...b...c")
        << "U+2028, U+2029";
    EXPECT_EQ(line("\xE2\x80\xAE"
                   "101"),
              "...101")
        << "U+202E: what follows would show backwards";
    EXPECT_EQ(line("\xE2\x81\xA6\xD8\x9C\xE2\x80\x8F"), "........") << "U+2066, U+061C, U+200F";
    EXPECT_EQ(line("\xE2\x80\x8B\xEF\xBB\xBF\xC2\xAD"), "........") << "what does not show at all";
}
