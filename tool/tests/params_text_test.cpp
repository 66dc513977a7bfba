// SPDX-License-Identifier: MIT
#include "params_text.h"

#include "libvoice_plugin.h"
#include "samples.h"

#include <gtest/gtest.h>

namespace {

using voicectl::ByteOrder;
using voicectl::Bytes;
using voicectl::params_read;
using voicectl::params_write;
using voicectl::ParamsForm;

constexpr ByteOrder kHere =
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    ByteOrder::little;
#else
    ByteOrder::big;
#endif
constexpr ByteOrder kOther = kHere == ByteOrder::little ? ByteOrder::big : ByteOrder::little;

Bytes words(std::initializer_list<uint32_t> list) {
    Bytes bytes;
    for (const uint32_t word : list)
        voicectl::append_word(bytes, word);
    return bytes;
}

std::string text_of(ParamsForm form, const Bytes &bytes) {
    return params_read(form, kHere, bytes).text;
}

std::string problem_of(std::string_view text, ParamsForm form = ParamsForm::buffer) {
    return params_write(form, kHere, text).problem;
}

TEST(ParamsText, ItemsAreWrittenByTheirType) {
    Bytes buffer;
    voicectl::add_word(buffer, LIBVOICE_PARAM_al_ri_freq, 25);
    voicectl::add_item(buffer, LIBVOICE_PARAM_al_ri_cad, words({1000, 4000}));
    voicectl::add_word(buffer, LIBVOICE_PARAM_al_of_init, 1);
    voicectl::add_text(buffer, LIBVOICE_PARAM_dd_ce_ds, "201");
    voicectl::add_word(buffer, LIBVOICE_PARAM_tdmc_gain, static_cast<uint32_t>(-20));
    voicectl::add_item(buffer, LIBVOICE_PARAM_dd_ce_ds, {});
    EXPECT_EQ(text_of(ParamsForm::buffer, buffer), "al_ri_freq = 25  # 25 Hz\n"
                                                   "al_ri_cad = [1000, 4000]  # cadence 1000/4000 ms\n"
                                                   "al_of_init = true  # already off hook true\n"
                                                   "dd_ce_ds = \"201\"  # dialled digits \"201\"\n"
                                                   "tdmc_gain = -20  # gain -20 dB\n"
                                                   "dd_ce_ds  # dialled digits\n");
}

TEST(ParamsText, NumbersOfAWordAreReadWithAndWithoutASign) {
    constexpr std::pair<const char *, uint32_t> kRows[] = {{"2147483647", INT32_MAX},  {"2147483648", 0x80000000},
                                                           {"4294967295", UINT32_MAX}, {"0xFFFFFFFF", UINT32_MAX},
                                                           {"0XFFFFFFFF", UINT32_MAX}, {"-2147483648", 0x80000000}};
    for (const auto &[text, word] : kRows) {
        Bytes buffer;
        voicectl::add_word(buffer, LIBVOICE_PARAM_al_ri_freq, word);
        EXPECT_EQ(params_write(ParamsForm::buffer, kHere, std::string("al_ri_freq = ") + text).bytes, buffer) << text;
    }
    for (const char *text : {"4294967296", "-2147483649", "0x100000000", "0x-5"})
        EXPECT_NE(problem_of(std::string("al_ri_freq = ") + text), "") << text;
}

TEST(ParamsText, WhatItsTypeWouldChangeIsWrittenAsBytes) {
    Bytes buffer;
    voicectl::add_item(buffer, LIBVOICE_PARAM_al_ri_freq, {1, 2});         // no word
    voicectl::add_item(buffer, LIBVOICE_PARAM_dd_ce_ds, {'2', '0'});       // no end
    voicectl::add_item(buffer, LIBVOICE_PARAM_dd_ce_ds, {'2', 0, '0', 0}); // two ends
    voicectl::add_item(buffer, LIBVOICE_PARAM_al_of_init, words({0x100})); // neither of two
    voicectl::add_item(buffer, 0x2FFFFFFE, {0xFF});                        // unknown
    const std::string text = text_of(ParamsForm::buffer, buffer);
    for (const char *line : {"al_ri_freq = {0102}", "dd_ce_ds = {3230}", "dd_ce_ds = {32003000}", "0x2ffffffe = {ff}"})
        EXPECT_NE(text.find(line), std::string::npos) << line << " in\n" << text;
    EXPECT_EQ(params_write(ParamsForm::buffer, kHere, text).bytes, buffer);
}

TEST(ParamsText, RecordsComeBackByteByByte) {
    Bytes buffer;
    voicectl::add_word(buffer, LIBVOICE_PARAM_al_ri_freq, 25);
    voicectl::add_text(buffer, LIBVOICE_PARAM_dd_ce_ds, "a \"quoted\" # \\ \x1B\xC3\xA4\xFF text");
    voicectl::add_item(buffer, LIBVOICE_PARAM_al_ri_cad, words({0xFFFFFFFF, 0}));
    const struct {
        ParamsForm form;
        Bytes bytes;
    } records[] = {{ParamsForm::buffer, buffer},
                   {ParamsForm::buffer, {}},
                   {ParamsForm::signal, voicectl::signal_bytes(3, LIBVOICE_SIGNAL_al_ri, buffer, 1)},
                   {ParamsForm::event, voicectl::event_bytes(-1, LIBVOICE_EVENT_al_of, buffer)},
                   {ParamsForm::set, voicectl::set_bytes(buffer)}};
    for (const auto &record : records)
        for (const ByteOrder order : {kHere, kOther}) {
            const voicectl::ParamsRead read = params_read(record.form, order, record.bytes);
            if (order == kHere) {
                EXPECT_EQ(read.problem, "");
            }
            const voicectl::ParamsWritten there = params_write(record.form, kOther, text_of(record.form, record.bytes));
            EXPECT_EQ(there.problem, "");
            EXPECT_EQ(params_read(record.form, kOther, there.bytes).text, text_of(record.form, record.bytes));
            EXPECT_EQ(params_write(record.form, kHere, text_of(record.form, record.bytes)).bytes, record.bytes);
        }
}

TEST(ParamsText, HeadsAreWrittenByTheirWords) {
    EXPECT_EQ(text_of(ParamsForm::signal, voicectl::signal_bytes(3, LIBVOICE_SIGNAL_al_ri, {}, 1)),
              "endpoint = 3\nsignal = al_ri  # ring\nline = 1\nmessage = 7\nflags = 1\npointer = -559038737\n");
    EXPECT_EQ(text_of(ParamsForm::event, voicectl::event_bytes(-1, 0x12345678, {})),
              "endpoint = -1\nevent = 0x12345678\nline = 1\npointer = -559038737\n");
}

// What a big-endian gateway wrote, by the numbers of the vocabulary: al_ri_freq, 4 bytes, 25.
TEST(ParamsText, TheOtherByteOrderIsReadAndWritten) {
    const Bytes big = {0x11, 0x09, 0x02, 0x07, 0, 0, 0, 4, 0, 0, 0, 25};
    EXPECT_EQ(params_read(ParamsForm::buffer, ByteOrder::big, big).text, "al_ri_freq = 25  # 25 Hz\n");
    EXPECT_EQ(params_write(ParamsForm::buffer, ByteOrder::big, "al_ri_freq = 25").bytes, big);
    const Bytes little = {0x07, 0x02, 0x09, 0x11, 4, 0, 0, 0, 25, 0, 0, 0};
    EXPECT_EQ(params_read(ParamsForm::buffer, ByteOrder::little, little).text, "al_ri_freq = 25  # 25 Hz\n");
    EXPECT_EQ(params_write(ParamsForm::buffer, ByteOrder::little, "al_ri_freq = 25").bytes, little);
}

TEST(ParamsText, TextsDoNotTurnWithTheByteOrder) {
    const Bytes there = params_write(ParamsForm::buffer, kOther, "dd_ce_ds = \"201\"").bytes;
    ASSERT_EQ(there.size(), 12u);
    EXPECT_EQ(Bytes(there.begin() + 8, there.end()), (Bytes{'2', '0', '1', 0}));
}

TEST(ParamsText, WhatIsBrokenIsSaidBehindWhatIsWhole) {
    Bytes buffer;
    voicectl::add_word(buffer, LIBVOICE_PARAM_al_ri_freq, 25);
    Bytes cut = buffer;
    cut.pop_back();
    EXPECT_EQ(params_read(ParamsForm::buffer, kHere, cut).problem, "item 0x11090207 says 4 bytes, 3 are left");
    Bytes more = buffer;
    more.push_back(0);
    EXPECT_EQ(params_read(ParamsForm::buffer, kHere, more).problem, "1 bytes left where an item's head should be");
    EXPECT_EQ(params_read(ParamsForm::buffer, kHere, more).text, "al_ri_freq = 25  # 25 Hz\n");
    EXPECT_EQ(params_read(ParamsForm::signal, kHere, buffer).problem, "12 bytes, the head alone has 28");
    Bytes behind = voicectl::event_bytes(1, LIBVOICE_EVENT_al_of, {});
    behind.push_back(1);
    EXPECT_EQ(params_read(ParamsForm::event, kHere, behind).problem, "1 bytes behind the parameters");
    EXPECT_EQ(params_read(ParamsForm::buffer, kHere, Bytes(98305, 0)).problem,
              "98305 bytes, a record has 98304 at most");
}

TEST(ParamsText, EveryCutOfARecordIsReadWithoutHarm) {
    Bytes buffer;
    voicectl::add_word(buffer, LIBVOICE_PARAM_al_ri_freq, 25);
    voicectl::add_text(buffer, LIBVOICE_PARAM_dd_ce_ds, "201");
    const Bytes whole = voicectl::signal_bytes(3, LIBVOICE_SIGNAL_al_ri, buffer);
    for (const ParamsForm form : {ParamsForm::buffer, ParamsForm::signal, ParamsForm::event, ParamsForm::set})
        for (const ByteOrder order : {ByteOrder::little, ByteOrder::big})
            for (size_t size = 0; size < whole.size(); ++size) {
                const voicectl::ParamsRead read =
                    params_read(form, order, Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
                EXPECT_TRUE(form != ParamsForm::signal || !read.problem.empty()) << size;
            }
}

TEST(ParamsText, ALineThatIsWrongIsNamed) {
    EXPECT_EQ(problem_of("al_ri_freq = 25\nfoo = 3"), "line 2: 'foo' is no identifier of the vocabulary");
    EXPECT_EQ(problem_of("= 3"), "line 1: there is no name in front of =");
    for (const char *value : {"", "x", "25 Hz", "4294967296", "{0}", "{xy}", "{}", "[1,,2]", "[", "\"a", "\"a\\q\"",
                              "\"a\\xZZ\"", "TRUE", "0x", "--1"})
        EXPECT_NE(problem_of(std::string("al_ri_freq = ") + value).find("is no value"), std::string::npos) << value;
    EXPECT_EQ(problem_of("signal = 25 Hz", ParamsForm::signal), "line 1: signal wants a number or a name, not '25 Hz'");
    EXPECT_EQ(problem_of("line", ParamsForm::signal), "line 1: line wants a number, not ''");
    EXPECT_EQ(problem_of("al_ri_freq = 25\nline = 1", ParamsForm::signal),
              "line 2: line belongs to the head, in front of the items");
    EXPECT_EQ(problem_of("line = 1"), "line 1: 'line' is no identifier of the vocabulary") << "a buffer has no head";
}

TEST(ParamsText, RemarksAndEmptyLinesMeanNothing) {
    const Bytes bytes = params_write(ParamsForm::buffer, kHere, "\n# all of it\n al_ri_freq=25 # Hz\r\n\n").bytes;
    EXPECT_EQ(bytes, params_write(ParamsForm::buffer, kHere, "al_ri_freq = 25").bytes);
    EXPECT_EQ(bytes.size(), 12u);
}

TEST(ParamsText, NamesMayBeWholeOrNumbers) {
    const Bytes bytes = params_write(ParamsForm::buffer, kHere, "al_ri_freq = 25").bytes;
    EXPECT_EQ(params_write(ParamsForm::buffer, kHere, "LIBVOICE_PARAM_al_ri_freq = 25").bytes, bytes);
    EXPECT_EQ(params_write(ParamsForm::buffer, kHere, "0x11090207 = 25").bytes, bytes);
}

TEST(ParamsText, ARecordHasAnEnd) {
    const std::string value(2 * 98304, 'f');
    EXPECT_EQ(problem_of("dd_ce_ds = {" + value + "}"), "line 1: a record has 98304 bytes at most");
}

} // namespace
