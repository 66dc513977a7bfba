// SPDX-License-Identifier: MIT
// What countries decide.
#include "country.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// As E.180's supplement and the makers' tables have it: code, cadence, frequency.
struct row {
    const char *code;
    std::vector<uint32_t> cadence;
    uint32_t frequency;
};

} // namespace

TEST(Country, TelephonesRingByTheirCountry) {
    const std::vector<row> rows = {
        {"FR", {1500, 3500}, 50}, {"DE", {1000, 4000}, 25}, {"GB", {400, 200, 400, 2000}, 25}, {"US", {2000, 4000}, 20},
        {"CH", {1000, 4000}, 25}, {"SE", {1000, 5000}, 25}, {"IT", {1000, 4000}, 25},          {"ES", {1500, 3000}, 25},
        {"NL", {1000, 4000}, 25}, {"BE", {1000, 3000}, 25}, {"AU", {400, 200, 400, 2000}, 25}, {"JP", {1000, 2000}, 16},
        {"BR", {1000, 4000}, 25},
    };
    for (const row &wanted : rows) {
        const country_rules *rules = country_find(wanted.code);
        ASSERT_NE(rules, nullptr) << wanted.code;
        EXPECT_EQ(std::vector<uint32_t>(rules->cadence, rules->cadence + rules->cadence_words), wanted.cadence)
            << wanted.code;
        EXPECT_EQ(rules->ring_frequency, wanted.frequency) << wanted.code;
        EXPECT_NE(std::string("ABCD").find(rules->cadence_confidence), std::string::npos) << wanted.code;
        EXPECT_NE(std::string("ABCD").find(rules->frequency_confidence), std::string::npos) << wanted.code;
        EXPECT_TRUE(number_is_listed(rules->emergency, "112")) << wanted.code;
    }
}

TEST(Country, ADoubleRingIsOne) {
    EXPECT_EQ(country_ring_ms(country_get("GB")), 3000u);
    EXPECT_EQ(country_first_ring_ms(country_get("GB")), 1000u);
    EXPECT_EQ(country_first_ring_ms(country_get("US")), 2000u);
}

TEST(Country, ThatIsNotKnownRingsLikeGermany) {
    EXPECT_EQ(country_find("XX"), nullptr);
    EXPECT_EQ(country_find(""), nullptr);
    EXPECT_STREQ(country_get("XX")->code, "DE");
}

TEST(Country, NumbersOfAList) {
    const char *list = "112 000 0001";
    for (const char *number : {"112", "000", "0001"})
        EXPECT_TRUE(number_is_listed(list, number)) << number;
    for (const char *number : {"", "11", "1122", "00", "112 000", " "})
        EXPECT_FALSE(number_is_listed(list, number)) << number;
    for (const char *number : {"", "1", "00", "000"})
        EXPECT_TRUE(number_may_be_listed(list, number)) << number;
    for (const char *number : {"112", "0001", "2"})
        EXPECT_FALSE(number_may_be_listed(list, number)) << number;
    EXPECT_FALSE(number_may_be_listed("", ""));
}
