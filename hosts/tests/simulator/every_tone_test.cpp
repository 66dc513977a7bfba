// SPDX-License-Identifier: MIT
// Every tone of every country, however it comes: through codecs, softly, beside a voice, behind another tone, cut off.
#include "country_cases.h"
#include "heard_line.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kAlaw = LIBVOICE_CODEC_PCMA, kUlaw = LIBVOICE_CODEC_PCMU;
constexpr uint32_t kGapMs = 80;     // of silence between two tones
constexpr uint32_t kMostMs = 16000; // what may take longer beside a voice is tried without

class EveryTone : public testing::Test {
protected:
    // Begins a tone on a line, and expects it to be named in time, with its equals in the end and nothing else.
    static void expect_named(HeardLine *line, const char *country, uint32_t tone, uint32_t bound,
                             const std::string &also) {
        const uint32_t begin = line->now();
        const std::string name = tone_word(tone);
        line->play(tone_of(country, tone));
        line->run_until(name, bound);
        EXPECT_GT(line->said(name, begin), 0)
            << "not within " << bound << " ms: " << testing::PrintToString(line->all());
        line->run(1000);
        for (const heard_text &one : line->texts()) {
            const bool is_right = text_names(one.text, name) || one.text == also;
            EXPECT_TRUE(one.ms <= begin || is_right) << one.text << " after " << one.ms - begin << " ms";
        }
        EXPECT_TRUE(line->last() == names_of(country, tone) || line->last() == also) << line->last();
    }
    static void expect_cut_off(const char *country, uint32_t tone, uint32_t cut) {
        SCOPED_TRACE(country + (" " + tone_word(tone)) + " cut off after " + std::to_string(cut) + " ms");
        HeardLine line(country, {kAlaw, 0, 0});
        line.play(tone_of(country, tone));
        line.run(cut);
        line.stop();
        line.speak(2200);
        line.run(800);
        EXPECT_EQ(line.last(), "2200Hz");
        for (const std::string &text : line.all())
            for (uint32_t other = 0; other < TONES; other++)
                EXPECT_TRUE(text_names(text, tone_word(tone)) || !text_names(text, tone_word(other))) << text;
    }
    // What is 18 dB below a voice is not heard beside it; a voice has -11.6 dBm0.
    static bool is_drowned(const tone_pattern &pattern, int32_t level) {
        return std::any_of(pattern.elements, pattern.elements + pattern.count, [level](const tone_element &element) {
            return element.first > 0 && element.level / 10 + level < -11 - 18;
        });
    }
    static void expect_all_named(const line_way &way) {
        for (const char *country : kCountryCodes)
            expect_country_named(country, way);
    }
    static void expect_country_named(const char *country, const line_way &way) {
        for (uint32_t tone = 0; tone < TONES; tone++) {
            SCOPED_TRACE(country + (" " + tone_word(tone)) + " " + tone_text(country, tone));
            HeardLine line(country, way);
            const std::string voice = way.voice > 0 ? std::to_string(way.voice) + "Hz" : "";
            if (way.voice > 0 && (is_drowned(tone_of(country, tone), way.level) || bound_of(country, tone) > kMostMs))
                continue;
            if (way.voice > 0)
                line.run(1000);
            expect_named(&line, country, tone, bound_of(country, tone), voice.empty() ? "nothing" : voice);
        }
    }
};

} // namespace

TEST_F(EveryTone, IsNamedInTimeAsItIsMade) {
    expect_all_named({kNoCodec, 0, 0});
}

TEST_F(EveryTone, IsNamedInTimeThroughALaw) {
    expect_all_named({kAlaw, 0, 0});
}

TEST_F(EveryTone, IsNamedInTimeThroughULawTenDecibelsSofter) {
    expect_all_named({kUlaw, -10, 0});
}

TEST_F(EveryTone, IsNamedInTimeBesideTheVoiceOfATelephone) {
    expect_all_named({kAlaw, 0, 1000}); // near 950 Hz, which is part of a tone everywhere
}

TEST_F(EveryTone, IsNamedInTimeTenDecibelsSofterBesideAVoice) {
    expect_all_named({kUlaw, -10, 1160});
}

// The tone before is heard for a whole period and a half, so that it was named and ends within a burst or a pause.
TEST_F(EveryTone, IsNamedInTimeBehindAnotherOne) {
    for (const char *country : kCountryCodes)
        for (uint32_t before = 0; before < TONES; before++) {
            const uint32_t tone = (before + 5) % TONES;
            if (tone_text(country, before) == tone_text(country, tone) || bound_of(country, before) > 6000)
                continue;
            SCOPED_TRACE(country + (" " + tone_word(tone)) + " behind " + tone_word(before));
            HeardLine line(country, {kAlaw, 0, 0});
            line.play(tone_of(country, before));
            line.run(bound_of(country, before) + period_of(tone_of(country, before)) / 2 + 300);
            EXPECT_GT(line.said(tone_word(before)), 0);
            expect_named(&line, country, tone, bound_of(country, tone) + kGapMs, "");
        }
}

// Somebody answers within the first burst of a tone: that was no other tone.
TEST_F(EveryTone, ThatIsCutOffIsNoOtherOne) {
    for (const char *country : kCountryCodes)
        for (uint32_t tone = 0; tone < TONES; tone++) {
            const uint32_t whole = tone_of(country, tone).elements[0].ms;
            for (uint32_t cut = 50; cut < (whole == 0 ? 1000 : whole); cut += 150)
                expect_cut_off(country, tone, cut);
        }
}
