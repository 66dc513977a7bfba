// SPDX-License-Identifier: MIT
#include "ids.h"

#include "libvoice_plugin.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using voicectl::ids_find;

std::vector<std::string> names(const std::vector<std::string> &words) {
    std::vector<std::string> found;
    for (const libvoice_meaning *row : ids_find(words))
        found.emplace_back(row->name);
    return found;
}

TEST(Ids, WithoutAWordAreAll) {
    EXPECT_EQ(ids_find({}).size(), 265u);
}

TEST(Ids, AreFoundByNumberInBothWritings) {
    EXPECT_THAT(names({"0x11090207"}), ElementsAre("LIBVOICE_PARAM_al_ri_freq"));
    EXPECT_THAT(names({"285803015"}), ElementsAre("LIBVOICE_PARAM_al_ri_freq"));
    EXPECT_THAT(names({"0x00000000"}), ElementsAre());
}

TEST(Ids, AreFoundByPartsOfNamesAndMeaningsInEitherCase) {
    EXPECT_THAT(names({"AL_RI_CAD"}), ElementsAre("LIBVOICE_PARAM_al_ri_cad"));
    EXPECT_THAT(names({"Ring", "frequency"}), ElementsAre("LIBVOICE_PARAM_al_ri_freq"));
}

TEST(Ids, OfAPackageAreThoseThatBearItsName) {
    for (const libvoice_meaning *row : ids_find({"ajb"}))
        EXPECT_EQ(row->number >> 16 & 0xFF, 0x7Au) << row->name;
    EXPECT_FALSE(ids_find({"ajb"}).empty());
}

TEST(Ids, EveryWordMustFit) {
    EXPECT_THAT(names({"al_ri_cad", "frequency"}), ElementsAre());
}

TEST(Ids, SayTheirKindAndWhatTheirValueIs) {
    EXPECT_EQ(voicectl::id_kind(LIBVOICE_SIGNAL_al_ri), "signal");
    EXPECT_EQ(voicectl::id_kind(LIBVOICE_PARAM_al_ri_cad), "signal parameter");
    EXPECT_EQ(voicectl::id_kind(LIBVOICE_EVENT_al_of), "event");
    EXPECT_EQ(voicectl::id_kind(LIBVOICE_PARAM_al_of_init), "event parameter");
    EXPECT_EQ(voicectl::id_kind(LIBVOICE_PARAM_tdmc_gain), "property");
    EXPECT_EQ(voicectl::id_value(*libvoice_meaning_of(LIBVOICE_SIGNAL_al_ri)), "-");
    EXPECT_EQ(voicectl::id_value(*libvoice_meaning_of(LIBVOICE_PARAM_al_ri_cad)), "words");
    EXPECT_EQ(voicectl::id_value(*libvoice_meaning_of(LIBVOICE_PARAM_al_of_init)), "boolean");
    EXPECT_EQ(voicectl::id_value(*libvoice_meaning_of(LIBVOICE_PARAM_tdmc_gain)), "integer");
    EXPECT_EQ(voicectl::id_value(*libvoice_meaning_of(LIBVOICE_PARAM_andisp_data_db)), "bytes");
    EXPECT_EQ(voicectl::id_value(*libvoice_meaning_of(LIBVOICE_PARAM_dd_ce_ds)), "text");
}

TEST(Ids, ShowAsALineAndAsJson) {
    const libvoice_meaning &row = *libvoice_meaning_of(LIBVOICE_EVENT_al_of);
    EXPECT_EQ(voicectl::id_line(row, 7), "0x20090500  event             -        al_of    off hook");
    EXPECT_EQ(voicectl::id_json(row), R"({"id":537462016,"name":"LIBVOICE_EVENT_al_of","kind":"event","value":"-",)"
                                      R"("package":"al","meaning":"off hook"})");
}

} // namespace
