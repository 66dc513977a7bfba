// SPDX-License-Identifier: MIT
// The trace service: filters, format, destinations.
#include "base/trace.h"
#include "base/trace_settings.h"
#include "support/bus_test.h"
#include "ziltrace.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

using namespace support;

namespace {

const char *const kVariables[] = {"ZIL_TRACE_LEVEL", "ZIL_TRACE_ZONES", "ZIL_TRACE_OUTPUT", "ZIL_TRACE_TIME",
                                  "ZIL_TRACE_COLOR"};

class Trace : public DescriptorTest {
protected:
    Trace() { configure({}); }
    ~Trace() override {
        for (const char *variable : kVariables)
            unsetenv(variable);
        bus::trace_configure();
    }
    void configure(const std::vector<std::pair<const char *, const char *>> &settings) {
        for (const char *variable : kVariables)
            unsetenv(variable);
        for (auto [variable, value] : settings)
            setenv(variable, value, 1);
        bus::trace_configure();
    }
};

TEST_F(Trace, WarningsAndErrorsPassByDefault) {
    CapturedTrace trace;
    EXPECT_EQ(zilTrace(100, "error %d", 1), 1);
    EXPECT_EQ(zilTrace(200, "warning"), 1);
    EXPECT_EQ(zilTrace(201, "no"), 0);
    EXPECT_EQ(zilTraceZ(300, "LIBV", "no"), 0);
    EXPECT_EQ(zilTraceZ(200, "LIBV", "%-7.7s - zone", "LIBV"), 1);
    EXPECT_EQ(trace.text(), "error 1\nwarning\nLIBV    - zone\n");
}

TEST_F(Trace, LevelIsSetForAll) {
    configure({{"ZIL_TRACE_LEVEL", "500"}});
    CapturedTrace trace;
    EXPECT_EQ(zilTraceZ(500, "LIBV", "in"), 1);
    EXPECT_EQ(zilTraceZ(501, "LIBV", "out"), 0);
    configure({{"ZIL_TRACE_LEVEL", "0"}});
    EXPECT_EQ(zilTrace(100, "out"), 0);
    EXPECT_EQ(trace.text(), "in\n");
}

TEST_F(Trace, ZonesHaveLevelsOfTheirOwn) {
    configure(
        {{"ZIL_TRACE_LEVEL", "200"}, {"ZIL_TRACE_ZONES", "LIBV=500,junk,SIGNAL=100,=3,toolongazonenametokeep=500"}});
    CapturedTrace trace;
    EXPECT_EQ(zilTraceZ(500, "LIBV", "a"), 1);
    EXPECT_EQ(zilTraceZ(200, "SIGNAL", "b"), 0) << "lower than the general one";
    EXPECT_EQ(zilTraceZ(100, "SIGNAL", "c"), 1);
    EXPECT_EQ(zilTraceZ(300, "MEDIA", "d"), 0);
    EXPECT_EQ(zilTraceZ(200, "LIBVX", "e"), 1);
    EXPECT_EQ(zilTraceZ(300, nullptr, "f"), 0);
    EXPECT_EQ(zilTrace(300, "g"), 0);
    EXPECT_EQ(trace.text(), "a\nc\ne\n");
}

TEST_F(Trace, LevelsThatAreNoNumbersArePassedOver) {
    for (const char *junk : {"", "abc", "300x", " ", "99999999999999999999", "0x1F4", "300,400x"}) {
        CapturedTrace trace;
        configure({{"ZIL_TRACE_LEVEL", junk}});
        EXPECT_EQ(zilTrace(200, "in"), 1) << "'" << junk << "'";
        EXPECT_EQ(zilTrace(201, "out"), 0) << "'" << junk << "'";
    }
    configure({{"ZIL_TRACE_ZONES", "LIBV=,LIBV=x,SIGNAL=5OO,MEDIA=400x,LIBV=300"}});
    CapturedTrace trace;
    EXPECT_EQ(zilTraceZ(300, "LIBV", "a"), 1);
    EXPECT_EQ(zilTraceZ(200, "SIGNAL", "b"), 1) << "as if it had not been named";
    EXPECT_EQ(zilTraceZ(201, "SIGNAL", "c"), 0);
    EXPECT_EQ(zilTraceZ(201, "MEDIA", "d"), 0);
}

TEST_F(Trace, TimeStandsInFront) {
    configure({{"ZIL_TRACE_TIME", "1"}});
    CapturedTrace trace;
    zilTrace(100, "text");
    EXPECT_THAT(trace.text(), testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                                    "\\.[0-9]{6} text\n"));
}

