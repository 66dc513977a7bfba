// SPDX-License-Identifier: MIT
// Lines at 80 columns: what stands in them, where they break, and what strangers cannot do to them.
#include "layout.h"

#include <sstream>

#include "ladder_fixture.h"
#include "text.h"

namespace voicectl {

namespace {

constexpr Room kSmall{.columns = 20, .rows = 2, .indent = 4};

TEST(Layout, PiecesStandApartByTheirBlanks) {
    EXPECT_EQ(pieces_lay_out({{"one", nullptr, 0}, {"two"}, {"3", nullptr, 1}}, kSmall, false), "one  two 3");
}

TEST(Layout, APieceMovesWholeToTheNextRow) {
    EXPECT_EQ(pieces_lay_out({{"0123456789"}, {"two words"}}, kSmall, false), "0123456789\n    two words");
}

TEST(Layout, TheLastColumnIsUsed) {
    EXPECT_EQ(pieces_lay_out({{"0123456789"}, {"12345678"}}, kSmall, false), "0123456789  12345678");
    EXPECT_EQ(pieces_lay_out({{"0123456789"}, {"12345678"}, {"0123456789abcdef"}}, kSmall, false),
              "0123456789  12345678\n    0123456789abcdef");
}

TEST(Layout, WhatHasNoRoomIsMarked) {
    EXPECT_EQ(pieces_lay_out({{"0123456789"}, {"12345678"}, {"0123456789"}, {"there is more"}}, kSmall, false),
              "0123456789  12345678\n    0123456789 ...");
    EXPECT_EQ(pieces_lay_out({{"0123456789"}, {"12345678"}, {"0123456789abcdef"}, {"more"}}, kSmall, false),
              "0123456789  12345678\n    ...");
}

TEST(Layout, ALongPieceBreaksBetweenItsWords) {
    EXPECT_EQ(pieces_lay_out({{"a piece that is longer than one"}}, kSmall, false),
              "a piece that is\n    longer than one");
}

TEST(Layout, ALongWordIsCut) {
    EXPECT_EQ(
        pieces_lay_out({{"0123456789012345678901234567890123456789"}}, {.columns = 30, .rows = 1, .indent = 0}, false),
        "012345678901234567890123456...");
}

TEST(Layout, WideCharactersTakeTwoColumns) {
    EXPECT_EQ(columns_of("a\xE6\xBC\xA2"), 3u);
    EXPECT_EQ(shortened("\xE6\xBC\xA2\xE6\xBC\xA2\xE6\xBC\xA2", 5), "\xE6\xBC\xA2...");
}

TEST(Layout, ColoursTakeNoColumns) {
    EXPECT_EQ(pieces_lay_out({{"0123456789"}, {"12345678", "\x1B[1m"}}, kSmall, true),
              "0123456789  \x1B[1m12345678\x1B[0m");
}

TEST(Layout, JoinKeepsEverything) {
    EXPECT_EQ(pieces_join({{"one"}, {"0123456789012345678901234567890123456789"}}, false),
              "one  0123456789012345678901234567890123456789");
}

class At80 : public Ladder {
protected:
    static std::string line(const std::optional<Step> &step, size_t columns = 80, size_t rows = 2) {
        return step ? ladder_line(*step, {.columns = columns, .rows = rows}) : "nothing";
    }

    std::string line(Sample &sample, size_t columns = 80, size_t rows = 2) {
        return line(traffic.next(sample.record()), columns, rows);
    }

    std::string line(Sample &&sample, size_t columns = 80, size_t rows = 2) { return line(sample, columns, rows); }

