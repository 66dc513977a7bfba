// SPDX-License-Identifier: MIT
// A tap cannot hurt: what it loses is counted, there are few, and it is no peer.
#include "support/child.h"
#include "support/raw_peer.h"
#include "tap_fixture.h"
#include <csignal>
#include <memory>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST_F(Tap, SlowOneLosesCopiesThatAreCountedAndSlowsNobody) {
    size_t calls = 60;
    for (size_t i = 0; i < calls; i++)
        request_destroy(call("Probe", "echo", {{"text", text(std::string(60000, 'x').c_str())}}));
    EXPECT_EQ(served::log.size(), calls);
    size_t seen = 0;
    size_t lost = 0;
    kex_tap_record_t record;
    EXPECT_TRUE(turn_until([&] {
        while (kex_tap_next(tap, &record) == 1) {
            if (record.kind == KEX_TAP_LOST)
                lost += record.lost;
            else
                seen++;
        }
        // A last call brings the count of what was lost before it.
        if (seen + lost < 2 * calls)
            request_destroy(call("Probe", "note"));
        return seen + lost >= 2 * calls;
    }));
    EXPECT_GT(lost, 0u);
    EXPECT_GT(seen, 10u);
}

// Fifteen wait, and fill the queue but for 9 KiB. One that leaves makes room for another, but not for the record of the loss
// in front of it.
TEST_F(Tap, CopyThatDoesNotFitBehindTheRecordOfALossIsCountedToo) {
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle();
    read_all();
    const Packet large =
        Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("text").byte(0).text(std::string(69100, 'x'));
    size_t sent = 0;
    size_t seen = 0;
    size_t lost = 0;
    const auto call = [&](const Packet &packet) {
        ASSERT_TRUE(raw.send(packet));
        turn_until_idle();
        sent++;
    };
    const auto read_one = [&] {
        kex_tap_record_t record;
        if (kex_tap_next(tap, &record) != 1)
            return false;
        lost += record.lost;
        seen += record.kind == KEX_TAP_CALL || record.kind == KEX_TAP_ONE_WAY_CALL;
        return true;
    };
    for (int i = 0; i < 60; i++)
        call(large);
    for (int i = 0; i < 4; i++) {
        EXPECT_TRUE(read_one());
        turn_until_idle();
        call(large);
    }
    while (read_one())
        turn_until_idle();
    call(Packet(kOneWayCall, 1).text("Probe").text("note").byte(0));
    while (read_one())
        turn_until_idle();
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(seen + lost, sent);
}

TEST_F(Tap, PacketOfRecordsHasSixtyFourAtMost) {
    RawPeer raw(socket);
    raw.send(hello());
    turn_until_idle();
    read_all();
    ASSERT_TRUE(raw.send(together(std::vector<Packet>(64, support::call(1, "Probe", "note")))));
    turn_until_idle();
    EXPECT_EQ(read_all().size(), 128u) << "with the replies";
}

// The last record of a tap that was not taken.
std::string refusal_of(kex_tap_t *tap) {
    kex_tap_record_t record;
    std::string line;
    while (kex_tap_next(tap, &record) == 1)
        line = line_of(record);
    return line;
}

TEST_F(Tap, AProcessHasTwo) {
    CapturedTrace trace;
    kex_tap_t *second = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    kex_tap_t *third = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    turn_until_idle();
    EXPECT_EQ(refusal_of(third), "refused > \"this process has as many taps as one may have\"");
    EXPECT_EQ(refusal_of(second), "closed tap>server \"this process has as many taps as one may have\"");
    kex_tap_close(second);
    kex_tap_close(third);
    turn_until_idle();
    second = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    turn_until_idle();
    EXPECT_EQ(refusal_of(second), "connected client>server \"before\"") << "a place is free again";
    read_all();
    request_destroy(call("Probe", "note"));
    EXPECT_EQ(read_all().size(), 2u);
    EXPECT_EQ(refusal_of(second), "reply server>client #1") << "both have both records";
    kex_tap_close(second);
}