TEST_F(Trace, ColourSurroundsTheLine) {
    configure({{"ZIL_TRACE_COLOR", "on"}, {"ZIL_TRACE_LEVEL", "400"}});
    CapturedTrace trace;
    zilTrace(100, "red");
    zilTrace(200, "yellow");
    zilTrace(400, "plain");
    EXPECT_EQ(trace.text(), "\033[31mred\033[0m\n\033[33myellow\033[0m\nplain\n");
}

TEST_F(Trace, LinesOfAnyLengthAreWhole) {
    CapturedTrace trace;
    std::string expected;
    for (size_t length : {0u, 1000u, 1014u, 1015u, 1016u, 1017u, 1023u, 1024u, 1025u, 5000u}) {
        std::string text(length, 'x');
        zilTrace(100, "%s", text.c_str());
        expected += text + "\n";
    }
    EXPECT_EQ(trace.text(), expected);
}

TEST_F(Trace, ErrnoIsShownAndKept) {
    CapturedTrace trace;
    errno = ENOENT;
    zilTrace(100, "%m");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(trace.text(), "No such file or directory\n");
}

TEST_F(Trace, SyslogLeavesStandardErrorAlone) {
    configure({{"ZIL_TRACE_OUTPUT", "syslog"}});
    CapturedTrace trace;
    EXPECT_EQ(zilTrace(100, "elsewhere"), 1);
    EXPECT_EQ(zilTrace(500, "nowhere"), 0);
    closelog(); // libc keeps its descriptor otherwise
    EXPECT_EQ(trace.text(), "");
}

TEST_F(Trace, ReaderThatWentAwayDoesNotKill) {
    int pipe_ends[2];
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC), 0);
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL) << "this test means nothing otherwise";
    int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(pipe_ends[1], STDERR_FILENO);
    close(pipe_ends[1]);
    configure({});
    zilTrace(100, "read");
    char text[16] = "";
    EXPECT_EQ(read(pipe_ends[0], text, sizeof text - 1), 5);
    close(pipe_ends[0]);
    zilTrace(100, "nobody reads this");
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    dup2(saved, STDERR_FILENO);
    close(saved);
    EXPECT_STREQ(text, "read\n");
}

TEST_F(Trace, NullFormatIsNoLine) {
    const char *volatile none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    EXPECT_EQ(zilTrace(100, none), 0);
    EXPECT_EQ(zilTraceZ(100, "LIBV", none), 0);
#pragma GCC diagnostic pop
}

TEST_F(Trace, SwitchesAreOnByFourWords) {
    for (const char *word : {"1", "on", "yes", "true", "0", "off", "no", "ON", ""}) {
        configure({{"ZIL_TRACE_COLOR", word}});
        CapturedTrace trace;
        zilTrace(100, "text");
        const bool on = std::string("1 on yes true").find(word) != std::string::npos && *word != '\0';
        EXPECT_EQ(trace.text(), on ? "\033[31mtext\033[0m\n" : "text\n") << word;
    }
}

TEST_F(Trace, EachLevelHasItsColour) {
    configure({{"ZIL_TRACE_COLOR", "on"}, {"ZIL_TRACE_LEVEL", "600"}});
    CapturedTrace trace;
    for (int level : {100, 101, 200, 201, 300, 301, 400, 401, 500})
        zilTrace(level, "%d", level);
    EXPECT_EQ(trace.text(), "\033[31m100\033[0m\n"
                            "\033[33m101\033[0m\n\033[33m200\033[0m\n"
                            "\033[36m201\033[0m\n\033[36m300\033[0m\n"
                            "301\n400\n"
                            "\033[2m401\033[0m\n\033[2m500\033[0m\n");
}

TEST_F(Trace, LevelsBeyondWhatANumberHoldsArePassedOver) {
    for (const char *level : {"2147483648", "-2147483649", "99999999999999999999999", "-99999999999999999999999"}) {
        configure({{"ZIL_TRACE_LEVEL", level}});
        CapturedTrace trace;
        zilTrace(200, "warning");
        zilTrace(300, "notice");
        EXPECT_EQ(trace.text(), "warning\n") << level;
    }
}

TEST_F(Trace, ZonesHaveALimit) {
    std::string zones;
    for (uint32_t i = 0; i <= bus::kMaxZones; i++)
        zones += "Z" + std::to_string(i) + "=500,";
    configure({{"ZIL_TRACE_ZONES", zones.c_str()}});
    CapturedTrace trace;
    zilTraceZ(500, ("Z" + std::to_string(bus::kMaxZones - 1)).c_str(), "last");
    zilTraceZ(500, ("Z" + std::to_string(bus::kMaxZones)).c_str(), "one more");
    EXPECT_EQ(trace.text(), "last\n");
}

TEST_F(Trace, OtherOutputsAreStandardError) {
    configure({{"ZIL_TRACE_OUTPUT", "elsewhere"}});
    CapturedTrace trace;
    zilTrace(100, "text");
    EXPECT_EQ(trace.text(), "text\n");
}

} // namespace