    std::string signal(uint32_t id, const Bytes &parameters) {
        return line(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                        .call(3, "fxs1.EndPoint.FXS1", "signal")
                        .with_bytes("signal", signal_bytes(4, id, parameters)));
    }
};

TEST_F(At80, NamesAreShort) {
    EXPECT_EQ(line(Sample(KEX_TAP_ONE_WAY_CALL, in, 1, "fxs_plugin")
                       .call(3, kApplication, "event")
                       .with_text("plugin_name", "fxs1")
                       .with_bytes("event", event_bytes(4, LIBVOICE_EVENT_al_of))),
              "00:00:00.000 fxs1 #4        --> event  off hook  al_of  line 1");
}

TEST_F(At80, RingAndCallerDisplay) {
    Bytes cadence;
    append_word(cadence, 1000);
    append_word(cadence, 4000);
    Bytes ring;
    add_item(ring, LIBVOICE_PARAM_al_ri_cad, cadence);
    add_word(ring, LIBVOICE_PARAM_al_ri_freq, 25);
    EXPECT_EQ(signal(LIBVOICE_SIGNAL_al_ri, ring), "00:00:00.000 fxs1 FXS1      <-- signal  ring  al_ri  line 1\n"
                                                   "              cadence 1000/4000 ms  25 Hz");
    Bytes display;
    add_text(display, LIBVOICE_PARAM_andisp_data_db, kCallerBlock);
    EXPECT_EQ(signal(LIBVOICE_SIGNAL_andisp_data, display),
              "00:00:00.000 fxs1 FXS1      <-- signal  display data  andisp_data  line 1\n"
              "              shows 101 \"FXS1\" at 11-21 11:38 for 102");
}

TEST_F(At80, RegistrationInWords) {
    Bytes codecs;
    for (const uint32_t word : {8u, 8u, 7u, 64000u, 0u, 0u, 7u, 64000u})
        append_word(codecs, word);
    EXPECT_EQ(line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                       .call(1, kApplication, "register_endpoint")
                       .with_text("plugin_name", "fxs1")
                       .with_text("endpoint_name", "FXS1")
                       .with_text("endpoint_path", "fxs1.EndPoint.FXS1")
                       .with_int16("type", 1)
                       .with_bytes("codeclist", codecs)),
              "00:00:00.000 fxs1 FXS1      --> register_endpoint  type FXS  codecs PCMA PCMU");
}

TEST_F(At80, PathThatIsNotTheEndpointsIsShown) {
    EXPECT_EQ(line(Sample(KEX_TAP_CALL, in, 1, "fxs_plugin")
                       .call(1, kApplication, "register_endpoint")
                       .with_text("plugin_name", "fxs1")
                       .with_text("endpoint_name", "FXS1")
                       .with_text("endpoint_path", "fxs2.EndPoint.FXS1")),
              "00:00:00.000 fxs1 FXS1      --> register_endpoint  path \"fxs2.EndPoint.FXS1\"");
}

TEST_F(At80, SocketsByTheirNumbers) {
    EXPECT_EQ(line(Sample(KEX_TAP_ONE_WAY_CALL, out, 1, "fxs_plugin")
                       .call(3, "fxs1.EndPoint.FXS2", "create")
                       .with_uint32("ep_line_id", 1)
                       .with_descriptors("filedesc", {7, 8, -1})),
              "00:00:00.000 fxs1 FXS2      <-- create  line 1  sockets 7 8 -");
}

TEST_F(At80, ErrorsInTwoRows) {
    EXPECT_EQ(line(endpoint_refused()), "00:00:00.011 x FXS1         <-- register_endpoint answered\n"
                                        "              error 196638 \"Missing 'type' parameter.\" \"type\"  false ...");
}

// Whatever comes, a message takes two rows of 80 columns, or one of 160.
TEST_F(At80, NothingMakesAMessageLonger) {
    const std::string letters(2000, 'x');
    std::string blanks;
    for (int i = 0; i < 1000; ++i)
        blanks += "a ";
    std::string wide;
    for (int i = 0; i < 1000; ++i)
        wide += "\xE6\xBC\xA2";
    const std::string controls(2000, '\x1B');
    for (const std::string &text : {letters, blanks, wide, controls}) {
        Bytes parameters;
        for (int i = 0; i < 10; ++i)
            add_text(parameters, LIBVOICE_PARAM_zil_ep_dispname, text);
        for (const auto &[columns, rows] : {std::pair<size_t, size_t>{80, 2}, {160, 1}, {60, 2}, {200, 2}}) {
            std::vector<std::string> lines;
            lines.push_back(line(Sample(KEX_TAP_CONNECTED, in, 1, text.c_str()), columns, rows));
            lines.push_back(line(Sample(KEX_TAP_CLOSED, in, 2, text.c_str()).text(text.c_str()), columns, rows));
            lines.push_back(line(Sample(KEX_TAP_REFUSED, in, 3, "x").text(text.c_str()), columns, rows));
            lines.push_back(line(Sample(KEX_TAP_CALL, in, 4, text.c_str())
                                     .call(1, text.c_str(), text.c_str())
                                     .with_text("plugin_name", text.c_str())
                                     .with_text(text.c_str(), text.c_str()),
                                 columns, rows));
            lines.push_back(line(Sample(KEX_TAP_REPLY, out, 4, "x")
                                     .serial(1)
                                     .with_error(1, text.c_str(), text.c_str())
                                     .with_text("", text.c_str()),
                                 columns, rows));
            lines.push_back(line(Sample(KEX_TAP_ONE_WAY_CALL, in, 5, "x")
                                     .call(1, kApplication, "event")
                                     .with_bytes("event", event_bytes(1, LIBVOICE_EVENT_al_of, parameters)),
                                 columns, rows));
            for (const std::string &one : lines) {
                std::istringstream stream(one);
                size_t count = 0;
                for (std::string row; std::getline(stream, row); ++count)
                    EXPECT_LE(columns_of(row), columns) << row;
                EXPECT_LE(count, rows) << one;
                EXPECT_EQ(one.find('\x1B'), std::string::npos);
            }
        }
    }
}

} // namespace

} // namespace voicectl
