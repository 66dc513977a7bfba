// SPDX-License-Identifier: MIT
// Text from strangers on a terminal and in JSON.
#include "text.h"

#include <gtest/gtest.h>

namespace voicectl {

namespace {

struct Row {
    const char *name;
    std::string_view text;
    const char *printed;
    const char *json;
};

class Text : public testing::TestWithParam<Row> {};

using namespace std::string_view_literals;

// clang-format off
const Row kRows[] = {
    {"PlainTextStays", "FXS1 off"sv, "FXS1 off", R"("FXS1 off")"},
    {"EmptyText", ""sv, "", R"("")"},
    {"UmlautStays", "M\xC3\xBCller"sv, "M\xC3\xBCller", "\"M\xC3\xBCller\""},
    {"EscapeSequenceIsWrittenOut", "\x1B[2J"sv, R"(\x1B[2J)", R"("\u001b[2J")"},
    {"LineBreakIsWrittenOut", "a\nb"sv, R"(a\x0Ab)", R"("a\u000ab")"},
    {"ZeroByteIsWrittenOut", "a\0b"sv, R"(a\x00b)", R"("a\u0000b")"},
    {"DeleteIsWrittenOut", "\x7F"sv, R"(\x7F)", R"("\u007f")"},
    {"BackslashIsDoubled", "a\\x1B"sv, R"(a\\x1B)", R"("a\\x1B")"},
    {"QuoteIsEscapedInJson", "say \"hi\""sv, "say \"hi\"", R"("say \"hi\"")"},
    {"SecondControlRangeIsWrittenOut", "\xC2\x9B" "2J"sv, R"(\xC2\x9B2J)", R"("\u009b2J")"},
    {"DirectionMarkIsWrittenOut", "\xE2\x80\xAE" "1"sv, R"(\xE2\x80\xAE1)", R"("\u202e1")"},
    {"LoneContinuationByte", "\x80"sv, R"(\x80)", R"("\ufffd")"},
    {"CutOffCharacter", "a\xE2\x82"sv, R"(a\xE2\x82)", R"("a\ufffd\ufffd")"},
    {"OverlongSlash", "\xC0\xAF"sv, R"(\xC0\xAF)", R"("\ufffd\ufffd")"},
    {"OverlongInThreeBytes", "\xE0\x80\xAF"sv, R"(\xE0\x80\xAF)", R"("\ufffd\ufffd\ufffd")"},
    {"Surrogate", "\xED\xA0\x80"sv, R"(\xED\xA0\x80)", R"("\ufffd\ufffd\ufffd")"},
    {"BeyondUnicode", "\xF4\x90\x80\x80"sv, R"(\xF4\x90\x80\x80)", R"("\ufffd\ufffd\ufffd\ufffd")"},
    {"FirstTagIsWrittenOut", "\xF3\xA0\x80\x80"sv, R"(\xF3\xA0\x80\x80)", R"("\udb40\udc00")"},
    {"LastTagIsWrittenOut", "\xF3\xA0\x81\xBF"sv, R"(\xF3\xA0\x81\xBF)", R"("\udb40\udc7f")"},
    {"AfterTheTagsStays", "\xF3\xA0\x82\x80"sv, "\xF3\xA0\x82\x80", "\"\xF3\xA0\x82\x80\""},
    {"FourBytesStay", "\xF0\x9F\x93\x9E"sv, "\xF0\x9F\x93\x9E", "\"\xF0\x9F\x93\x9E\""},
};
// clang-format on

TEST_P(Text, OnATerminal) {
    EXPECT_EQ(printable(GetParam().text), GetParam().printed);
}
TEST_P(Text, IsQuotedForJson) {
    EXPECT_EQ(json_string(GetParam().text), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(Rows, Text, testing::ValuesIn(kRows), [](const auto &info) { return info.param.name; });

} // namespace

} // namespace voicectl
