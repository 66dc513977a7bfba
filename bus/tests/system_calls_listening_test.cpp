// SPDX-License-Identifier: MIT
// System calls of a listener, the loop and a tap that fail, each once.
#include "kex_tap.h"
#include "system_calls_fixture.h"
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST_F(SystemCalls, ListenerSaysWhichStepFailed) {
    const struct {
        const char *name;
        const char *why;
    } rows[] = {
        {"fchmod", "Operation not permitted"}, {"fstat", "its socket has been replaced"},
        {"chmod", "Operation not permitted"},  {"listen", "Operation not permitted"},
        {"socket", "Operation not permitted"},
    };
    const std::string path = scratch.path("other");
    const mode_t before = umask(0777); // so that the mode has to be set once more
    const auto begin_anew = [&path] {
        unlink(path.c_str());
        unlink((path + ".lock").c_str()); // nobody but root could open it again
    };
    for (const auto &one : rows) {
        CapturedTrace trace;
        begin_anew();
        {
            const FailingCall failing(one.name, EPERM);
            EXPECT_EQ(connection_listenOnIPC(kex_connection(client), path.c_str()), nullptr) << one.name;
            EXPECT_TRUE(failing.has_failed()) << one.name;
        }
        EXPECT_THAT(trace.text(), HasSubstr("cannot listen on '" + path + "': " + one.why));
    }
    begin_anew();
    EXPECT_NE(connection_listenOnIPC(kex_connection(client), path.c_str()), nullptr);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0660u) << "whatever the umask says";
    umask(before);
}

TEST_F(SystemCalls, InheritedSocketsAreNotBelievedInWithoutASizeOfTheTable) {
    CapturedTrace trace;
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    {
        const FailingCall failing("getrlimit", EPERM);
        EXPECT_NE(connection_listenOnIPC(kex_connection(client), scratch.path("other").c_str()), nullptr);
        EXPECT_TRUE(failing.has_failed());
    }
    unsetenv("LISTEN_PID");
    unsetenv("LISTEN_FDS");
    EXPECT_THAT(trace.text(), HasSubstr("LISTEN_FDS is not a number of descriptors"));
}

// ----------------------------------------------------------------------------------------- The loop

TEST_F(SystemCalls, TurnThatCannotLookIsAnError) {
    {
        const FailingCall failing("epoll_wait", EBADF);
        EXPECT_EQ(kex_dispatch(client), -1);
    }
    {
        const FailingCall failing("epoll_wait", EBADF);
        EXPECT_EQ(kex_run(client), -1);
    }
    {
        const FailingCall failing("epoll_wait", EINTR);
        EXPECT_EQ(kex_dispatch(client), 0);
    }
    EXPECT_THAT(echo(), ElementsAre(kAnswer));
}

// One way of waking serves for the other.
TEST_F(SystemCalls, LoopWakesAlthoughOneWayOfWakingFails) {
    const struct {
        const char *name;
        int error;
    } rows[] = {{"timerfd_settime", EINVAL}, {"write", EAGAIN}, {"read", EAGAIN}};
    for (const auto &one : rows) {
        static bool fired;
        fired = false;
        kex_timer_t *timer = kex_timer_create();
        kex_timer_setHandler(timer, [](kex_timer_t *) { fired = true; });
        for (uint32_t milliseconds : {20u, 0u}) {
            fired = false;
            const FailingCall failing(one.name, one.error);
            kex_timer_start(timer, milliseconds);
            for (int i = 0; !fired && i < 1000; i++) {
                for (kex_t *bus : {server, client}) {
                    pollfd ready = {kex_pollDescriptor(bus), POLLIN, 0};
                    poll(&ready, 1, 10);
                    kex_dispatch(bus);
                }
            }
            EXPECT_TRUE(fired) << one.name << " " << milliseconds;
        }
        kex_timer_destroy(timer);
    }
}

TEST_F(SystemCalls, RequestIsSentAlthoughTheLoopCannotBeToldOfIt) {
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    {
        const FailingCall failing("write", EAGAIN);
        ASSERT_TRUE(kex_sendRequest(client, to_server, r));
        EXPECT_TRUE(failing.has_failed());
    }
    pollfd ready = {kex_pollDescriptor(client), POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 5000), 1) << "the timer wakes it";
    EXPECT_TRUE(turn_until([&] { return request_reply(r) != nullptr; }));
    request_destroy(r);
    turn_until_idle();
    r = request_create_executeFunction("Probe", "note", 0);
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    {
        const FailingCall failing("read", EAGAIN);
        kex_dispatch(client);
        EXPECT_TRUE(failing.has_failed());
    }
    EXPECT_TRUE(turn_until([&] { return request_reply(r) != nullptr; }));
    request_destroy(r);
}

// ----------------------------------------------------------------------------------------- Taps

TEST_F(SystemCalls, TapThatCannotSayHelloIsNone) {
    char why[256] = "";
    const FailingCall failing("send", ENOMEM);
    EXPECT_EQ(kex_tap_open(uri_of(socket).c_str(), why, sizeof why), nullptr);
    EXPECT_THAT(why, HasSubstr("cannot tap '" + uri_of(socket) + "': Cannot allocate memory"));
}

// A listener takes in and turns away as soon as somebody has connected.
TEST_F(SystemCalls, TapThatIsTurnedAwayBeforeItsHelloSeesWhy) {
    CapturedTrace trace;
    kex_tap_t *tap;
    {
        const FailingCall failing("send", EPIPE);
        tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
        EXPECT_TRUE(failing.has_failed());
    }
    ASSERT_NE(tap, nullptr);
    {
        const FailingCall failing("getsockopt", EIO);
        turn_until_idle();
    }
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_REFUSED);
    EXPECT_STREQ(record.text, "its user may not connect");
    EXPECT_EQ(kex_tap_next(tap, &record), -1);
    kex_tap_close(tap);
}

TEST_F(SystemCalls, TapReadsOnAfterAnInterruptionAndEndsAtAnError) {
    kex_tap_t *tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    ASSERT_NE(tap, nullptr);
    turn_until_idle();
    kex_tap_record_t record;
    {
        const FailingCall failing("recv", EINTR);
        EXPECT_EQ(kex_tap_next(tap, &record), 1);
        EXPECT_TRUE(failing.has_failed());
    }
    while (kex_tap_next(tap, &record) == 1)
        ; // who is there already
    const FailingCall failing("recv", EIO);
    EXPECT_EQ(kex_tap_next(tap, &record), -1);
    EXPECT_EQ(kex_tap_next(tap, &record), -1);
    kex_tap_close(tap);
}

TEST_F(SystemCalls, TapIsToldOfACopyThatCouldNotBeSent) {
    kex_tap_t *tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    ASSERT_NE(tap, nullptr);
    turn_until_idle();
    kex_tap_record_t record;
    while (kex_tap_next(tap, &record) == 1)
        ;
    RawPeer raw(socket);
    raw.send(hello());
    {
        CapturedTrace trace;
        const FailingCall failing("send", EIO, 2); // the hello to the newcomer is the first
        turn_until_idle();
        EXPECT_TRUE(failing.has_failed());
        EXPECT_EQ(trace.text(), "") << "it is the tap's loss only";
    }
    EXPECT_EQ(kex_tap_next(tap, &record), 0);
    raw.send(Packet(kWaiting, 1));
    turn_until_idle();
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_LOST);
    EXPECT_EQ(record.lost, 1u);
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_WAITING);
    kex_tap_close(tap);
}

} // namespace
