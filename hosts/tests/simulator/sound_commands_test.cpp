// SPDX-License-Identifier: MIT
// Commands that record a line, speak on it, and hand what it hears to a player, on a clock of the test's own.
#include "sound_commands.h"

#include "fake_line.h"
#include "kex_host.h"
#include "scratch_folder.h"
#include "wav_bytes.h"

#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint64_t kStepNs = kStepMs * 1000000u;
uint64_t now; // nanoseconds

uint64_t time_get() {
    return now;
}

class SoundCommands : public ScratchFolder {
protected:
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
        now = 0;
        sampling_clock_replace(time_get);
        sound_commands_begin(telephones_);
        for (telephone &one : telephones_) {
            one.off_hook = one.ringing = false;
            one.sound.detector.said[0] = 0;
        }
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        sound_commands_end();
        testing::internal::GetCapturedStdout();
        sampling_clock_replace(nullptr);
    }

    // An even number: the process wakes each 20 ms.
    static void run(int steps) {
        for (; steps > 0; steps--) {
            now += kStepNs;
            sampling_clock_advance();
        }
    }
    // What has been said since the last question.
    static std::string said() {
        fflush(stdout);
        std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }
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
    static inline plugin_line lines_[2];
    static inline telephone telephones_[2];
};

// ------------------------------------------------------------------------------------------------------------ Record

TEST_F(SoundCommands, RecordingHasWhatIsSaidOnTheRightFromItsBeginToItsEnd) {
    telephones_[0].off_hook = true;
    run(10);
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    EXPECT_EQ(said(), "1 records " + path("a.wav") + "\n");
    run(4);
    EXPECT_EQ(wrong(sound_say, voice(160)), "");
    run(6);
    EXPECT_EQ(wrong(sound_record, "off"), "");
    EXPECT_NE(said().find("1 recording ends: " + path("a.wav") + " 0.10 s\n"), std::string::npos);
    const auto pairs = samples("a.wav");
    ASSERT_EQ(pairs.size(), 800u);
    for (size_t i = 0; i < pairs.size(); i++)
        EXPECT_EQ(pairs[i], std::make_pair(0, i >= 320 && i < 480 ? 1000 : 0)) << i;
}

TEST_F(SoundCommands, RecordingHasItsLabelsBesideIt) {
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    run(10);
    const uint32_t cadence[] = {1000, 4000};
    const line_ring_t ring = {cadence, 2, -1};
    const line_driver_t driver = telephone_driver();
    driver.ring(&telephones_[0], &ring);
    run(10);
    EXPECT_EQ(telephone_lift(&telephones_[0]), nullptr);
    run(10);
    EXPECT_EQ(telephone_flash(&telephones_[0]), nullptr);
    telephone_tell(&telephones_[0], "talking line=0 codec=PCMA ports=1->2");
    run(60);
    // A reader finds ends that are at most half a second old.
    EXPECT_NE(contents("a.labels.txt").find("00000.300000\t00000.500000\ttalking\n"), std::string::npos)
        << contents("a.labels.txt");
    telephone_tell(&telephones_[0], "hears busy-tone");
    run(10);
    telephone_tell(&telephones_[0], "hears silence");
    EXPECT_EQ(telephone_hang_up(&telephones_[0]), nullptr);
    run(10);
    sound_commands_end();
    EXPECT_EQ(contents("a.labels.txt"), "00000.100000\t00000.200000\trings cadence=1000/4000\n"
                                        "00000.200000\t00001.000000\toff hook\n"
                                        "00000.200000\t00000.200000\tstops ringing\n"
                                        "00000.300000\t00000.300000\tflashes\n"
                                        "00000.300000\t00001.100000\ttalking\n"
                                        "00000.900000\t00001.000000\thears busy-tone\n"
                                        "00001.000000\t00001.000000\ton hook\n");
    EXPECT_EQ(samples("a.wav").size(), 110u * 80);
}

TEST_F(SoundCommands, RecordingOfALineThatIsOffHookSaysSo) {
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_record, path("call.first")), "");
    run(2);
    sound_commands_end();
    EXPECT_EQ(contents("call.first.labels.txt"), "00000.000000\t00000.020000\toff hook\n");
}

TEST_F(SoundCommands, RecordingOfALineThatRingsSaysSo) {
    telephones_[0].ringing = true;
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    run(2);
    telephone_stop_ringing(&telephones_[0]);
    sound_commands_end();
    EXPECT_EQ(contents("a.labels.txt"),
              "00000.000000\t00000.020000\trings\n00000.020000\t00000.020000\tstops ringing\n");
}

