// SPDX-License-Identifier: MIT
// Sources and sinks of a line, on a clock of the test's own.
#include "audio.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr uint64_t kStepNs = kStepMs * 1000000u;
uint64_t now; // nanoseconds

uint64_t time_get() {
    return now;
}

// A source that says one value for so many steps, and a sink that keeps what it is given.
struct speaker {
    int16_t value;
    int steps;
    std::vector<uint64_t> positions;
};

bool speaker_take(void *userdata, uint64_t position, int16_t *samples) {
    speaker *one = static_cast<speaker *>(userdata);
    if (one->steps-- <= 0)
        return false;
    one->positions.push_back(position);
    for (uint32_t i = 0; i < kStepSamples; i++)
        samples[i] = one->value;
    return true;
}

struct listener {
    std::vector<uint64_t> positions;
    std::vector<int16_t> heard, said; // the last of each step
    std::vector<std::string> events;
};

void listener_step(void *userdata, uint64_t position, const int16_t *heard, const int16_t *said) {
    listener *one = static_cast<listener *>(userdata);
    one->positions.push_back(position);
    one->heard.push_back(heard[kStepSamples - 1]);
    one->said.push_back(said[kStepSamples - 1]);
}

void listener_event(void *userdata, uint64_t position, const char *text) {
    static_cast<listener *>(userdata)->events.push_back(std::to_string(position) + " " + text);
}

class AudioEnds : public testing::Test {
protected:
    static void SetUpTestSuite() {
        audio_begin(nullptr, "test");
        audio_start(&line_, "line", 400, [](const audio *, const char *) {});
    }
    void SetUp() override {
        now = 0;
        sampling_clock_replace(time_get);
    }
    void TearDown() override {
        audio_remove_sink(&line_, &kept_);
        audio_set_source(&line_, nullptr);
        sampling_clock_replace(nullptr);
    }

    static void run(int steps) {
        for (; steps > 0; steps--) {
            now += kStepNs;
            sampling_clock_advance();
        }
    }
    const sound_sink sink_ = {&kept_, listener_step, listener_event};
    listener kept_;
    static inline audio line_;
};

} // namespace

TEST_F(AudioEnds, ASinkIsGivenEachStepWhetherThereIsMediaOrNot) {
    EXPECT_EQ(audio_add_sink(&line_, &sink_), nullptr);
    run(10);
    ASSERT_EQ(kept_.positions.size(), 10u);
    for (size_t i = 0; i < kept_.positions.size(); i++) {
        EXPECT_EQ(kept_.positions[i], i * kStepSamples);
        EXPECT_EQ(kept_.heard[i], 0);
        EXPECT_EQ(kept_.said[i], 0) << "without media nobody speaks";
    }
    audio_remove_sink(&line_, &kept_);
    run(10);
    EXPECT_EQ(kept_.positions.size(), 10u);
}

TEST_F(AudioEnds, ASourceSpeaksUntilItIsOver) {
    speaker one = {1234, 4, {}};
    const sound_source source = {&one, speaker_take};
    EXPECT_EQ(audio_add_sink(&line_, &sink_), nullptr);
    EXPECT_EQ(audio_set_source(&line_, &source), nullptr);
    run(8);
    EXPECT_EQ(kept_.said, (std::vector<int16_t>{1234, 1234, 1234, 1234, 0, 0, 0, 0}));
    EXPECT_EQ(one.positions, (std::vector<uint64_t>{0, 80, 160, 240}));
    EXPECT_EQ(one.steps, -1) << "it is asked once more, and never again";
}

TEST_F(AudioEnds, ASourceAloneIsTakenByTheClockToo) {
    speaker one = {1, 3, {}};
    const sound_source source = {&one, speaker_take};
    EXPECT_EQ(audio_set_source(&line_, &source), nullptr);
    run(10);
    EXPECT_EQ(one.positions.size(), 3u);
    EXPECT_EQ(line_.ends.source.take, nullptr);
}

TEST_F(AudioEnds, GainIsHeardInWhatIsSaid) {
    speaker one = {1000, 2, {}};
    const sound_source source = {&one, speaker_take};
    line_.said_factor = 0.5F;
    audio_add_sink(&line_, &sink_);
    audio_set_source(&line_, &source);
    run(2);
    line_.said_factor = 1;
    EXPECT_EQ(kept_.said, (std::vector<int16_t>{500, 500}));
}

TEST_F(AudioEnds, EventsHaveTheirPlaceOnTheClock) {
    audio_event(&line_, "nobody listens");
    audio_add_sink(&line_, &sink_);
    run(5);
    now += kStepNs / 2;
    audio_event(&line_, "rings");
    EXPECT_EQ(kept_.events, (std::vector<std::string>{"440 rings"}));
    const sound_sink plain = {&kept_, listener_step, nullptr};
    audio_remove_sink(&line_, &kept_);
    audio_add_sink(&line_, &plain);
    audio_event(&line_, "unwanted");
    EXPECT_EQ(kept_.events.size(), 1u);
}

TEST_F(AudioEnds, AStopOfTheProcessShowsInThePositions) {
    audio_add_sink(&line_, &sink_);
    run(2);
    now += 100 * kStepNs;
    sampling_clock_advance();
    ASSERT_GT(kept_.positions.size(), 2u);
    EXPECT_GT(kept_.positions[2], 80 * kStepSamples);
    EXPECT_EQ(kept_.positions.back() + kStepSamples, now / kStepNs * kStepSamples);
}

TEST_F(AudioEnds, ThereIsRoomForFourSinks) {
    listener others[kSinks];
    for (listener &one : others) {
        const sound_sink sink = {&one, listener_step, listener_event};
        EXPECT_EQ(audio_add_sink(&line_, &sink), nullptr);
    }
    EXPECT_STREQ(audio_add_sink(&line_, &sink_), "so many listen already");
    run(2);
    for (listener &one : others) {
        EXPECT_EQ(one.positions.size(), 2u);
        audio_remove_sink(&line_, &one);
    }
    EXPECT_EQ(kept_.positions.size(), 0u);
}
