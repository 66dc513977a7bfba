// SPDX-License-Identifier: MIT
// A simulated telephone by its interface: what its user hears and sees, and what it reports.
#include "telephone_fixture.h"

#include "country_tones.h"
#include "udp_pair.h"

#include <algorithm>
#include <set>
#include <string.h>

// ------------------------------------------------------------------------------------------------ In place of a plugin

Texts telephone_reports;

bool line_report_off_hook(line_t *line) {
    telephone_reports.push_back(std::to_string(line->number) + " off hook");
    return true;
}

bool line_report_on_hook(line_t *line) {
    telephone_reports.push_back(std::to_string(line->number) + " on hook");
    return true;
}

bool line_report_flash(line_t *line) {
    telephone_reports.push_back(std::to_string(line->number) + " flash");
    return true;
}

bool line_report_statistics(line_t *line, uint32_t appearance, const line_statistics_t *) {
    telephone_reports.push_back(std::to_string(line->number) + " statistics " + std::to_string(appearance));
    return true;
}

int line_number(const line_t *line) {
    return line->number;
}

bool line_is_registered(const line_t *line) {
    return line->registered;
}

// ----------------------------------------------------------------------------------------------------------- The tests

namespace {

line_display_t caller(const char *number, const char *name, char no_number = 0) {
    return {"", false, false, number, name, "", "11211024", no_number, 0, 0, false};
}

} // namespace

TEST_F(Telephone, DisplaysWhoCalls) {
    const line_display_t rows[] = {caller("201", "Study"), caller("", "", 'P'), caller("", "", 'O')};
    for (const line_display_t &row : rows)
        EXPECT_EQ(driver_.display(&phone_, &row), nullptr);
    line_display_t waiting = caller("", "");
    waiting.is_messages = true;
    waiting.messages = 3;
    waiting.lamp = true;
    EXPECT_EQ(driver_.display(&phone_, &waiting), nullptr);
    EXPECT_EQ(said(), "3 displays number=201 name=\"Study\" time=11211024\n"
                      "3 displays number=withheld name=\"\" time=11211024\n"
                      "3 displays number=unavailable name=\"\" time=11211024\n"
                      "3 displays messages=3 lamp=on\n");
}

TEST_F(Telephone, TheUserActsInOrder) {
    EXPECT_STREQ(telephone_hang_up(&phone_), "3 is on hook already");
    EXPECT_STREQ(telephone_flash(&phone_), "3 is on hook: lift it first");
    EXPECT_EQ(telephone_lift(&phone_), nullptr);
    EXPECT_STREQ(telephone_lift(&phone_), "3 is off hook already");
    EXPECT_EQ(telephone_flash(&phone_), nullptr);
    play(LIBVOICE_SIGNAL_cg_dt);
    run(2000);
    EXPECT_EQ(telephone_hang_up(&phone_), nullptr);
    run(2000); // nobody listens any more
    EXPECT_EQ(telephone_reports, (Texts{"3 off hook", "3 flash", "3 on hook"}));
    EXPECT_EQ(said(), "3 off hook\n3 flashes\n3 plays dial-tone\n3 hears dial-tone\n3 on hook\n");
}

TEST_F(Telephone, KeepsItsParameters) {
    const line_value_t name = {LINE_VALUE_TEXT, 0, "A name that is longer than the fifty characters of a display",
                               nullptr, 0};
    const line_value_t gain = {LINE_VALUE_INTEGER, -3, nullptr, nullptr, 0};
    EXPECT_TRUE(driver_.set(&phone_, LIBVOICE_PARAM_zil_ep_dispname, &name));
    EXPECT_TRUE(driver_.set(&phone_, LIBVOICE_PARAM_tdmc_gain, &gain));
    EXPECT_FALSE(driver_.set(&phone_, LIBVOICE_PARAM_zil_dect_pp_type, &gain)) << "nobody changes a handset's kind";
    EXPECT_FALSE(driver_.set(&phone_, LIBVOICE_PARAM_tdmc_ec, &gain));
    EXPECT_EQ(said(), "3 param zil_ep_dispname=\"A name that is longer than the fifty characters of\"\n"
                      "3 param tdmc_gain=-3\n");
    line_value_t value = {};
    EXPECT_TRUE(driver_.get(&phone_, LIBVOICE_PARAM_tdmc_gain, &value));
    EXPECT_EQ(value.number, -3);
    EXPECT_TRUE(driver_.get(&phone_, LIBVOICE_PARAM_zil_ep_dispname, &value));
    EXPECT_EQ(strlen(value.text), 50u);
    EXPECT_FALSE(driver_.get(&phone_, LIBVOICE_PARAM_zil_dect_pp_type, &value)) << "no handset";
    phone_.handset_type = 3;
    EXPECT_TRUE(driver_.get(&phone_, LIBVOICE_PARAM_zil_dect_pp_type, &value));
    EXPECT_EQ(value.number, 3);
}

