// SPDX-License-Identifier: MIT
// Turns of a bus on sd-bus where the kernel has no room, where another bus turns inside, and waits without an end.
#include "peers.h"
#include "served_functions.h"
#include "support/scratch.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int accept_error = 0; // what the next ones fail with
int accepts = 0;      // since the test began
int taken_in = 0;

} // namespace

// Of this program, the library's own calls too.
extern "C" int accept4(int listener, sockaddr *address, socklen_t *length, int flags) {
    accepts++;
    if (accept_error != 0) {
        errno = accept_error;
        return -1;
    }
    const int socket = static_cast<int>(syscall(SYS_accept4, listener, address, length, flags));
    taken_in += socket >= 0;
    return socket;
}

using namespace peers;
using support::uri_of;

namespace {

class Turns : public testing::Test {
protected:
    Turns() {
        accept_error = accepts = taken_in = 0;
        served::declare(bus);
    }
    ~Turns() override {
        kex_destroy(bus);
        served::reset();
    }

    support::ScratchDirectory scratch;
    std::string path = scratch.path("bus");
    kex_t *bus = kex_create("turning");
};

class NoRoom : public Turns, public testing::WithParamInterface<int> {
protected:
    void turn_for(std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (std::chrono::steady_clock::now() < end) {
            pollfd look = {kex_pollDescriptor(bus), POLLIN, 0};
            poll(&look, 1, 10);
            kex_dispatch(bus);
        }
    }
};

TEST_P(NoRoom, InTheKernelNewcomersAreLookedAtAHundredTimesASecond) {
    ASSERT_NE(connection_listenOnIPC(kex_connection(bus), path.c_str()), nullptr);
    const int newcomer = connect_to(path);
    accept_error = GetParam();
    turn_for(std::chrono::milliseconds(300));
    EXPECT_GE(accepts, 2) << "it is tried again";
    EXPECT_LE(accepts, 32);
    EXPECT_EQ(taken_in, 0);
    accept_error = 0;
    EXPECT_TRUE(until([this] {
        turn_for(std::chrono::milliseconds(10));
        return taken_in == 1;
    }));
    close(newcomer);
}

INSTANTIATE_TEST_SUITE_P(Errors, NoRoom, testing::Values(ENFILE, ENOBUFS, ENOMEM));

// A timer belongs to the bus whose turn makes it.
TEST_F(Turns, TimerMadeAfterAnInnerTurnIsOfTheOuterBus) {
    kex_t *outer = kex_create("outer");
    static kex_t *inner;
    static kex_timer_t *timer;
    static bool ran;
    static constexpr uint32_t kMilliseconds = 20;
    inner = bus; // the first of the process
    timer = nullptr;
    ran = false;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    kex_watch(outer, ends[0], nullptr, [](int fd, void *) {
        char byte;
        if (read(fd, &byte, 1) == 1)
            kex_dispatch(inner);
        timer = kex_timer_create();
        kex_timer_setHandler(timer, [](kex_timer_t *) { ran = true; });
        kex_timer_start(timer, kMilliseconds);
    });
    kex_dispatch(outer);
    ASSERT_NE(timer, nullptr);
    usleep(2 * kMilliseconds * 1000);
    kex_dispatch(inner);
    EXPECT_FALSE(ran) << "it is due, but not here";
    EXPECT_TRUE(until([&] {
        kex_dispatch(outer);
        return ran;
    }));
    kex_timer_destroy(timer);
    kex_destroy(outer);
    close(ends[0]);
    close(ends[1]);
}

// What this bus has connected to itself is not counted where those processes come.
TEST_F(Turns, ConnectionsThatABusHasMadeTakeNoPlaceOfTheirProcess) {
    const std::string other = scratch.path("other"), made = scratch.path("made");
    ASSERT_NE(connection_listenOnIPC(kex_connection(bus), path.c_str()), nullptr);
    const Child child(own_user(), [&](int word) {
        const int listener = listen_at(other);
        listen(listener, 16);
        if (write(word, "l", 1) != 1 || !until([&] { return access(made.c_str(), F_OK) == 0; }))
            return;
        const RawPeer raw(path);
        const char answer = raw.echo("here") == "here" ? 'y' : 'n';
        if (write(word, &answer, 1) == 1)
            close(listener);
    });
    ASSERT_EQ(child.hear(), 'l');
    for (int i = 0; i < 8; i++)
        ASSERT_NE(kex_client_connect(bus, uri_of(other).c_str()), nullptr) << i;
    close(open(made.c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_TRUE(until([&] {
        kex_dispatch(bus);
        siginfo_t ended = {};
        waitid(P_PID, static_cast<id_t>(child.pid()), &ended, WEXITED | WNOHANG | WNOWAIT);
        return ended.si_pid == child.pid();
    }));
    EXPECT_EQ(child.hear(), 'y');
}

class Waits : public Turns, public testing::WithParamInterface<time_t> {};

TEST_P(Waits, TimeBeyondTheClockIsNoTimeThatHasPassed) {
    const Server server(path);
    peer_t *peer = kex_client_connect(bus, uri_of(path).c_str());
    ASSERT_NE(peer, nullptr);
    request_t *r = request_create_executeFunction("Probe", "echo", 0);
    ASSERT_EQ(kex_sendRequest(bus, peer, r), 1);
    const timeval timeout = {GetParam(), 999999};
    EXPECT_EQ(kex_waitForReply(bus, r, &timeout), 1);
    request_destroy(r);
}

INSTANTIATE_TEST_SUITE_P(Long, Waits,
                         testing::Values(std::numeric_limits<time_t>::max(), std::numeric_limits<time_t>::max() / 2,
                                         time_t{INT32_MAX}));

TEST_F(Turns, TimeBeforeTheClockHasPassed) {
    const Server server(path);
    peer_t *peer = kex_client_connect(bus, uri_of(path).c_str());
    request_t *r = request_create_executeFunction("Probe", "silent", 0);
    ASSERT_EQ(kex_sendRequest(bus, peer, r), 1);
    const timeval timeout = {-1, 999999};
    EXPECT_EQ(kex_waitForReply(bus, r, &timeout), 0);
    request_destroy(r);
}

TEST_F(Turns, ValueOfNoKindIsNeitherListedNorSent) {
    variant_t nothing;
    __builtin_memset(&nothing, 0xAB, sizeof nothing);
    variant_t list = {};
    variant_initialize(&list, VARIANT_LIST);
    EXPECT_EQ(variant_list_add(variant_da_list(&list), &nothing), 0);
    EXPECT_EQ(variant_list_size(variant_da_list(&list)), 0u);
    variant_cleanup(&list);
    request_t *r = request_create_executeFunction("Probe", "echo", 0);
    EXPECT_EQ(request_addParameter(r, "value", &nothing), 0);
    request_destroy(r);
}

} // namespace
