// SPDX-License-Identifier: MIT
#include "g711.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

// Values of the standard's tables, by hand: the code words of silence and of both ends of the range.
TEST(G711, AlawCodesOfTheTable) {
    EXPECT_EQ(g711_alaw_encode(0), 0xD5);
    EXPECT_EQ(g711_alaw_encode(-1), 0x55);
    EXPECT_EQ(g711_alaw_encode(32767), 0xAA);
    EXPECT_EQ(g711_alaw_encode(-32768), 0x2A);
    EXPECT_EQ(g711_alaw_decode(0xD5), 8);
    EXPECT_EQ(g711_alaw_decode(0x55), -8);
    EXPECT_EQ(g711_alaw_decode(0xAA), 32256);
    EXPECT_EQ(g711_alaw_decode(0x2A), -32256);
}

TEST(G711, UlawCodesOfTheTable) {
    EXPECT_EQ(g711_ulaw_encode(0), 0xFF);
    EXPECT_EQ(g711_ulaw_encode(32767), 0x80);
    EXPECT_EQ(g711_ulaw_encode(-32768), 0x00);
    EXPECT_EQ(g711_ulaw_decode(0xFF), 0);
    EXPECT_EQ(g711_ulaw_decode(0x7F), 0);
    EXPECT_EQ(g711_ulaw_decode(0x80), 32124);
    EXPECT_EQ(g711_ulaw_decode(0x00), -32124);
}

TEST(G711, EveryCodeComesBack) {
    for (int code = 0; code < 256; code++) {
        EXPECT_EQ(g711_alaw_encode(g711_alaw_decode(static_cast<uint8_t>(code))), code) << "A-law";
        int expected = code == 0x7F ? 0xFF : code; // mu-law has two zeros
        EXPECT_EQ(g711_ulaw_encode(g711_ulaw_decode(static_cast<uint8_t>(code))), expected) << "mu-law";
    }
}

TEST(G711, LouderNeverDecodesSofter) {
    int alaw = -40000, ulaw = -40000;
    for (int sample = -32768; sample <= 32767; sample++) {
        int a = g711_alaw_decode(g711_alaw_encode(static_cast<int16_t>(sample)));
        int u = g711_ulaw_decode(g711_ulaw_encode(static_cast<int16_t>(sample)));
        ASSERT_GE(a, alaw) << sample;
        ASSERT_GE(u, ulaw) << sample;
        alaw = a;
        ulaw = u;
    }
}

// Each of 65,536 samples and of 256 codes, in both laws, as an independent library has them.
TEST(G711, AgreesWithSpandspInEveryCode) {
    void *library = dlopen("libspandsp.so.2", RTLD_NOW);
    if (library == nullptr)
        GTEST_SKIP() << "libspandsp2 is not installed";
    using Init = void *(void *, int);
    using Encode = int(void *, uint8_t *, const int16_t *, int);
    using Decode = int(void *, int16_t *, const uint8_t *, int);
    using Free = int(void *);
    Init *init = reinterpret_cast<Init *>(dlsym(library, "g711_init"));
    Encode *encode = reinterpret_cast<Encode *>(dlsym(library, "g711_encode"));
    Decode *decode = reinterpret_cast<Decode *>(dlsym(library, "g711_decode"));
    Free *release = reinterpret_cast<Free *>(dlsym(library, "g711_free"));
    ASSERT_TRUE(init != nullptr && encode != nullptr && decode != nullptr && release != nullptr);
    for (int law : {0, 1}) { // A-law, mu-law
        void *state = init(nullptr, law);
        unsigned differences = 0;
        for (int sample = INT16_MIN; sample <= INT16_MAX; sample++) {
            const int16_t in = static_cast<int16_t>(sample);
            uint8_t theirs = 0;
            ASSERT_EQ(encode(state, &theirs, &in, 1), 1);
            differences += theirs != (law == 0 ? g711_alaw_encode(in) : g711_ulaw_encode(in));
        }
        EXPECT_EQ(differences, 0u) << "samples, law " << law;
        for (unsigned code = 0; code < 256; code++) {
            const uint8_t in = static_cast<uint8_t>(code);
            int16_t theirs = 0;
            ASSERT_EQ(decode(state, &theirs, &in, 1), 1);
            differences += theirs != (law == 0 ? g711_alaw_decode(in) : g711_ulaw_decode(in));
        }
        EXPECT_EQ(differences, 0u) << "codes, law " << law;
        release(state);
    }
    dlclose(library);
}