TEST_F(Telephone, ParametersHaveTheirRanges) {
    const struct {
        uint32_t parameter;
        int32_t least, most;
    } rows[] = {
        {LIBVOICE_PARAM_tdmc_gain, -60, 20},  {LIBVOICE_PARAM_tdmc_rxgain, -60, 20},
        {LIBVOICE_PARAM_ajb_jitmin, 10, 200}, {LIBVOICE_PARAM_ajb_jitnom, 10, 200},
        {LIBVOICE_PARAM_ajb_enabjb, 0, 1},    {LIBVOICE_PARAM_ajb_ar, 5, 100},
    };
    for (const auto &row : rows) {
        line_value_t value = {LINE_VALUE_INTEGER, 0, nullptr, nullptr, 0};
        ASSERT_TRUE(driver_.get(&phone_, row.parameter, &value));
        const int32_t before = value.number;
        for (int32_t wrong : {row.least - 1, row.most + 1, INT32_MIN, INT32_MAX}) {
            value.number = wrong;
            EXPECT_FALSE(driver_.set(&phone_, row.parameter, &value)) << row.parameter << " " << wrong;
        }
        for (int32_t right : {row.least, row.most, before}) {
            value.number = right;
            EXPECT_TRUE(driver_.set(&phone_, row.parameter, &value)) << row.parameter << " " << right;
            ASSERT_TRUE(driver_.get(&phone_, row.parameter, &value));
            EXPECT_EQ(value.number, right);
        }
    }
    line_value_t automatic = {LINE_VALUE_INTEGER, -1, nullptr, nullptr, 0};
    EXPECT_FALSE(driver_.set(&phone_, LIBVOICE_PARAM_tdmc_gain, &automatic)) << "automatic gain is not here";
    for (uint32_t parameter : {LIBVOICE_PARAM_ajb_jitcur, LIBVOICE_PARAM_ajb_type}) {
        line_value_t value = {LINE_VALUE_INTEGER, 1, nullptr, nullptr, 0};
        EXPECT_TRUE(driver_.get(&phone_, parameter, &value));
        EXPECT_FALSE(driver_.set(&phone_, parameter, &value)) << "it is measured, not set";
    }
}

TEST_F(Telephone, GainsMakeSoundLouderAndSofter) {
    line_value_t gain = {LINE_VALUE_INTEGER, -20, nullptr, nullptr, 0};
    ASSERT_TRUE(driver_.set(&phone_, LIBVOICE_PARAM_tdmc_gain, &gain));
    gain.number = 6;
    ASSERT_TRUE(driver_.set(&phone_, LIBVOICE_PARAM_tdmc_rxgain, &gain));
    EXPECT_NEAR(phone_.sound.heard_factor, 0.1, 1e-6);
    EXPECT_NEAR(phone_.sound.said_factor, 1.9953, 1e-4);
    for (uint32_t parameter : {LIBVOICE_PARAM_tdmc_gain, LIBVOICE_PARAM_tdmc_rxgain}) {
        gain.number = 0;
        ASSERT_TRUE(driver_.set(&phone_, parameter, &gain));
    }
    EXPECT_EQ(phone_.sound.heard_factor, 1);
}

