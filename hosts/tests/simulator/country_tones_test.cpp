// SPDX-License-Identifier: MIT
// The table of tones, beside what administrations have published.
#include "country_tones.h"

#include <gtest/gtest.h>

// Of each country one that differs from others, and the cells whose national texts were read.
TEST(CountryTones, AreThoseThatWerePublished) {
    const struct {
        const char *country;
        network_tone tone;
        const char *text;
        char confidence;
    } rows[] = {
        {"DE", TONE_DIAL, "425", 'A'},
        {"DE", TONE_RINGING, "425/1000,0/4000", 'A'},
        {"DE", TONE_BUSY, "425/480,0/480", 'A'},
        {"DE", TONE_CONGESTION, "425/240,0/240", 'A'},
        {"DE", TONE_SPECIAL_INFORMATION, "950/330,1400/330,1800/330,0/1000", 'A'},
        {"GB", TONE_DIAL, "350+440", 'A'},
        {"AU", TONE_RINGING, "400+450/400,0/200,400+450/400,0/2000", 'A'},
        {"AU", TONE_BUSY, "425/375,0/375", 'A'},
        {"FR", TONE_RINGING, "440/1500,0/3500", 'B'},
        {"US", TONE_BUSY, "480+620/500,0/500", 'B'},
        {"CH", TONE_CONGESTION, "425/200,0/200", 'B'},
        {"SE", TONE_CONGESTION, "425/250,0/750", 'B'},
        {"IT", TONE_DIAL, "425/200,0/200,425/600,0/1000", 'B'},
        {"ES", TONE_CONGESTION, "425/200,0/200,425/200,0/200,425/200,0/600", 'B'},
        {"NL", TONE_CALL_WAITING, "425/500,0/9500", 'B'},
        {"BE", TONE_SPECIAL_INFORMATION, "900/330,1400/330,1800/330,0/1000", 'B'},
        {"JP", TONE_RINGING, "400*16/1000,0/2000", 'B'},
        {"BR", TONE_CONGESTION, "425/250,0/250,425/750,0/250", 'B'},
    };
    for (const auto &row : rows) {
        EXPECT_STREQ(country_tone(row.country, row.tone)->text, row.text) << row.country;
        EXPECT_EQ(country_tone(row.country, row.tone)->confidence, row.confidence) << row.country << row.text;
    }
}

TEST(CountryTones, WhatIsNotProvedIsKnown) {
    EXPECT_FALSE(tone_cell_is_unproved(country_tone("DE", TONE_DIAL)));
    EXPECT_FALSE(tone_cell_is_unproved(country_tone("FR", TONE_BUSY)));
    EXPECT_TRUE(tone_cell_is_unproved(country_tone("IT", TONE_DIAL))) << "sources differ";
    EXPECT_TRUE(tone_cell_is_unproved(country_tone("GB", TONE_SPECIAL_INFORMATION))) << "other makers' tables only";
}

TEST(CountryTones, ACountryThatIsNotKnownHasGermanys) {
    for (const char *code : {"XX", "", "de"})
        EXPECT_EQ(country_tone(code, TONE_BUSY), country_tone("DE", TONE_BUSY)) << code;
}

TEST(CountryTones, OnlyKnownCountriesHaveTones) {
    EXPECT_TRUE(country_has_tones("BR"));
    for (const char *code : {"XX", "", "de", "BRA"})
        EXPECT_FALSE(country_has_tones(code)) << code;
}

// What stands in no column of a table by country.
TEST(CountryTones, TonesWithoutAColumnAreGeneralKnowledge) {
    for (const char *country : {"FR", "DE", "JP"})
        for (network_tone tone : {TONE_PAYPHONE, TONE_CALLER_WAITING, TONE_CONFIRMATION, TONE_HELD}) {
            EXPECT_EQ(country_tone(country, tone)->confidence, 'D') << country << network_tone_name(tone);
            EXPECT_STREQ(country_tone(country, tone)->text, country_tone("DE", tone)->text);
        }
    EXPECT_STREQ(country_tone("DE", TONE_WARNING)->text, "1400/80,0/15000");
    EXPECT_STREQ(country_tone("DE", TONE_MESSAGE_WAITING)->text, "400+425");
    EXPECT_STREQ(country_tone("DE", TONE_CALL_WAITING)->text,
                 "!425/200,!0/200,!425/200,!0/1000,425/200,0/200,425/200,0/5000")
        << "the first pause is shorter";
    EXPECT_STREQ(country_tone("GB", TONE_CONGESTION)->text, "400/400,0/350,400@6/225,0/525");
    EXPECT_STREQ(country_tone("AU", TONE_CONGESTION)->text, "425/375,0/375,425@-10/375,0/375");
}