// A process that opens taps, as another user if asked for, and tells how many it has got.
class Watchers {
public:
    Watchers(const std::string &socket, uid_t user) {
        EXPECT_EQ(pipe(ready_), 0);
        process_ = fork();
        if (process_ == 0)
            watch(socket, user);
        close(ready_[1]);
    }
    ~Watchers() {
        close(ready_[0]);
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Watchers(const Watchers &) = delete;
    Watchers &operator=(const Watchers &) = delete;

    // After both of its taps have been answered.
    int taken() const {
        char count = -1;
        EXPECT_EQ(read(ready_[0], &count, 1), 1);
        return count;
    }
    int answered() const { return ready_[0]; }

private:
    [[noreturn]] void watch(const std::string &socket, uid_t user) {
        alarm(30);
        char count = setresuid(user, user, user) == 0 ? 0 : 100;
        RawPeer taps[2] = {RawPeer(socket), RawPeer(socket)};
        for (RawPeer &tap : taps) {
            tap.send(Packet(kTapHello).text("tap"));
            pollfd poll_fd = {tap.fd(), POLLIN, 0};
            while (poll(&poll_fd, 1, -1) == 1) {
                const auto packet = tap.receive();
                if (packet.has_value() && kind_of(*packet) == kHello)
                    continue;
                count = static_cast<char>(count + (packet.has_value() && kind_of(*packet) == kTapRecord));
                break;
            }
        }
        if (write(ready_[1], &count, 1) == 1)
            pause();
        _exit(0);
    }

    int ready_[2];
    pid_t process_;
};

// How many of its two taps each of so many processes has got.
std::vector<int> taps_of(const std::vector<kex_t *> &buses, std::vector<std::unique_ptr<Watchers>> &all,
                         const std::string &socket, size_t processes, uid_t user) {
    std::vector<int> counts;
    for (size_t i = 0; i < processes; i++) {
        all.push_back(std::make_unique<Watchers>(socket, user));
        pollfd answered = {all.back()->answered(), POLLIN, 0};
        for (int tries = 0; tries < 10000 && poll(&answered, 1, 1) == 0; tries++)
            support::turn_until_idle(buses);
        counts.push_back(all.back()->taken());
    }
    return counts;
}

TEST_F(Tap, ThereAreEight) {
    CapturedTrace trace;
    kex_tap_close(tap);
    tap = nullptr;
    turn_until_idle();
    std::vector<std::unique_ptr<Watchers>> watchers;
    EXPECT_THAT(taps_of({server, client}, watchers, socket, 5, geteuid()), ElementsAre(2, 2, 2, 2, 0));
    EXPECT_THAT(trace.text(), HasSubstr("refused: there are too many taps"));
}

TEST_F(Tap, TwoOfTheEightAreKeptForTheOwnUserAndRoot) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    constexpr uid_t kOther = 12345;
    kex_tap_close(tap);
    tap = nullptr;
    kex_destroy(server);
    setenv("KEX_ALLOW_UIDS", "12345", 1);
    server = kex_create("server");
    unsetenv("KEX_ALLOW_UIDS");
    ASSERT_NE(connection_listenOnIPC(kex_connection(server), socket.c_str()), nullptr);
    ASSERT_EQ(chmod(socket.c_str(), 0666), 0);
    ASSERT_EQ(chmod(scratch.path("").c_str(), 0755), 0);
    CapturedTrace trace;
    std::vector<std::unique_ptr<Watchers>> watchers;
    EXPECT_THAT(taps_of({server}, watchers, socket, 4, kOther), ElementsAre(2, 2, 2, 0));
    EXPECT_THAT(trace.text(), HasSubstr("refused: the places that are left for taps are kept for the listener's own"));
    EXPECT_THAT(taps_of({server}, watchers, socket, 1, 0), ElementsAre(2));
}

TEST_F(Tap, IsNoPeer) {
    static int closed;
    closed = 0;
    kex_onPeerClosed(
        server, [](kex_t *, peer_t *, void *) { closed++; }, nullptr);
    kex_tap_close(tap);
    turn_until_idle();
    EXPECT_EQ(closed, 0);
    tap = nullptr;
    RawPeer raw(socket);
    raw.send(Packet(kTapHello).text("tap"));
    raw.send(support::call(1, "Probe", "echo"));
    CapturedTrace trace;
    turn_until_idle();
    EXPECT_EQ(raw.refusal(), "a tap only looks");
    EXPECT_THAT(served::log, ElementsAre());
}

// Its end is read, and what a peer has sent in the same turn.
TEST_F(Tap, OneThatHasGoneGetsNoMoreCopies) {
    kex_tap_t *other = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    RawPeer raw(socket);
    raw.send(hello());
    RawPeer next(socket);
    turn_until_idle();
    raw.receive_all();
    next.receive_all();
    CapturedTrace trace;
    kex_tap_close(tap);
    tap = other;
    raw.send(support::call(1, "Probe", "note"));
    next.send(Packet(kTapHello).text("next"));
    kex_dispatch(server);
    turn_until_idle();
    EXPECT_EQ(raw.receive_all().size(), 1u);
    EXPECT_FALSE(next.receive_all().empty()) << "another one has come";
    EXPECT_EQ(trace.text(), "");
}

} // namespace