// Sound is made when its time is over: what happens may be 20 ms ahead of it.
TEST_F(SoundCommands, NoLabelEndsBeforeItsBegin) {
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    run(2);
    now += kStepNs;
    EXPECT_EQ(telephone_lift(&telephones_[0]), nullptr);
    sound_commands_end();
    EXPECT_EQ(contents("a.labels.txt"), "00000.030000\t00000.030000\toff hook\n");
}

TEST_F(SoundCommands, VoiceIsHeardNoLongerThanItsMediaAndAToneIs) {
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    for (const char *heard : {"hears 600Hz", "hears dial-tone"})
        for (const char *text : {"media ended line=0 tx=1", "on hold line=1 codec=PCMA"}) {
            telephone_tell(&telephones_[0], "%s", heard);
            run(2);
            telephone_tell(&telephones_[0], "%s", text);
            run(2);
        }
    sound_commands_end();
    EXPECT_EQ(contents("a.labels.txt"), "00000.000000\t00000.020000\thears 600Hz\n"
                                        "00000.020000\t00000.020000\tmedia ended\n"
                                        "00000.040000\t00000.060000\thears 600Hz\n"
                                        "00000.060000\t00000.060000\ton hold\n"
                                        "00000.080000\t00000.120000\thears dial-tone\n"
                                        "00000.100000\t00000.100000\tmedia ended\n"
                                        "00000.120000\t00000.160000\thears dial-tone\n"
                                        "00000.140000\t00000.140000\ton hold\n");
}

TEST_F(SoundCommands, TalkingGoesOnWhenAnotherCallOfTheLineEnds) {
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    for (const char *text : {"talking line=0 codec=PCMA", "on hold line=0 codec=PCMA", "talking line=1 codec=PCMA",
                             "media ended line=0 tx=1", "media ended line=1 tx=1"}) {
        telephone_tell(&telephones_[0], "%s", text);
        run(2);
    }
    sound_commands_end();
    EXPECT_EQ(contents("a.labels.txt"), "00000.000000\t00000.020000\ttalking\n"
                                        "00000.020000\t00000.020000\ton hold\n"
                                        "00000.040000\t00000.080000\ttalking\n"
                                        "00000.060000\t00000.060000\tmedia ended\n"
                                        "00000.080000\t00000.080000\tmedia ended\n");
}

TEST_F(SoundCommands, TimeThatTheProcessWasStoppedForIsSilent) {
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    run(2);
    now += 3000 * kStepNs; // 30 s
    sampling_clock_advance();
    run(2);
    EXPECT_EQ(wrong(sound_record, "off"), "");
    EXPECT_EQ(samples("a.wav").size(), 3004u * 80);
}

TEST_F(SoundCommands, RecordingThatCannotBeWrittenEndsAndTheLineGoesOn) {
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    EXPECT_EQ(wrong(sound_say, voice(8000)), "");
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {10000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    said();
    run(60);
    fflush(stdout);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, handler);
    EXPECT_NE(said().find("1 recording ends: " + path("a.wav") + " 0.20 s: " + strerror(EFBIG)), std::string::npos);
    EXPECT_EQ(samples("a.wav").size(), 1600u);
    run(60);
    EXPECT_NE(said().find("1 has said "), std::string::npos);
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "") << "and another one can be made";
}

TEST_F(SoundCommands, RecordIsRefusedWithAReason) {
    EXPECT_EQ(wrong(sound_record, ""), "record where? 1 record FILE.wav");
    EXPECT_EQ(wrong(sound_record, "off"), "1 is not recorded");
    EXPECT_EQ(wrong(sound_record, "/dev/full"), "/dev/full: is a device, not a file");
    EXPECT_EQ(wrong(sound_record, path("")), path("") + ": is a folder");
    EXPECT_EQ(wrong(sound_record, path("no/a.wav")), path("no/a.wav") + ": " + strerror(ENOENT));
    EXPECT_EQ(wrong(sound_record, put("a.txt", "Dear aunt,")), path("a.txt") + ": is there already and is no WAV file");
    std::filesystem::create_directory(path("b.labels.txt"));
    EXPECT_EQ(wrong(sound_record, path("b.wav")), path("b.labels.txt") + ": is a folder");
    EXPECT_NE(wrong(sound_record, std::string(600, 'x')), "");
    const std::string longest = path("") + std::string(480, '/'); // as long as a command can be
    EXPECT_EQ(wrong(sound_record, longest), longest + ": is a folder");
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "1 records " + path("a.wav") + ": end that first, by 1 record off");
    EXPECT_EQ(wrong(sound_record, path("a.wav"), 2), path("a.wav") + ": is being recorded to");
}

