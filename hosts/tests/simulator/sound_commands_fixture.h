// SPDX-License-Identifier: MIT
// Two telephones whose lines are recorded and spoken on, on a clock of the test's own.
#pragma once

#include "captured_output.h"
#include "fake_line.h"
#include "kex_host.h"
#include "scratch_folder.h"
#include "sound_commands.h"
#include "wav_bytes.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

class SoundCommands : public ScratchFolder {
protected:
    static constexpr uint64_t kStepNs = kStepMs * 1000000u;

    static void SetUpTestSuite() {
        bus_ = kex_create("sound_commands_test");
        audio_begin(bus_, "sound_commands_test");
        for (int i = 0; i < 2; i++) {
            lines_[i] = {i + 1, true};
            telephone_begin(&telephones_[i], &lines_[i], 400);
        }
    }
    static void TearDownTestSuite() { kex_destroy(bus_); }

    void SetUp() override {
        now_ = 0;
        sampling_clock_replace([] { return now_; });
        sound_commands_begin(telephones_);
        for (telephone &one : telephones_) {
            one.off_hook = one.ringing = false;
            one.sound.detector.said[0] = 0;
        }
        output_.emplace();
    }
    void TearDown() override {
        sound_commands_end();
        output_.reset();
        sampling_clock_replace(nullptr);
    }

    // An even number: the process wakes each 20 ms.
    static void run(int steps) {
        for (; steps > 0; steps--) {
            now_ += kStepNs;
            sampling_clock_advance();
        }
    }
    // What has been said since the last question.
    std::string said() { return output_->take(); }
    // Why a command was not carried out; empty: it was.
    static std::string wrong(const char *command(int, char *), std::string words, int number = 1) {
        const char *why = command(number, words.data());
        return why == nullptr ? "" : why;
    }
    // The two channels of the recording, as numbers.
    std::vector<std::pair<int, int>> samples(const std::string &name) const {
        const std::string all = contents(name);
        std::vector<std::pair<int, int>> pairs;
        for (size_t at = 44; at + 4 <= all.size(); at += 4) {
            const auto value = [&](size_t place) {
                return static_cast<int16_t>(static_cast<uint8_t>(all[place]) | static_cast<uint8_t>(all[place + 1])
                                                                                   << 8);
            };
            pairs.emplace_back(value(at), value(at + 2));
        }
        return pairs;
    }
    std::string voice(size_t count, int value = 1000) const {
        std::string sound;
        for (size_t i = 0; i < count; i++)
            sound += sound_of({value});
        return put("voice.wav", WavBytes().file(sound));
    }

    static inline kex_t *bus_;
    static inline uint64_t now_; // nanoseconds
    std::optional<CapturedOutput> output_;
    static inline plugin_line lines_[2];
    static inline telephone telephones_[2];
};
