// SPDX-License-Identifier: MIT
// Each signal of the application, as the driver is given it.
#include "line_fixture.h"

#include "caller_display.h"

namespace {

class LineSignal : public LineTest {
protected:
    LineSignal() {
        add();
        init(7);
        news();
    }
    // A signal for line 7. Items are added before it is sent.
    voice_signal_message_t *message(uint32_t id, uint32_t flags = 0, uint32_t appearance = 0) {
        voice_signal_begin(&message_, 7, id, appearance);
        voice_signal_set_flags(&message_, flags);
        return &message_;
    }
    // Whether it was accepted.
    bool send() { return callbacks_.voice_plugin_signal(&message_.record) == 0; }
    bool send(uint32_t id, uint32_t flags = 0) {
        message(id, flags);
        return send();
    }

    voice_signal_message_t message_ = {};
};

constexpr uint32_t kStop = VOICE_SIGNAL_STOP;

} // namespace

TEST_F(LineSignal, TonesArePlayedAndStopped) {
    message(LIBVOICE_SIGNAL_cg_dt, 0, 1);
    EXPECT_TRUE(send());
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_srvtn_ht));
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_dg_d5));
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_cg_dt, kStop));
    EXPECT_EQ(news(), (Texts{"L1 play LIBVOICE_SIGNAL_cg_dt line=1", "L1 play LIBVOICE_SIGNAL_srvtn_ht line=0",
                             "L1 play LIBVOICE_SIGNAL_dg_d5 line=0", "L1 stop LIBVOICE_SIGNAL_cg_dt"}));
}

TEST_F(LineSignal, AToneListIsDecoded) {
    const voice_tone_t list[] = {{440, -100, 200, 0}, {0, 0, 0, 300}};
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_tonegen_pt), LIBVOICE_PARAM_tonegen_pt_tl, list, sizeof list);
    EXPECT_TRUE(send());
    EXPECT_EQ(news(), (Texts{"L1 play LIBVOICE_SIGNAL_tonegen_pt line=0 440/-100/200/0 0/0/0/300"}));
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_tonegen_pt), LIBVOICE_PARAM_tonegen_pt_tl, list, 15);
    EXPECT_FALSE(send()) << "not one whole tone";
    EXPECT_FALSE(send(LIBVOICE_SIGNAL_tonegen_pt));
    EXPECT_EQ(news(), (Texts{"says: 1 plays nothing: no tone list", "says: 1 plays nothing: no tone list"}));
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_tonegen_pt, kStop));
    EXPECT_EQ(news(), (Texts{"L1 stop LIBVOICE_SIGNAL_tonegen_pt"}));
}

TEST_F(LineSignal, ALongToneListIsCutAtThirtyTwo) {
    const std::vector<voice_tone_t> list(31, {400, 0, 1, 1}); // what the room of a message holds
    ASSERT_TRUE(voice_signal_add_bytes(message(LIBVOICE_SIGNAL_tonegen_pt), LIBVOICE_PARAM_tonegen_pt_tl, list.data(),
                                       static_cast<uint32_t>(list.size() * sizeof list[0])));
    EXPECT_TRUE(send());
    const std::string text = news().front();
    EXPECT_EQ(std::count(text.begin(), text.end(), ' '), 3 + 31) << text;
}

TEST_F(LineSignal, RingingBringsItsCadence) {
    const uint32_t cadence[] = {1000, 4000};
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_al_ri), LIBVOICE_PARAM_al_ri_cad, cadence, sizeof cadence);
    EXPECT_TRUE(send());
    voice_signal_add_i32(message(LIBVOICE_SIGNAL_alert_ri), LIBVOICE_PARAM_alert_ri_pattern, 2);
    EXPECT_TRUE(send());
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_al_ri));
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_alert_ri, kStop));
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_alert_rs, kStop));
    EXPECT_EQ(news(), (Texts{"L1 ring pattern=-1 1000 4000", "L1 ring pattern=2", "L1 ring pattern=-1",
                             "L1 stop LIBVOICE_SIGNAL_al_ri", "L1 stop LIBVOICE_SIGNAL_al_ri"}));
}

