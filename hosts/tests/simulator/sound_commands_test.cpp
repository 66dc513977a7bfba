// SPDX-License-Identifier: MIT
// Commands that speak on a line, hand what it hears to a player, and wait for what it hears.
#include "sound_commands_fixture.h"

#include <fcntl.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

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