TEST_F(SoundCommands, NamesWithBlanksStandInQuotes) {
    telephones_[0].off_hook = true;
    for (auto *command : {sound_record, sound_listen, sound_say})
        for (const std::string &words : {path("my file.wav"), "\"" + path("my") + "\"file\"", std::string("off now")})
            EXPECT_EQ(wrong(command, words), "one file, please: a name with blanks stands in double quotes") << words;
    EXPECT_EQ(wrong(sound_record, "\"" + path("my file.wav") + "\" "), "");
    EXPECT_TRUE(std::filesystem::exists(path("my file.labels.txt")));
}

TEST_F(SoundCommands, RefusedRecordingLeavesWhatIsThere) {
    const std::string before = WavBytes().file(sound_of({1, 2, 3}));
    put("b.wav", before);
    std::filesystem::create_directory(path("b.labels.txt"));
    EXPECT_EQ(wrong(sound_record, path("b.wav")), path("b.labels.txt") + ": is a folder");
    EXPECT_EQ(contents("b.wav"), before);
    put("c.labels.txt", "Dear aunt,");
    EXPECT_EQ(wrong(sound_record, path("c.wav")), path("c.labels.txt") + ": is there already and has no labels");
    EXPECT_EQ(contents("c.labels.txt"), "Dear aunt,");
}

TEST_F(SoundCommands, TwoRecordingsHaveNoLabelFileInCommon) {
    EXPECT_EQ(wrong(sound_record, path("a.wav")), "");
    EXPECT_EQ(wrong(sound_record, path("a"), 2), path("a.labels.txt") + ": is being recorded to");
    EXPECT_EQ(wrong(sound_record, path("a.labels.txt"), 2), path("a.labels.txt") + ": is being recorded to");
}

// --------------------------------------------------------------------------------------------------------------- Say

TEST_F(SoundCommands, FileIsSaidOnceAndItsEndIsTold) {
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_say, voice(8100)), "");
    EXPECT_EQ(said(), "1 says " + path("voice.wav") + " 1.01 s\n");
    run(102);
    EXPECT_EQ(said(), "");
    run(2);
    EXPECT_EQ(said(), "1 has said " + path("voice.wav") + "\n");
}

TEST_F(SoundCommands, FileEndsWithTheCallOrByCommandOrByTheNextFile) {
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_say, voice(8000)), "");
    run(4);
    EXPECT_EQ(wrong(sound_say, "off"), "");
    EXPECT_NE(said().find("1 stops saying " + path("voice.wav") + ": told to\n"), std::string::npos);
    EXPECT_EQ(wrong(sound_say, "off"), "1 says no file");
    EXPECT_EQ(wrong(sound_say, voice(8000)), "");
    EXPECT_EQ(wrong(sound_say, voice(160)), "");
    run(4);
    EXPECT_NE(said().find("1 has said "), std::string::npos);
    EXPECT_EQ(wrong(sound_say, voice(8000)), "");
    telephone_hang_up(&telephones_[0]);
    run(2);
    EXPECT_NE(said().find("1 stops saying " + path("voice.wav") + ": on hook\n"), std::string::npos);
}

TEST_F(SoundCommands, FileOfACallIsNotSaidInTheNextOne) {
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_say, voice(8000)), "");
    run(2);
    telephone_hang_up(&telephones_[0]);
    telephone_lift(&telephones_[0]); // before anything is said
    EXPECT_NE(said().find("1 stops saying " + path("voice.wav") + ": on hook\n"), std::string::npos);
    EXPECT_FALSE(ends_are_used(&telephones_[0].sound.ends));
}

TEST_F(SoundCommands, FileThatIsCutMeanwhileEndsWithAReason) {
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_say, voice(80000)), "");
    run(4);
    ASSERT_EQ(truncate(path("voice.wav").c_str(), 10000), 0);
    run(1000);
    EXPECT_NE(said().find("1 stops saying " + path("voice.wav") + ": it was cut while it was read\n"),
              std::string::npos);
}

TEST_F(SoundCommands, SayIsRefusedWithAReason) {
    EXPECT_EQ(wrong(sound_say, ""), "say what? 1 say FILE.wav");
    EXPECT_EQ(wrong(sound_say, voice(80)), "1 is on hook: nobody would hear it");
    telephones_[0].off_hook = true;
    EXPECT_EQ(wrong(sound_say, "/dev/zero"), "/dev/zero: is a device, not a file");
    EXPECT_EQ(wrong(sound_say, put("a.wav", "")), path("a.wav") + ": is empty");
    EXPECT_EQ(wrong(sound_say, voice(8000)), "");
    EXPECT_EQ(wrong(sound_say, path("a.wav")), path("a.wav") + ": is empty");
    said();
    run(102);
    EXPECT_EQ(said(), "1 has said " + path("voice.wav") + "\n") << "the one before is not disturbed";
}

// ------------------------------------------------------------------------------------------------------------ Listen