TEST_F(LineSignal, DisplaysAreDecoded) {
    char block[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = caller_display_encode("201", "Study", "101", block);
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_andisp_data), LIBVOICE_PARAM_andisp_data_db, block, length);
    EXPECT_TRUE(send());
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_andisp_dwa), LIBVOICE_PARAM_andisp_dwa_ddb, block, length);
    EXPECT_TRUE(send());
    length = caller_display_encode("", "", nullptr, block);
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_andisp_data), LIBVOICE_PARAM_andisp_data_db, block, length);
    EXPECT_TRUE(send());
    length = message_display_encode(3, block);
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_andisp_data), LIBVOICE_PARAM_andisp_data_db, block, length);
    EXPECT_TRUE(send());
    EXPECT_EQ(news(), (Texts{"L1 display number=201 name=Study called=101 why=-", "L1 ring pattern=-1",
                             "L1 display number=201 name=Study called=101 why=- with ringing",
                             "L1 display number= name= called= why=P", "L1 display messages=3 lamp=1"}));
}

TEST_F(LineSignal, BrokenBlocksReachNoDisplay) {
    for (const char *block : {"80050203313031FF", "8", "", "82FF", "nonsense"}) {
        voice_signal_add_bytes(message(LIBVOICE_SIGNAL_andisp_data), LIBVOICE_PARAM_andisp_data_db, block,
                               static_cast<uint32_t>(strlen(block) + 1));
        EXPECT_FALSE(send()) << block;
        EXPECT_EQ(news(), (Texts{"says: 1 displays nothing: bad data block"})) << block;
    }
    EXPECT_FALSE(send(LIBVOICE_SIGNAL_andisp_data));
    EXPECT_EQ(news(), (Texts{"says: 1 displays nothing: no data block"}));
}

TEST_F(LineSignal, TowardsAnExchange) {
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_fxo_of));
    voice_signal_add_text(message(LIBVOICE_SIGNAL_fxoen_sd), LIBVOICE_PARAM_fxoen_sd_ds, "030#");
    EXPECT_TRUE(send());
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_fxo_fl));
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_fxo_on));
    EXPECT_EQ(news(), (Texts{"L1 seize", "L1 dial 030#", "L1 flash", "L1 release"}));
    EXPECT_FALSE(send(LIBVOICE_SIGNAL_fxoen_sd));
    EXPECT_EQ(news(), (Texts{"says: 1 dials nothing: no digits"}));
}

// A driver may hand them to a modem: what is no key, or only a part of a number, must not get there.
TEST_F(LineSignal, OnlyWholeNumbersOfKeysAreDialled) {
    const std::string longest(63, '1');
    for (const std::string &digits : {std::string("0123456789*#ABCD"), longest}) {
        voice_signal_add_text(message(LIBVOICE_SIGNAL_fxoen_sd), LIBVOICE_PARAM_fxoen_sd_ds, digits.c_str());
        EXPECT_TRUE(send());
        EXPECT_EQ(news(), (Texts{"L1 dial " + digits}));
    }
    for (const std::string &digits :
         {std::string("030;+CMUT"), std::string("030\n"), std::string("030 1"), longest + "1"}) {
        voice_signal_add_text(message(LIBVOICE_SIGNAL_fxoen_sd), LIBVOICE_PARAM_fxoen_sd_ds, digits.c_str());
        EXPECT_FALSE(send()) << digits;
        EXPECT_EQ(news(), (Texts{"says: 1 dials nothing: a number has 1 to 63 of 0123456789ABCD*#"})) << digits;
    }
    voice_signal_add_text(message(LIBVOICE_SIGNAL_fxoen_sd), LIBVOICE_PARAM_fxoen_sd_ds, "");
    EXPECT_FALSE(send());
    EXPECT_EQ(news(), (Texts{"says: 1 dials nothing: no digits"}));
}

TEST_F(LineSignal, TonesAreForTheCallsOfALine) {
    message(LIBVOICE_SIGNAL_cg_dt, 0, LINE_APPEARANCES - 1);
    EXPECT_TRUE(send());
    EXPECT_EQ(news(), (Texts{"L1 play LIBVOICE_SIGNAL_cg_dt line=1"}));
    for (uint32_t appearance : {static_cast<uint32_t>(LINE_APPEARANCES), UINT32_MAX}) {
        message(LIBVOICE_SIGNAL_cg_dt, 0, appearance);
        EXPECT_FALSE(send()) << appearance;
        EXPECT_EQ(news(), (Texts{"says: 1 plays nothing: no such line"})) << appearance;
    }
}

