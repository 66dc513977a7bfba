// SPDX-License-Identifier: MIT
// Commands that record a line: what is in the file and in its labels, and why there is none.
#include "sound_commands_fixture.h"

#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

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
    now_ += kStepNs;
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
    now_ += 3000 * kStepNs; // 30 s
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

} // namespace
