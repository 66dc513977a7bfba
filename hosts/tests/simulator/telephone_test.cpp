// SPDX-License-Identifier: MIT
// A simulated telephone by its interface: what its user hears and sees, and what it reports.
#include "telephone.h"

#include "fake_line.h"
#include "kex_host.h"
#include "udp_pair.h"

#include <gtest/gtest.h>

#include <string.h>
#include <string>
#include <vector>

// ------------------------------------------------------------------------------------------------ In place of a plugin

namespace {

std::vector<std::string> reports;
line_statistics_t last_statistics;

} // namespace

bool line_report_off_hook(line_t *line) {
    reports.push_back(std::to_string(line->number) + " off hook");
    return true;
}

bool line_report_on_hook(line_t *line) {
    reports.push_back(std::to_string(line->number) + " on hook");
    return true;
}

bool line_report_flash(line_t *line) {
    reports.push_back(std::to_string(line->number) + " flash");
    return true;
}

bool line_report_statistics(line_t *line, uint32_t appearance, const line_statistics_t *statistics) {
    reports.push_back(std::to_string(line->number) + " statistics " + std::to_string(appearance));
    last_statistics = *statistics;
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

using Texts = std::vector<std::string>;

class Telephone : public testing::Test {
protected:
    static void SetUpTestSuite() { bus_ = kex_create("telephone_test"); }
    static void TearDownTestSuite() { kex_destroy(bus_); }

    void SetUp() override {
        audio_begin(bus_, "telephone_test");
        telephone_begin(&phone_, &line_, 400);
        phone_.off_hook = phone_.ringing = false;
        phone_.tone[0] = phone_.name[0] = 0;
        reports.clear();
        testing::internal::CaptureStdout();
    }
    void TearDown() override { testing::internal::GetCapturedStdout(); }

    // What has been said since the last question.
    static std::string said() {
        fflush(stdout);
        std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }
    const char *play(uint32_t signal, const voice_tone_t *list = nullptr, uint32_t count = 0) {
        const line_tone_t tone = {signal, 0, list, count};
        return driver_.play(&phone_, &tone);
    }
    const char *ring(const uint32_t *cadence = nullptr, uint32_t count = 0) {
        const line_ring_t order = {cadence, count, -1};
        return driver_.ring(&phone_, &order);
    }

    static inline kex_t *bus_;
    plugin_line line_ = {3, true};
    // It stays in the list of sounds that the clock drives, for the life of the process.
    static inline telephone phone_;
    const line_driver_t driver_ = telephone_driver();
};

line_display_t caller(const char *number, const char *name, char no_number = 0) {
    return {"", false, false, number, name, "", "11211024", no_number, 0, 0, false};
}

} // namespace

TEST_F(Telephone, HearsTonesByTheirNames) {
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_dt), nullptr);
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_dt), nullptr);
    EXPECT_EQ(said(), "3 hears dial-tone\n") << "once";
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_bt), nullptr);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_cg_dt);
    EXPECT_EQ(said(), "3 hears busy-tone\n") << "another tone than the one that plays is not stopped";
    driver_.stop(&phone_, LIBVOICE_SIGNAL_cg_bt);
    EXPECT_EQ(said(), "3 hears silence\n");
    EXPECT_STREQ(play(LIBVOICE_SIGNAL_dg_d5), "ignores LIBVOICE_SIGNAL_dg_d5");
}

TEST_F(Telephone, HearsTheFirstToneOfAList) {
    const voice_tone_t list[] = {{425, -100, 200, 200}, {950, -100, 200, 0}};
    EXPECT_EQ(play(LIBVOICE_SIGNAL_tonegen_pt, list, 2), nullptr);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_tonegen_pt);
    EXPECT_EQ(said(), "3 hears tone-425Hz\n3 hears silence\n");
}

TEST_F(Telephone, RingsUntilItIsStoppedOrLifted) {
    const uint32_t cadence[] = {1000, 4000};
    EXPECT_EQ(ring(cadence, 2), nullptr);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_al_ri);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_al_ri);
    EXPECT_EQ(said(), "3 rings cadence=1000/4000\n3 stops ringing\n");
    EXPECT_EQ(ring(), nullptr);
    EXPECT_EQ(telephone_lift(&phone_), nullptr);
    EXPECT_EQ(said(), "3 rings\n3 off hook\n3 stops ringing\n");
    EXPECT_STREQ(ring(), "is off hook: does not ring");
    EXPECT_EQ(reports, (Texts{"3 off hook"}));
}

TEST_F(Telephone, ALongCadenceFitsIntoOneLine) {
    uint32_t cadence[64];
    for (uint32_t &ms : cadence)
        ms = UINT32_MAX;
    EXPECT_EQ(ring(cadence, 64), nullptr);
    EXPECT_LT(said().size(), 120u);
}

TEST_F(Telephone, AllStopsTogether) {
    ring();
    play(LIBVOICE_SIGNAL_cg_cw);
    said();
    driver_.stop(&phone_, LIBVOICE_SIGNAL_zil_cancel_all_signals);
    EXPECT_EQ(said(), "3 stops ringing\n3 hears silence\n");
}

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
    EXPECT_EQ(telephone_hang_up(&phone_), nullptr);
    EXPECT_EQ(phone_.tone[0], 0) << "nobody listens any more";
    EXPECT_EQ(reports, (Texts{"3 off hook", "3 flash", "3 on hook"}));
    EXPECT_EQ(said(), "3 off hook\n3 flashes\n3 hears dial-tone\n3 on hook\n");
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

TEST_F(Telephone, OtherSignals) {
    EXPECT_EQ(driver_.signal(&phone_, LIBVOICE_SIGNAL_xal_nd, nullptr, 0), nullptr);
    EXPECT_STREQ(driver_.signal(&phone_, LIBVOICE_SIGNAL_xal_las, nullptr, 0), "ignores LIBVOICE_SIGNAL_xal_las");
    EXPECT_EQ(said(), "3 line open\n");
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
    EXPECT_EQ(reports, (Texts{"3 statistics 1"}));
    driver_.close(&phone_, 1);
    EXPECT_EQ(said(), "") << "there is nothing to close";
    close(sockets[1]);
}

TEST(ToneOfPlugin, FollowsTheFigureAtTheEndOfItsName) {
    EXPECT_EQ(tone_of_plugin("fxs1"), 400u);
    EXPECT_EQ(tone_of_plugin("fxs2"), 600u);
    EXPECT_EQ(tone_of_plugin("fxs4"), 1000u);
    EXPECT_EQ(tone_of_plugin("fxs5"), 400u);
    EXPECT_EQ(tone_of_plugin("fxs"), 400u);
    EXPECT_EQ(tone_of_plugin(""), 400u);
}