TEST_F(LineSignal, AllStopsTogether) {
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_zil_cancel_all_signals));
    EXPECT_EQ(news(), (Texts{"L1 stop LIBVOICE_SIGNAL_zil_cancel_all_signals"}));
}

TEST_F(LineSignal, AllOthersComeWithTheirParameters) {
    voice_signal_add_i32(message(LIBVOICE_SIGNAL_xal_nd), LIBVOICE_PARAM_tdmc_gain, 1);
    EXPECT_TRUE(send());
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_zil_deregister));
    EXPECT_EQ(news(), (Texts{"L1 signal LIBVOICE_SIGNAL_xal_nd of 12 bytes",
                             "L1 signal LIBVOICE_SIGNAL_zil_deregister of 0 bytes"}));
}

TEST_F(LineSignal, WhyNotIsSaidWithTheLinesNumber) {
    answers("is out of order");
    for (uint32_t id : {LIBVOICE_SIGNAL_cg_dt, LIBVOICE_SIGNAL_al_ri, LIBVOICE_SIGNAL_fxo_of, LIBVOICE_SIGNAL_fxo_on,
                        LIBVOICE_SIGNAL_fxo_fl, LIBVOICE_SIGNAL_xal_nd}) {
        EXPECT_FALSE(send(id)) << libvoice_param_str(id);
        EXPECT_EQ(news().back(), "says: 1 is out of order");
    }
    EXPECT_TRUE(send(LIBVOICE_SIGNAL_cg_dt, kStop)) << "nothing is asked for";
}

TEST_F(LineSignal, ALineThatDoesNotRingDisplaysNothing) {
    char block[LIBVOICE_DB_TEXT_BYTES];
    uint32_t length = caller_display_encode("201", nullptr, nullptr, block);
    voice_signal_add_bytes(message(LIBVOICE_SIGNAL_andisp_dwa), LIBVOICE_PARAM_andisp_dwa_ddb, block, length);
    answers("is off hook");
    EXPECT_FALSE(send());
    EXPECT_EQ(news(), (Texts{"L1 ring pattern=-1", "says: 1 is off hook"}));
}

TEST_F(LineSignal, UnknownEndpointsAreRejected) {
    for (int32_t endpoint : {-1, 0, 8, INT32_MAX}) {
        voice_signal_begin(&message_, endpoint, LIBVOICE_SIGNAL_cg_dt, 0);
        EXPECT_FALSE(send()) << endpoint;
    }
    EXPECT_EQ(news(), Texts{});
}

TEST_F(LineTest, WhatADriverCannotDoIsRejectedByName) {
    const line_driver_t nothing = {};
    add("L1", &nothing);
    init(7);
    news();
    voice_signal_message_t message;
    auto send = [&](uint32_t id, uint32_t flags) {
        voice_signal_begin(&message, 7, id, 0);
        voice_signal_set_flags(&message, flags);
        return callbacks_.voice_plugin_signal(&message.record);
    };
    for (uint32_t id :
         {LIBVOICE_SIGNAL_cg_dt, LIBVOICE_SIGNAL_tonegen_pt, LIBVOICE_SIGNAL_al_ri, LIBVOICE_SIGNAL_alert_ri,
          LIBVOICE_SIGNAL_andisp_data, LIBVOICE_SIGNAL_andisp_dwa, LIBVOICE_SIGNAL_fxo_of, LIBVOICE_SIGNAL_fxo_on,
          LIBVOICE_SIGNAL_fxo_fl, LIBVOICE_SIGNAL_fxoen_sd, LIBVOICE_SIGNAL_xal_nd, 0xFFFFFFF0u})
        for (uint32_t flags : {0u, VOICE_SIGNAL_STOP}) {
            EXPECT_NE(send(id, flags), 0);
            EXPECT_EQ(news(), (Texts{std::string("says: 1 ignores ") + libvoice_param_str(id)}));
        }
    EXPECT_EQ(send(LIBVOICE_SIGNAL_zil_cancel_all_signals, 0), 0) << "nothing runs: nothing is lost";
}
