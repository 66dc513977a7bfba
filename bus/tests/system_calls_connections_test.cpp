// SPDX-License-Identifier: MIT
// System calls of connections that fail, each once: reading, sending, closing, taking in.
#include "base/closer.h"
#include "base/limits.h"
#include "system_calls_fixture.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

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

} // namespace
