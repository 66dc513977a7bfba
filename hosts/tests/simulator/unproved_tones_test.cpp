// SPDX-License-Identifier: MIT
// What is said of tones that are not proved, at the start of a plugin.
#include "unproved_tones.h"

#include "captured_output.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string said(const char *country) {
    CapturedOutput output;
    unproved_tones_say(country);
    return output.take();
}

// In no table by country, whichever it is.
std::string unproved_everywhere(const std::string &country) {
    return "unproved: payphone tone of " + country +
           " is 1200/200,800/200,0/2000\n" //
           "unproved: caller-waiting tone of " +
           country +
           " is 425/200,0/400,425/1000,0/3400\n" //
           "unproved: confirmation tone of " +
           country +
           " is 425/100,0/100,425/100,0/100,425/100,0/1000\n" //
           "unproved: held tone of " +
           country + " is 425/300,0/300,425/300,0/3000\n";
}

} // namespace

TEST(UnprovedTones, AreThoseThatNoTextAndNoSupplementHas) {
    said("none");
    EXPECT_EQ(said("DE"), unproved_everywhere("DE"));
    EXPECT_EQ(said("IT"), "unproved: dial tone of IT is 425/200,0/200,425/600,0/1000\n" + unproved_everywhere("IT"))
        << "sources differ";
}

TEST(UnprovedTones, ThoseOfOtherMakersOnlyAreNoProof) {
    const std::string text = said("GB");
    EXPECT_NE(text.find("unproved: special-information tone of GB is 950/330,1400/330,1800/330,0/1000\n"),
              std::string::npos);
    EXPECT_NE(text.find("unproved: call-waiting tone of GB is 400/100,0/4000\n"), std::string::npos) << "disputed";
    EXPECT_EQ(text.find("dial tone"), std::string::npos) << "the operator's text has it";
}

TEST(UnprovedTones, AreSaidOnceUntilAnotherCountryComes) {
    EXPECT_NE(said("FR"), "");
    EXPECT_EQ(said("FR"), "");
    EXPECT_NE(said("NL"), "");
    EXPECT_NE(said("FR"), "");
}

TEST(UnprovedTones, ACountryThatIsNotKnownHasGermanys) {
    EXPECT_EQ(said("XX").find("unproved: tones of XX are those of DE\n"), 0u);
    EXPECT_EQ(said("QQ"), "unproved: tones of QQ are those of DE\n" + unproved_everywhere("QQ"));
}
