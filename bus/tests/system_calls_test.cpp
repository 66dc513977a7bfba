// SPDX-License-Identifier: MIT
// System calls that fail, each once: what is left of a call, a connection, a listener, the loop and the trace.
#include "base/closer.h"
#include "base/limits.h"
#include "base/trace.h"
#include "base/trace_output.h"
#include "kex_tap.h"
#include "served_functions.h"
#include "support/failing_call.h"
#include "support/served_bus.h"
#include "ziltrace.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class SystemCalls : public TwoBuses {
protected:
    SystemCalls() {
        served::reset();
        served::declare(server);
        kex_onPeerClosed(client, count, &closed);
        turn_until_idle();
    }
    ~SystemCalls() override { served::reset(); }

    static void count(kex_t *, peer_t *, void *counter) { ++*static_cast<int *>(counter); }
    // What a call is answered.
    std::vector<std::string> echo() {
        request_t *r = call("Probe", "echo", {{"text", text("x")}});
        std::vector<std::string> lines = lines_of(r);
        request_destroy(r);
        return lines;
    }

    int closed = 0;
};

const char *const kAnswer = "value text \"x\"";

// ----------------------------------------------------------------------------------------- Connections

TEST_F(SystemCalls, ReadingThatIsInterruptedGoesOn) {
    for (const char *name : {"recvmsg", "recvmmsg"}) {
        for (int error : {EINTR, ECONNRESET}) {
            const FailingCall failing(name, error);
            for (int i = 0; i < 2; i++) // one of them reads one packet, the other one several
                EXPECT_THAT(echo(), ElementsAre(kAnswer)) << name << ": " << strerror(error);
            EXPECT_TRUE(failing.has_failed()) << name;
        }
    }
    EXPECT_EQ(closed, 0);
}

TEST_F(SystemCalls, ReadingThatFailsEndsTheConnectionWithTheReason) {
    const FailingCall failing("recvmsg", EIO);
    std::vector<std::string> lines;
    for (int i = 0; i < 2 && !failing.has_failed(); i++) // one of them reads one packet, the other one several
        lines = echo();
    EXPECT_THAT(lines, ElementsAre(HasSubstr("error 65541 Peer closed")));
    turn_until_idle();
    EXPECT_EQ(closed, 1);
}

// Found as EPIPE is: what the peer sent before it went is still read, and its end behind it.
TEST_F(SystemCalls, SendingToOneThatHasGoneIsNoError) {
    for (int error : {ECONNRESET, ENOTCONN}) {
        CapturedTrace trace;
        RawPeer raw(socket);
        raw.send(hello());
        turn_until_idle();
        raw.send(support::call(1, "Probe", "note"));
        {
            const FailingCall failing("send", error);
            turn_until_idle();
            EXPECT_TRUE(failing.has_failed());
        }
        raw.send(support::call(2, "Probe", "note"));
        turn_until_idle();
        EXPECT_EQ(trace.text(), "") << strerror(error);
        EXPECT_EQ(raw.receive_all().size(), 1u) << "the hello, and no reply";
    }
    EXPECT_THAT(served::log, ElementsAre("note nothing", "note nothing", "note nothing", "note nothing"));
}

TEST_F(SystemCalls, AllThatLiesHereForOneThatHasGoneIsDropped) {
    RawPeer raw(socket);
    raw.send(hello());
    peer_t *peer = peer_of(raw, server);
    raw.close();
    CapturedTrace trace;
    request_t *requests[3];
    for (request_t *&r : requests) {
        r = request_create_executeFunction("a", "b", 0);
        ASSERT_TRUE(kex_sendRequest(server, peer, r));
    }
    EXPECT_TRUE(peer_disconnect(peer)); // sends first
    turn_until_idle();
    for (request_t *r : requests) {
        EXPECT_THAT(lines_of(r), ElementsAre(HasSubstr("error 65541 Peer closed")));
        request_destroy(r);
    }
    EXPECT_EQ(trace.text(), "");
}

// Until its end is read, nothing more is made for it.
TEST_F(SystemCalls, RequestToOneThatHasGoneIsNotQueued) {
    RawPeer raw(socket);
    raw.send(hello());
    peer_t *peer = peer_of(raw, server);
    raw.receive_all();
    request_t *requests[2];
    for (request_t *&r : requests)
        r = request_create_executeFunction("a", "b", 0);
    ASSERT_TRUE(kex_sendRequest(server, peer, requests[0]));
    {
        const FailingCall failing("send", EPIPE);
        kex_dispatch(server);
        EXPECT_TRUE(failing.has_failed());
    }
    CapturedTrace trace;
    EXPECT_FALSE(kex_sendRequest(server, peer, requests[1]));
    EXPECT_THAT(trace.text(), HasSubstr("request 'b' of 'a' to 'raw'"));
    turn_until_idle();
    EXPECT_TRUE(raw.receive_all().empty());
    for (request_t *r : requests)
        request_destroy(r);
}

