// SPDX-License-Identifier: MIT
// Short names of parameters.
#include "identifiers.h"

#include <gtest/gtest.h>

#include <string>

TEST(Identifiers, ShortNamesBothWays) {
    EXPECT_STREQ(identifier_name(LIBVOICE_PARAM_tdmc_gain), "tdmc_gain");
    EXPECT_STREQ(identifier_name(LIBVOICE_SIGNAL_cg_dt), "LIBVOICE_SIGNAL_cg_dt") << "no parameter";
    EXPECT_EQ(identifier_of_name("tdmc_gain"), LIBVOICE_PARAM_tdmc_gain);
    EXPECT_EQ(identifier_of_name("LIBVOICE_PARAM_tdmc_gain"), LIBVOICE_PARAM_tdmc_gain);
    for (const char *name : {static_cast<const char *>(nullptr), "", "tdmc", "LIBVOICE_PARAM_"})
        EXPECT_EQ(identifier_of_name(name), kUnknownIdentifier);
    EXPECT_EQ(identifier_of_name(std::string(200, 'x').c_str()), kUnknownIdentifier);
}

TEST(Identifiers, IntegersAndBooleansAreNumbers) {
    EXPECT_TRUE(identifier_is_number(LIBVOICE_PARAM_tdmc_gain));
    EXPECT_TRUE(identifier_is_number(LIBVOICE_PARAM_al_of_init));
    for (uint32_t id : {LIBVOICE_PARAM_dd_ce_ds, LIBVOICE_PARAM_al_ri_cad, LIBVOICE_EVENT_al_of})
        EXPECT_FALSE(identifier_is_number(id)) << id;
}
