// SPDX-License-Identifier: MIT
// System calls of the trace that fail, each once.
#include "base/trace.h"
#include "base/trace_output.h"
#include "support/bus_test.h"
#include "support/failing_call.h"
#include "ziltrace.h"
#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

class TraceCalls : public DescriptorTest {
protected:
    TraceCalls() {
        setenv("ZIL_TRACE_TIME", "1", 1);
        bus::trace_configure();
    }
    ~TraceCalls() override {
        unsetenv("ZIL_TRACE_TIME");
        unsetenv("ZIL_TRACE_OUTPUT");
        bus::trace_output_set_system_log(bus::kSystemLog);
        bus::trace_configure();
    }
    // Trace messages go to this socket from now on.
    int system_log() {
        const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(log, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        setenv("ZIL_TRACE_OUTPUT", "syslog", 1);
        bus::trace_configure();
        bus::trace_output_set_system_log(path.c_str());
        return log;
    }
    static std::string next(int log) {
        char message[1024];
        const ssize_t length = recv(log, message, sizeof message, 0);
        return length > 0 ? std::string(message, static_cast<size_t>(length)) : "";
    }

    ScratchDirectory scratch;
    std::string path = scratch.path("log");
};

TEST_F(TraceCalls, DayThatIsNotKnownIsLeftOut) {
    {
        CapturedTrace trace;
        const FailingCall failing("localtime_r", EOVERFLOW);
        zilTrace(100, "text");
        EXPECT_THAT(trace.text(), testing::MatchesRegex("\\.[0-9]{6} text\n"));
    }
    const int log = system_log();
    {
        const FailingCall failing("localtime_r", EOVERFLOW);
        zilTrace(100, "text");
    }
    EXPECT_EQ(next(log), "<11>kex_system_calls_test: text");
    close(log);
}

TEST_F(TraceCalls, WritingThatIsInterruptedGoesOn) {
    CapturedTrace trace;
    const FailingCall failing("write", EINTR);
    zilTrace(100, "text");
    EXPECT_TRUE(failing.has_failed());
    EXPECT_THAT(trace.text(), testing::EndsWith(" text\n"));
}

TEST_F(TraceCalls, WhatTheKernelDidNotTakeIsWrittenLater) {
    const int log = system_log();
    for (const char *name : {"socket", "sendto"}) {
        for (int error : {EAGAIN, ENOBUFS, ENOMEM, EMFILE, ENFILE, ECONNREFUSED, ENOENT}) {
            {
                const FailingCall failing(name, error);
                zilTrace(100, "%s", strerror(error));
            }
            EXPECT_EQ(next(log), "");
            EXPECT_GT(bus::trace_output_retry(), 0u) << strerror(error);
            bus::trace_catch_up();
            EXPECT_THAT(next(log), HasSubstr(strerror(error)));
            EXPECT_EQ(bus::trace_output_retry(), 0u);
        }
    }
    {
        const FailingCall failing("sendto", EIO);
        zilTrace(100, "never");
    }
    EXPECT_EQ(bus::trace_output_retry(), 0u) << "what can never be written is not kept";
    bus::trace_catch_up();
    EXPECT_EQ(next(log), "");
    close(log);
}

TEST_F(TraceCalls, ClosedSystemLogIsTriedAgainEverySecond) {
    close(system_log()); // its name stays
    zilTrace(100, "early");
    EXPECT_EQ(bus::trace_output_retry(), 1000000000u);
    unlink(path.c_str());
    const int log = system_log();
    EXPECT_EQ(bus::trace_output_retry(), 0u) << "settings that are read anew forget what was kept";
    close(log);
}

} // namespace
