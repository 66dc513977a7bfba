// SPDX-License-Identifier: MIT
#include "message.h"

#include <gtest/gtest.h>

#include <string.h>
#include <string>

TEST(Message, WhatIsAddedIsRead) {
    event_message event;
    event_begin(&event, 3, LIBVOICE_EVENT_g_cause, 1);
    ASSERT_TRUE(event_add_int(&event, LIBVOICE_PARAM_g_cause_generalcause, -6));
    ASSERT_TRUE(event_add_text(&event, LIBVOICE_PARAM_g_cause_failurecause, "no codec"));
    EXPECT_EQ(event.head.endpoint, 3);
    EXPECT_EQ(event.head.line, 1u);
    EXPECT_EQ(event.head.length, 12u + 8u + 12u);
    int32_t cause = 0;
    char text[32];
    EXPECT_TRUE(params_int(event.params, event.head.length, LIBVOICE_PARAM_g_cause_generalcause, &cause));
    EXPECT_EQ(cause, -6);
    EXPECT_TRUE(params_text(event.params, event.head.length, LIBVOICE_PARAM_g_cause_failurecause, text, sizeof text));
    EXPECT_STREQ(text, "no codec");
    EXPECT_FALSE(params_int(event.params, event.head.length, LIBVOICE_PARAM_dd_ce_ds, &cause)) << "is not there";
}

TEST(Message, ItemsOfAnotherSizeAreNotBelieved) {
    signal_message signal;
    signal_begin(&signal, 0, LIBVOICE_SIGNAL_al_ri, 0);
    ASSERT_TRUE(signal_add_bytes(&signal, LIBVOICE_PARAM_al_ri_freq, "ab", 2)); // an integer has four bytes
    int32_t value = 42;
    EXPECT_FALSE(params_int(signal.params, signal.head.length, LIBVOICE_PARAM_al_ri_freq, &value));
    EXPECT_EQ(value, 42) << "the output keeps what it held";
}

TEST(Message, TextsEndInTheirItemAndInTheirRoom) {
    signal_message signal;
    signal_begin(&signal, 0, LIBVOICE_SIGNAL_fxoen_sd, 0);
    ASSERT_TRUE(signal_add_bytes(&signal, LIBVOICE_PARAM_fxoen_sd_ds, "0123", 4)); // without a terminator
    char text[8];
    EXPECT_TRUE(params_text(signal.params, signal.head.length, LIBVOICE_PARAM_fxoen_sd_ds, text, sizeof text));
    EXPECT_STREQ(text, "0123");
    char small[3] = {'x', 'x', 'x'};
    EXPECT_TRUE(params_text(signal.params, signal.head.length, LIBVOICE_PARAM_fxoen_sd_ds, small, sizeof small));
    EXPECT_STREQ(small, "01");
}

TEST(Message, AValueThatIsCutOffIsNotThere) {
    alignas(4) uint8_t params[16] = {};
    const uint32_t id = LIBVOICE_PARAM_dd_ce_ds, length = 100;
    memcpy(params, &id, 4);
    memcpy(params + 4, &length, 4);
    char text[8] = "kept";
    EXPECT_FALSE(params_text(params, sizeof params, id, text, sizeof text));
    EXPECT_STREQ(text, "kept");
}

TEST(Message, AFullMessageTakesNoMore) {
    signal_message signal;
    signal_begin(&signal, 0, LIBVOICE_SIGNAL_al_ri, 0);
    std::string long_text(kMessageParameterBytes - 8, 'x');
    EXPECT_TRUE(
        signal_add_bytes(&signal, LIBVOICE_PARAM_al_ri_cad, long_text.data(), static_cast<uint32_t>(long_text.size())));
    EXPECT_EQ(signal.head.length, kMessageParameterBytes);
    EXPECT_FALSE(signal_add_int(&signal, LIBVOICE_PARAM_al_ri_freq, 25));
    EXPECT_EQ(signal.head.length, kMessageParameterBytes);
}
