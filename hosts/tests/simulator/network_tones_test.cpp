// SPDX-License-Identifier: MIT
// The tones of the network by signal and by name.
#include "network_tones.h"

#include "libvoice_plugin.h"

#include <gtest/gtest.h>

TEST(NetworkTones, SignalsOrderThem) {
    EXPECT_EQ(network_tone_of(LIBVOICE_SIGNAL_cg_rt), TONE_RINGING);
    EXPECT_EQ(network_tone_of(LIBVOICE_SIGNAL_srvtn_mwt), TONE_MESSAGE_WAITING);
    EXPECT_STREQ(network_tone_name(network_tone_of(LIBVOICE_SIGNAL_cg_sit)), "special-information");
    EXPECT_EQ(network_tone_of(LIBVOICE_SIGNAL_al_ri), TONES);
    EXPECT_EQ(network_tone_of(0), TONES);
}

TEST(NetworkTones, WordsNameThem) {
    for (uint32_t i = 0; i < TONES; i++) {
        const network_tone tone = static_cast<network_tone>(i);
        EXPECT_EQ(network_tone_find(network_tone_word(tone)), tone);
    }
    EXPECT_STREQ(network_tone_word(TONE_BUSY), "busy-tone");
    for (const char *word : {"", "busy", "Busy-tone", "silence"})
        EXPECT_EQ(network_tone_find(word), TONES) << word;
}