TEST_F(SoundCommands, PlayerGetsWhatIsHeard) {
    EXPECT_EQ(wrong(sound_listen, path("a.raw")), "");
    EXPECT_EQ(said(), "1 is listened to: " + path("a.raw") + "\n");
    run(10);
    EXPECT_EQ(wrong(sound_listen, path("b.raw")),
              "1 is listened to at " + path("a.raw") + ": end that first, by 1 listen off");
    EXPECT_EQ(wrong(sound_listen, "off"), "");
    EXPECT_EQ(said(), "1 listening ends: " + path("a.raw") + " samples=800 dropped=0\n");
    EXPECT_EQ(contents("a.raw").size(), 1600u);
    EXPECT_EQ(wrong(sound_listen, "off"), "1 is not listened to");
}

TEST_F(SoundCommands, PlayerThatNeverReadsCostsNothingAndOneThatLeavesIsTold) {
    signal(SIGPIPE, SIG_IGN); // as in every host
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(wrong(sound_listen, path("pipe")),
              path("pipe") + ": is a pipe that nobody reads: start its reader first");
    const int player = open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_EQ(wrong(sound_listen, path("pipe")), "");
    said();
    run(1000);
    EXPECT_EQ(said(), "");
    close(player);
    run(2);
    const std::string end = said();
    EXPECT_NE(end.find("1 listening ends: " + path("pipe") + " samples="), std::string::npos);
    EXPECT_NE(end.find(": nobody reads any more\n"), std::string::npos);
    EXPECT_EQ(wrong(sound_listen, ""), "listen where? 1 listen PIPE");
    EXPECT_EQ(wrong(sound_listen, "/dev/full"), "/dev/full: is a device, not a file");
}

// ------------------------------------------------------------------------------------------------------------ Expect

TEST_F(SoundCommands, ExpectationIsMetAtOnceByWhatIsHeardAlready) {
    EXPECT_EQ(wrong(sound_expect, "silence 1s"), "");
    EXPECT_NE(wrong(sound_expect, "busy-tone 1s"), "") << "it waits";
    sound_commands_end();
    telephones_[0].ringing = true;
    EXPECT_EQ(wrong(sound_expect, "rings 1s"), "");
}

// Tones that sound alike in a country are said by all of their names.
TEST_F(SoundCommands, EachNameOfWhatIsHeardMeetsAnExpectation) {
    const auto waits = [](const char *told) {
        wrong(sound_expect, "busy-tone 600s");
        telephone_tell(&telephones_[0], "%s", told);
        kex_dispatch(bus_);
        const bool still = wrong(sound_expect, "busy-tone 600s") == "1 waits for busy-tone already";
        sound_commands_end();
        return still;
    };
    EXPECT_FALSE(waits("hears busy-tone"));
    EXPECT_FALSE(waits("hears busy-tone or congestion-tone"));
    EXPECT_FALSE(waits("hears congestion-tone or busy-tone"));
    EXPECT_TRUE(waits("hears not-busy-tone"));
    EXPECT_TRUE(waits("hears busy-tone-2"));
    EXPECT_TRUE(waits("hears silence"));
    EXPECT_TRUE(waits("displays busy-tone"));
}

TEST_F(SoundCommands, ExpectIsRefusedWithAReason) {
    for (const char *words : {"", "busy-tone"})
        EXPECT_EQ(wrong(sound_expect, words), "expect what, and for how long? 1 expect busy-tone 3s");
    for (const std::string time : {"3", "s", "-1s", "0s", "0ms", "600.1s", "600001ms", "99999999999999999999s", "3 s",
                                   "1e3s", "3sec", ".s", "1.2.3s", "nans", "0.0001s"})
        EXPECT_NE(wrong(sound_expect, "busy-tone " + time).find("a time from 1ms to 600s"), std::string::npos) << time;
    EXPECT_NE(wrong(sound_expect, "\"\" 3s").find("what a line hears"), std::string::npos);
    EXPECT_NE(wrong(sound_expect, std::string(100, 'x') + " 3s").find("what a line hears"), std::string::npos);
    wrong(sound_expect, "busy-tone 600s");
    EXPECT_EQ(wrong(sound_expect, "dial-tone 1s"), "1 waits for busy-tone already");
}

TEST_F(SoundCommands, NothingStaysOpen) {
    const int first = dup(0);
    close(first);
    telephones_[0].off_hook = true;
    wrong(sound_record, path("a.wav"));
    wrong(sound_say, voice(800));
    wrong(sound_listen, path("a.raw"));
    wrong(sound_expect, "busy-tone 1s");
    run(4);
    sound_commands_end();
    EXPECT_FALSE(ends_are_used(&telephones_[0].sound.ends));
    const int last = dup(0);
    EXPECT_EQ(last, first);
    close(last);
}

} // namespace