TEST_F(Telephone, MediaIsSaidAndCounted) {
    int sockets[2];
    make_udp_pair(sockets);
    line_media_t media = {VOICE_MODE_SEND_RECEIVE, LIBVOICE_CODEC_PCMA, 8, 20, 5, 1, sockets[0], -1};
    EXPECT_EQ(driver_.open(&phone_, 1, &media), nullptr);
    std::string text = said();
    EXPECT_EQ(text.rfind("3 talking line=1 codec=PCMA ports=", 0), 0u) << text;
    EXPECT_NE(text.find(" context=5 stream=1\n"), std::string::npos) << text;
    media.mode = VOICE_MODE_INACTIVE;
    media.media = -1;
    EXPECT_EQ(driver_.change(&phone_, 1, &media), nullptr);
    EXPECT_EQ(said().rfind("3 on hold line=1 codec=PCMA", 0), 0u);
    driver_.close(&phone_, 1);
    EXPECT_EQ(said(), "3 media ended line=1 tx=0 rx=0 lost=0 discarded=0 jitter=0 rtcp=0/0 late=0 twice=0 concealed=0 "
                      "buffer=0/0/0 roundtrip=0\n");
    EXPECT_EQ(telephone_reports, (Texts{"3 statistics 1"}));
    driver_.close(&phone_, 1);
    EXPECT_EQ(said(), "") << "there is nothing to close";
    close(sockets[1]);
}

TEST(VoiceOfPlugin, FollowsTheFigureAtTheEndOfItsName) {
    EXPECT_EQ(voice_of_plugin("fxs1"), 1000u);
    EXPECT_EQ(voice_of_plugin("fxs2"), 2200u);
    EXPECT_EQ(voice_of_plugin("fxs4"), 2600u);
    EXPECT_EQ(voice_of_plugin("fxs5"), 1000u);
    EXPECT_EQ(voice_of_plugin("fxs"), 1000u);
    EXPECT_EQ(voice_of_plugin(""), 1000u);
}

TEST(VoiceOfPlugin, OfExchangeLinesFollowsItToo) {
    EXPECT_EQ(voice_of_exchange("fxo1"), 3000u);
    EXPECT_EQ(voice_of_exchange("fxo2"), 3200u);
    EXPECT_EQ(voice_of_exchange("fxo3"), 3000u);
}

// Neither a tone of a country nor, with another voice, a key; ITU-T Q.24 takes a key's frequency up to 3.5 % off.
TEST(VoiceOfPlugin, IsHeardAndIsNoToneAndNoKey) {
    constexpr const char *kCountries[] = {"FR", "DE", "GB", "US", "CH", "SE", "IT", "ES", "NL", "BE", "AU", "JP", "BR"};
    constexpr uint32_t kKeys[] = {697, 770, 852, 941, 1209, 1336, 1477, 1633};
    constexpr uint32_t kHandset = 20; // above the telephone, and there are two of them
    std::set<uint32_t> first;
    for (const char *name : {"x1", "x2", "x3", "x4"}) {
        first.insert(voice_of_plugin(name));
        first.insert(voice_of_plugin(name) + kHandset);
        first.insert(voice_of_exchange(name));
    }
    EXPECT_EQ(first.size(), 10u) << "each its own";
    std::set<uint32_t> frequencies;
    for (const char *country : kCountries)
        for (uint32_t tone = 0; tone < TONES; tone++) {
            const tone_pattern pattern =
                tone_pattern_read(country_tone(country, static_cast<network_tone>(tone))->text);
            for (uint32_t i = 0; i < pattern.count; i++)
                frequencies.insert({pattern.elements[i].first, pattern.elements[i].second});
        }
    for (uint32_t begin : first)
        for (uint32_t place = 0; place < (begin % 40 == kHandset ? 2 : 5); place++) {
            const uint32_t voice = begin + 40 * place;
            EXPECT_EQ(voice % kDetectorStep, 0u) << voice;
            EXPECT_LE(voice, kDetectorHighest);
            for (uint32_t key : kKeys)
                EXPECT_GT(std::max(voice, key) - std::min(voice, key), key * 35 / 1000) << voice;
            for (uint32_t frequency : frequencies)
                EXPECT_GE(std::max(voice, frequency) - std::min(voice, frequency), 40u) << voice;
        }
}
