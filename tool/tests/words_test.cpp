// SPDX-License-Identifier: MIT
// Values in the words of the field.
#include "words.h"

#include <fstream>
#include <limits>
#include <regex>

#include <gtest/gtest.h>

#include "codec_names.h"
#include "libvoice_plugin.h"
#include "samples.h"

namespace voicectl {

namespace {

Item item_of(const Bytes &parameters) {
    const Record record = record_read(RecordKind::param_set, set_bytes(parameters));
    EXPECT_EQ(record.items.size(), 1u);
    return record.items.empty() ? Item{} : record.items[0];
}

std::string number_words(uint32_t id, int32_t number) {
    Bytes parameters;
    add_word(parameters, id, static_cast<uint32_t>(number));
    return item_words(item_of(parameters));
}

std::string bytes_words(uint32_t id, const Bytes &bytes) {
    Bytes parameters;
    add_item(parameters, id, bytes);
    return item_words(item_of(parameters));
}

std::string text_words(uint32_t id, std::string_view text) {
    Bytes parameters;
    add_text(parameters, id, text);
    return item_words(item_of(parameters));
}

Bytes words(std::initializer_list<uint32_t> list) {
    Bytes bytes;
    for (const uint32_t word : list)
        append_word(bytes, word);
    return bytes;
}

TEST(Words, NumbersWithTheirUnits) {
    EXPECT_EQ(number_words(LIBVOICE_PARAM_al_ri_freq, 25), "25 Hz");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_al_fl_mindur, 80), "80 ms");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_rtp_pl, 2), "2 %");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_tdmc_gain, -3), "-3 dB");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_tdmc_gain, -1), "automatic"); // 0xFFFFFFFF
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_t38maxbitrate, 14400), "14400 bit/s");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_zil_call_stats_jitter, 7), "7"); // no unit of its own
}

TEST(Words, NumbersByName) {
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_upstream_codec, 8), "PCMA");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_downstream_codec, 130), "G726-32");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_zil_ep_supported_codec, 99), "codec 99");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_stream_mode, 0), "inactive");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_stream_mode, 3), "both ways");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_stream_mode, 4), "4");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_sdp_stream_mode, std::numeric_limits<int32_t>::min()), "-2147483648");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_zil_ep_type, 3), "FXO");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_zil_ep_type, 0), "0");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_g_cause_generalcause, 4), "permanent failure");
    EXPECT_EQ(number_words(LIBVOICE_PARAM_g_cause_generalcause, 7), "7");
}

TEST(Words, CadenceAndOtherWords) {
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_al_ri_cad, words({1000, 4000})), "1000/4000 ms");
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_al_ri_cad, words({400, 200, 400, 2000})), "400/200/400/2000 ms");
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_rtp_pltrans_rtppltype, words({8})), "8");
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_al_ri_cad, {1, 2, 3}), "01 02 03");
}

TEST(Words, ToneListHasFrequencyLevelAndTimes) {
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_tonegen_pt_tl, words({440, static_cast<uint32_t>(-105), 200, 100})),
              "440 Hz -10.5 dBm0 200/100 ms");
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_tonegen_pt_tl, words({440, 0})), "[440, 0]");
}

TEST(Words, TextsAndBytes) {
    EXPECT_EQ(text_words(LIBVOICE_PARAM_zil_country, "DE"), "\"DE\"");
    EXPECT_EQ(text_words(LIBVOICE_PARAM_zil_country, "\x1B[2J"), "\"\\x1B[2J\"");
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_zil_fxs_power, {0xAB, 1}), "AB 01");
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_zil_fxs_power, Bytes(9, 0)), "9 bytes");
}

TEST(Words, WithoutAValueThereAreNone) {
    for (const uint32_t id : {LIBVOICE_PARAM_tdmc_gain, LIBVOICE_PARAM_al_ri_cad, LIBVOICE_PARAM_andisp_data_db,
                              LIBVOICE_PARAM_tonegen_pt_tl, LIBVOICE_PARAM_zil_country})
        EXPECT_EQ(bytes_words(id, {}), "");
}

TEST(Words, CallerDisplayIsShownAsATelephoneWould) {
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_data_db, kCallerBlock), "101 \"FXS1\" at 11-21 11:38 for 102");
    EXPECT_EQ(text_words(LIBVOICE_PARAM_fxo_ri_cid, kCallerBlock), "101 \"FXS1\" at 11-21 11:38 for 102");
    // Reasons for absence: number 'P' (0x04), name 'O' (0x08). The checksum is the sum of all bytes before it.
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_dwa_ddb, "800604015008014F33"), "number withheld name unavailable");
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_data_db, "800080"), "nothing");
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_data_db, kWaitingBlock), "3 messages, lamp on");
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_data_db, "82030B010091"), "0 messages, lamp off");
}

TEST(Words, CallerDisplayInLowerCase) {
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_data_db, "82060b01ff1301"
                                                        "03aa"),
              "3 messages, lamp on");
}

TEST(Words, CallerDisplayCannotSteerTheTerminal) {
    // The number is ESC [ 2 J.
    EXPECT_EQ(text_words(LIBVOICE_PARAM_andisp_data_db, "800602041B5B324A7E"), "\\x1B[2J");
}

TEST(Words, BrokenDataBlocksAreSaidSo) {
    for (const char *text : {"", "8", "80", "8000", "800081", "810081", "80FF80", "zz0080", "8000801", "+8-0 8",
                             "801A0108313132313131333802033130310704465853310303313032", "80 080", "0000"}) {
        const std::string shown = text_words(LIBVOICE_PARAM_andisp_data_db, text);
        EXPECT_EQ(shown.find("bad data block, "), 0u) << text << ": " << shown;
    }
    EXPECT_EQ(bytes_words(LIBVOICE_PARAM_andisp_data_db, {0x80, 0, 0x80}), "bad data block, 80 00 80");
}

TEST(Words, EveryPrefixOfABlockIsReadSafely) {
    const std::string_view whole = kCallerBlock;
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(caller_display_read(whole.substr(0, size))) << size;
    EXPECT_TRUE(caller_display_read(whole));
}

TEST(Words, CodecListIsNamesUnlessItIsBroken) {
    EXPECT_EQ(codec_list_words(words({8, 8, 7, 64000, 130, 98, 2, 32000})), "PCMA G726-32");
    EXPECT_EQ(codec_list_words(words({8, 8, 7})), "");
    EXPECT_EQ(codec_list_words({}), "");
}

TEST(Words, EveryCodecOfTheHeaderHasItsName) {
    std::ifstream header(LIBVOICE_HEADER);
    ASSERT_TRUE(header) << LIBVOICE_HEADER;
    const std::string text{std::istreambuf_iterator<char>(header), {}};
    const std::regex row("^    LIBVOICE_CODEC_(\\w+) = (\\d+)", std::regex::multiline);
    size_t count = 0;
    for (std::sregex_iterator found(text.begin(), text.end(), row); found != std::sregex_iterator(); ++found, ++count)
        EXPECT_EQ(codec_name(std::stoi((*found)[2])), std::regex_replace((*found)[1].str(), std::regex("_"), "-"));
    EXPECT_GT(count, 40u);
}

} // namespace

} // namespace voicectl
