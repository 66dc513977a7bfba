// SPDX-License-Identifier: MIT
// What is heard: voices and tones, one after the other and both at once, and what is none of them.
#include "heard_sound.h"

namespace {

using Texts = std::vector<std::string>;

} // namespace

TEST(SoundDetector, SaysNothingOfSilence) {
    Heard heard("DE");
    heard.run(3000); // A-law has no zero
    EXPECT_EQ(heard.all(), Texts());
}

TEST(SoundDetector, NamesVoicesAndTheirEnd) {
    Heard heard("DE");
    heard.speak(1000);
    heard.run(1000);
    heard.speak(2200);
    heard.run(1000);
    heard.speak(0);
    heard.run(1000);
    EXPECT_EQ(heard.all(), (Texts{"1000Hz", "2200Hz", ""}));
    EXPECT_LE(heard.said("1000Hz"), 400);
}

TEST(SoundDetector, DoesNotNameWhatIsNoTone) {
    for (const char *text : {"500/480,0/480", "425/480,0/100", "400/1000,0/4000", "440/480,0/480"}) {
        Heard heard("DE");
        heard.play(text);
        heard.run(6000);
        for (const char *name : {"busy-tone", "ring-back", "dial-tone", "congestion-tone"})
            EXPECT_EQ(heard.said(name), -1) << text << testing::PrintToString(heard.all());
    }
}

TEST(SoundDetector, ABurstThatIsCutOffIsNoOtherTone) {
    for (uint32_t cut = 50; cut < 900; cut += 50) {
        Heard heard("DE");
        heard.play("425/1000,0/4000");
        heard.run(cut);
        heard.stop();
        heard.speak(2200); // somebody has answered
        heard.run(1500);
        EXPECT_EQ(heard.all(), (Texts{"2200Hz"})) << cut;
    }
}

TEST(SoundDetector, AnAnswerInThePauseOfRingingIsHeardAtOnce) {
    Heard heard("DE");
    heard.play("425/1000,0/4000");
    heard.run(2500);
    heard.stop();
    heard.speak(2200);
    heard.run(8000);
    EXPECT_EQ(heard.all(), (Texts{"ring-back", "2200Hz"}));
    EXPECT_LE(heard.said("2200Hz"), 3000);
}

TEST(SoundDetector, AToneThatFollowsUponAnotherIsNamed) {
    Heard heard("DE");
    heard.play("425");
    heard.run(1500);
    heard.play("425/480,0/480");
    heard.run(2000);
    heard.play("425/1000,0/4000");
    heard.run(2500);
    EXPECT_EQ(heard.all(), (Texts{"dial-tone", "busy-tone", "ring-back"}));
}

TEST(SoundDetector, ATooSoftToneIsNotHeard) {
    Heard heard("DE");
    heard.play("425@-47");
    heard.run(3000);
    EXPECT_EQ(heard.all(), Texts());
    heard.play("425@-20");
    heard.run(3000);
    EXPECT_EQ(heard.all(), (Texts{"dial-tone"}));
}

// What is said of a list, called tone-1400Hz, that sounds for so long.
Texts heard_of_list(const char *text, uint32_t ms) {
    const tone_pattern list = tone_pattern_read(text);
    Heard heard("DE");
    sound_detector_set_list(&heard.detector(), "tone-1400Hz", &list);
    heard.play(list);
    heard.run(ms);
    heard.stop();
    heard.run(1000);
    return heard.all();
}

TEST(SoundDetector, KnowsAListByItsName) {
    EXPECT_EQ(heard_of_list("1400/100,2060/100", 1000), (Texts{"tone-1400Hz", ""}));
}

TEST(SoundDetector, AListWithoutAPauseIsContinuous) {
    for (const char *text : {"1400/500", "!425/100,!0/100,1400/500"}) {
        EXPECT_EQ(heard_of_list(text, 3000), (Texts{"tone-1400Hz", ""})) << text;
    }
}

TEST(SoundDetector, AListThatEndsAsItBeginsSoundsOnWhereItIsRepeated) {
    for (const char *text :
         {"1400/200,2060/200,1400/200", "1400/200,0/300,1400/200", "!2060/300,1400/200,2060/150,1400/100"}) {
        EXPECT_EQ(heard_of_list(text, 6000), (Texts{"tone-1400Hz", ""})) << text;
    }
}

TEST(SoundDetector, AListThatIsEqualToAToneHasBothNames) {
    const tone_pattern list = tone_pattern_read("425/480,0/480");
    Heard heard("DE");
    sound_detector_set_list(&heard.detector(), "tone-425Hz", &list);
    heard.play(list);
    heard.run(2000);
    EXPECT_EQ(heard.all(), (Texts{"busy-tone or tone-425Hz"}));
}

TEST(SoundDetector, AToneOfAnotherCountryIsNamedByItsFrequency) {
    Heard heard("DE");
    heard.play("440");
    heard.run(2000);
    EXPECT_EQ(heard.all(), (Texts{"440Hz"}));
}

TEST(SoundDetector, UnknownBurstsOfAKnownFrequencyAreNamedByIt) {
    Heard heard("DE");
    heard.play("425/700,0/700");
    heard.run(10000);
    EXPECT_GT(heard.said("425Hz"), 2000);
}

TEST(SoundDetector, IsIdleAgainAfterAWhile) {
    Heard heard("DE");
    EXPECT_TRUE(sound_detector_is_idle(&heard.detector()));
    const int16_t silence[kStepSamples] = {};
    heard.play("425");
    heard.run(2000);
    EXPECT_FALSE(sound_detector_is_idle(&heard.detector()));
    for (uint32_t i = 0; i < 2000 / kStepMs; i++)
        heard.take(silence);
    EXPECT_EQ(heard.all(), (Texts{"dial-tone", ""}));
    EXPECT_TRUE(sound_detector_is_idle(&heard.detector()));
}

TEST(SoundDetector, ForgetsWhenNobodyListensAnyMore) {
    Heard heard("DE");
    heard.play("425");
    heard.run(2000);
    sound_detector_forget(&heard.detector());
    EXPECT_STREQ(heard.detector().said, "");
    heard.run(2000);
    EXPECT_EQ(heard.all(), (Texts{"dial-tone", "dial-tone"})) << "it is said again";
}

TEST(SoundDetector, VoicesAloneAreSaidAgainWhenMediaHasChanged) {
    Heard heard("DE");
    heard.speak(1000);
    heard.run(1000);
    sound_detector_forget_voices(&heard.detector());
    heard.run(1000);
    EXPECT_EQ(heard.all(), (Texts{"1000Hz", "1000Hz"}));
}