// Eight packets of sixteen messages fit into a batch: six of them leave together.
TEST_F(SystemCalls, AsManyDescriptorsAsMayWaitLeaveByOneSystemCall) {
    constexpr uint32_t kCalls = 96;
    RawPeer raw(socket);
    raw.send(hello());
    peer_t *peer = peer_of(raw, server);
    raw.receive_all();
    for (uint32_t i = 0; i < kCalls; i++) {
        request_t *r = request_create_executeFunction("a", "b", 0);
        const variant_t one = descriptor(STDIN_FILENO);
        ASSERT_TRUE(request_addParameter(r, "v", &one));
        ASSERT_TRUE(kex_sendRequest(server, peer, r)) << i;
        request_destroy(r);
    }
    const FailingCall last_alone("sendmsg", EAGAIN);
    kex_dispatch(server);
    EXPECT_FALSE(last_alone.has_failed());
    EXPECT_EQ(raw.receive_all().size(), kCalls);
}

// Whoever called would wait for it for ever.
TEST_F(SystemCalls, ReplyThatCannotBeSentEndsTheConnection) {
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle();
    raw.receive_all();
    raw.send(support::call(1, "Probe", "note"));
    CapturedTrace trace;
    {
        const FailingCall failing("send", EIO);
        turn_until_idle();
    }
    EXPECT_THAT(trace.text(), HasSubstr(" could not be sent: Input/output error\n"));
    EXPECT_TRUE(raw.is_closed());
}

TEST_F(SystemCalls, OneWayCallThatCannotBeSentEndsTheConnection) {
    RawPeer raw(socket);
    raw.send(hello());
    peer_t *peer = peer_of(raw, server);
    raw.receive_all();
    request_t *r = request_create_executeFunction("a", "b", 0);
    ASSERT_TRUE(kex_sendRequest(server, peer, r));
    request_destroy(r);
    CapturedTrace trace;
    {
        const FailingCall failing("send", EIO);
        turn_until_idle();
    }
    EXPECT_THAT(trace.text(), HasSubstr(" could not be sent: Input/output error\n"));
    EXPECT_TRUE(raw.is_closed()) << "the two may have different tables now";
}

// Those of a call have numbers in a row as a rule. A kernel that is too old closes one after the other.
TEST_F(SystemCalls, DescriptorsInARowAreClosedByOneSystemCall) {
    constexpr int kRow = 100; // numbers that nothing else has here
    const int null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int free_number = fcntl(null_device, F_DUPFD_CLOEXEC, kRow + 10);
    const bool kernel_closes_rows = syscall(SYS_close_range, free_number, free_number, 0) == 0;
    if (!kernel_closes_rows)
        close(free_number);
    const int row[] = {kRow, kRow + 1, kRow + 2};
    for (const int fd : row)
        ASSERT_EQ(dup2(null_device, fd), fd);
    {
        const FailingCall failing("close", EINTR);
        bus::foreign_descriptors_close(row, 3);
        EXPECT_EQ(failing.has_failed(), !kernel_closes_rows);
    }
    if (!kernel_closes_rows)
        close(kRow); // the one that failed
    for (const int fd : row)
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << fd;
    close(null_device);
}

TEST_F(SystemCalls, KernelThatClosesNoRowsClosesOneAfterTheOther) {
    constexpr int kRow = 100; // numbers that nothing else has here
    const int null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int row[] = {kRow, kRow + 1, kRow + 2};
    for (const int fd : row)
        ASSERT_EQ(dup2(null_device, fd), fd);
    {
        const FailingCall failing("close_range", ENOSYS);
        bus::foreign_descriptors_close(row, 3);
        EXPECT_TRUE(failing.has_failed());
    }
    for (const int fd : row)
        EXPECT_EQ(fcntl(fd, F_GETFD), -1) << fd;
    close(null_device);
}

TEST_F(SystemCalls, NewcomerIsTakenInAfterAnInterruption) {
    for (int error : {EINTR, ECONNABORTED}) {
        RawPeer raw(socket);
        raw.send(hello());
        const FailingCall failing("accept4", error);
        kex_dispatch(server);
        EXPECT_TRUE(failing.has_failed());
        EXPECT_EQ(raw.receive_all().size(), 1u) << strerror(error);
    }
}

