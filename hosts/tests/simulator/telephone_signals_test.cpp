// SPDX-License-Identifier: MIT
// What an application signals to a telephone: tones and lists as its user hears them, and ringing.
#include "telephone_fixture.h"

#include <poll.h>

TEST_F(Telephone, HearsTonesOnceTheySound) {
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_dt), nullptr);
    EXPECT_EQ(said(), "3 plays dial-tone\n") << "an order is no sound";
    run(1200);
    EXPECT_EQ(said(), "3 hears dial-tone\n") << "the longest other burst, and 200 ms";
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_dt), nullptr);
    run(3000);
    EXPECT_EQ(said(), "3 plays dial-tone\n") << "heard once";
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_bt), nullptr);
    run(1300);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_cg_dt);
    run(3000);
    EXPECT_EQ(said(), "3 plays busy-tone\n3 hears busy-tone\n")
        << "another tone than the one that plays is not stopped";
    driver_.stop(&phone_, LIBVOICE_SIGNAL_cg_bt);
    run(1000);
    EXPECT_EQ(said(), "3 hears silence\n");
    EXPECT_STREQ(play(LIBVOICE_SIGNAL_dg_d5), "ignores LIBVOICE_SIGNAL_dg_d5");
    EXPECT_STREQ(play(LIBVOICE_SIGNAL_tonegen_pt), "ignores LIBVOICE_SIGNAL_tonegen_pt");
}

TEST_F(Telephone, AToneThatIsOrderedAndNotInTheSoundIsNotHeard) {
    phone_.sound.heard_factor = 0.0001F;
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_dt), nullptr);
    run(5000);
    EXPECT_EQ(said(), "3 plays dial-tone\n");
    phone_.sound.heard_factor = 1;
    run(1300);
    EXPECT_EQ(said(), "3 hears dial-tone\n");
}

TEST_F(Telephone, HearsTheTonesOfTheCountry) {
    driver_.registered(&phone_, "US");
    EXPECT_EQ(play(LIBVOICE_SIGNAL_cg_bt), nullptr);
    run(1200);
    const std::string text = said();
    EXPECT_NE(text.find("unproved: held tone of US is 425/300,0/300,425/300,0/3000\n"), std::string::npos) << text;
    EXPECT_NE(text.find("3 hears busy-tone\n"), std::string::npos) << text;
    driver_.registered(&phone_, "US");
    EXPECT_EQ(said(), "") << "once";
    EXPECT_EQ(ring(), nullptr);
    EXPECT_EQ(said(), "3 rings cadence=2000/4000\n");
    driver_.registered(&phone_, "XX");
    EXPECT_EQ(said().rfind("unproved: tones of XX are those of DE\n", 0), 0u);
}

TEST_F(Telephone, HearsTheTonesOfAList) {
    const voice_tone_t list[] = {{1300, -100, 200, 200}, {950, -100, 200, 0}};
    EXPECT_EQ(play(LIBVOICE_SIGNAL_tonegen_pt, list, 2), nullptr);
    run(1000);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_tonegen_pt);
    run(1000);
    const std::string text = said();
    EXPECT_EQ(text, "3 plays tone-1300Hz\n3 hears tone-1300Hz\n3 hears silence\n");
    const voice_tone_t high[] = {{4000, -100, 200, 200}};
    EXPECT_STREQ(play(LIBVOICE_SIGNAL_tonegen_pt, high, 1), "plays nothing: 4000 Hz, a line carries 1 to 3400 Hz");
}

TEST_F(Telephone, RingsUntilItIsStoppedOrLifted) {
    const uint32_t cadence[] = {1500, 3500};
    EXPECT_EQ(ring(cadence, 2), nullptr);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_al_ri);
    driver_.stop(&phone_, LIBVOICE_SIGNAL_al_ri);
    EXPECT_EQ(said(), "3 rings cadence=1500/3500\n3 stops ringing\n");
    driver_.registered(&phone_, "DE");
    said();
    EXPECT_EQ(ring(nullptr, 0, 2), nullptr);
    EXPECT_EQ(telephone_lift(&phone_), nullptr);
    EXPECT_EQ(said(), "3 rings cadence=1000/4000 pattern=2\n3 off hook\n3 stops ringing\n");
    EXPECT_STREQ(ring(), "is off hook: does not ring");
    EXPECT_STREQ(driver_.signal(&phone_, LIBVOICE_SIGNAL_alert_rs, nullptr, 0), "is off hook: does not ring");
    EXPECT_EQ(telephone_reports, (Texts{"3 off hook"}));
}

TEST_F(Telephone, ACadenceMustMakeSense) {
    const uint32_t cadence[] = {0, 0, 0, 0}, odd[] = {1000, 4000, 1000};
    EXPECT_STREQ(ring(cadence, 4), "does not ring: a cadence of 0 ms");
    EXPECT_STREQ(ring(odd, 0), "does not ring: a cadence of 0 ms");
    EXPECT_STREQ(ring(odd, 3), "does not ring: a cadence without its last pause");
    EXPECT_FALSE(phone_.ringing);
}

TEST_F(Telephone, ASplashIsOneShortRing) {
    const uint32_t cadence[] = {1000, 4000};
    auto splash = [&] { return driver_.signal(&phone_, LIBVOICE_SIGNAL_alert_rs, nullptr, 0); };
    auto wait_ms = [](int ms) {
        for (; ms > 0; ms -= 10) {
            poll(nullptr, 0, 10);
            kex_dispatch(bus_);
        }
    };
    EXPECT_EQ(splash(), nullptr);
    EXPECT_STREQ(splash(), "rings already");
    EXPECT_EQ(said(), "3 rings cadence=500\n");
    wait_ms(1000);
    EXPECT_EQ(said(), "3 stops ringing\n");
    EXPECT_EQ(splash(), nullptr);
    EXPECT_EQ(ring(cadence, 2), nullptr);
    wait_ms(1000);
    EXPECT_EQ(said(), "3 rings cadence=500\n3 rings cadence=1000/4000\n") << "this one goes on";
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
    play(LIBVOICE_SIGNAL_cg_dt);
    run(2000);
    said();
    driver_.stop(&phone_, LIBVOICE_SIGNAL_zil_cancel_all_signals);
    run(1000);
    EXPECT_EQ(said(), "3 stops ringing\n3 hears silence\n");
}

TEST_F(Telephone, SignalsOfOtherDevicesAreIgnoredAloud) {
    EXPECT_EQ(driver_.signal(&phone_, LIBVOICE_SIGNAL_xal_nd, nullptr, 0), nullptr);
    EXPECT_STREQ(driver_.signal(&phone_, LIBVOICE_SIGNAL_xal_las, nullptr, 0), "ignores LIBVOICE_SIGNAL_xal_las");
    EXPECT_EQ(said(), "3 line open\n");
}