// The one that waits is shown again and again: a loop that looked each time would do nothing else.
TEST_F(SystemCalls, NewcomerThatCannotBeTakenInIsLookedAtAgainLater) {
    constexpr uint64_t kTenMilliseconds = 10000000;
    static uint64_t now;
    now = kTenMilliseconds;
    kex_setClock(
        server, [](void *) { return now; }, nullptr);
    RawPeer raw(socket);
    raw.send(hello());
    {
        const FailingCall failing("accept4", ENOMEM);
        kex_dispatch(server);
        EXPECT_TRUE(failing.has_failed());
    }
    for (int i = 0; i < 3; i++)
        kex_dispatch(server);
    EXPECT_EQ(raw.receive_all().size(), 0u);
    now += kTenMilliseconds;
    for (int i = 0; i < 3; i++)
        kex_dispatch(server);
    EXPECT_EQ(raw.receive_all().size(), 1u);
}

TEST_F(SystemCalls, WhoseUserIsNotKnownMayNotConnect) {
    CapturedTrace trace;
    {
        RawPeer raw(socket);
        const FailingCall failing("getsockopt", EIO);
        turn_until_idle();
        EXPECT_TRUE(failing.has_failed());
        EXPECT_EQ(raw.refusal(), "its user may not connect");
    }
    const FailingCall failing("getsockopt", EIO);
    EXPECT_EQ(connect(client), nullptr);
    EXPECT_THAT(trace.text(), HasSubstr("user 4294967295 listens at '"));
}

// As those in another namespace: the limit of one process is not theirs together.
TEST_F(SystemCalls, NewcomersWhoseProcessIsNotKnownAreNotCountedAsOne) {
    std::vector<std::unique_ptr<RawPeer>> raws;
    for (uint32_t i = 0; i <= bus::kMaxPeersOfProcess; i++) {
        raws.push_back(std::make_unique<RawPeer>(socket));
        raws.back()->send(hello());
        const FailingCall failing("getsockopt", EIO, 2); // behind the look at its user
        turn_until_idle();
        EXPECT_TRUE(failing.has_failed());
        const auto answer = raws.back()->receive();
        ASSERT_TRUE(answer.has_value()) << i;
        EXPECT_EQ(kind_of(*answer), kHello) << i;
    }
}

// Without the size of its buffers nothing is known to fit.
TEST_F(SystemCalls, ConnectionWithoutBuffersSendsNothing) {
    CapturedTrace trace;
    const FailingCall failing("getsockopt", EIO, 3); // behind the two looks at the listener's user
    peer_t *peer = connect(client);
    EXPECT_TRUE(failing.has_failed());
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    EXPECT_FALSE(kex_sendRequest(client, peer, r));
    request_destroy(r);
    turn_until_idle();
    EXPECT_THAT(served::log, ElementsAre());
    EXPECT_THAT(echo(), ElementsAre(kAnswer)) << "others do";
}

// Its records leave as they would if each of them filled a packet.
TEST_F(SystemCalls, TapWithoutBuffersGetsEachRecordInAPacketOfItsOwn) {
    RawPeer tap(socket);
    {
        const FailingCall failing("getsockopt", EIO, 3); // behind two looks at its user
        kex_dispatch(server);
        EXPECT_TRUE(failing.has_failed());
    }
    tap.send(Packet(kTapHello).text("tap"));
    turn_until_idle();
    size_t records = 0;
    for (auto packet = tap.receive_packet(); packet && !packet->empty(); packet = tap.receive_packet()) {
        EXPECT_EQ(messages_of(*packet).size(), 1u);
        records += kind_of(*packet) == kTapRecord;
    }
    EXPECT_EQ(records, 2u) << "that it watches, and who is there already";
}

// Then it sleeps in a poll.
TEST_F(SystemCalls, WaitGoesOnAlthoughItsReceiveCannotSleep) {
    const struct {
        const char *name;
        uint32_t n;
    } rows[] = {{"setsockopt", 1}, {"fcntl", 1}, {"fcntl", 2}};
    for (const auto &one : rows) {
        kex_t *own = kex_create("own");
        peer_t *peer = connect(own);
        support::turn_until_idle({own, server});
        request_t *r = request_create_executeFunction("Probe", "note", 0);
        ASSERT_TRUE(kex_sendRequest(own, peer, r));
        kex_dispatch(own);
        support::turn_until_idle({server});
        {
            const FailingCall failing(one.name, EPERM, one.n);
            EXPECT_TRUE(kex_waitForReply(own, r, nullptr)) << one.name << " " << one.n;
            EXPECT_TRUE(failing.has_failed()) << one.name << " " << one.n;
        }
        request_destroy(r);
        kex_destroy(own);
        turn_until_idle();
    }
}

TEST_F(SystemCalls, UnknownSizeOfTheTableCostsNoCall) {
    const FailingCall failing("getrlimit", EPERM);
    for (int i = 0; i < 40; i++) // it is looked at from time to time
        EXPECT_THAT(echo(), ElementsAre(kAnswer));
    EXPECT_TRUE(failing.has_failed());
}

// ----------------------------------------------------------------------------------------- Listening

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

// ----------------------------------------------------------------------------------------- The trace

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
