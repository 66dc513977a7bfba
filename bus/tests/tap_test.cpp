// SPDX-License-Identifier: MIT
// The tap: what it shows of the traffic, and that it cannot hurt.
#include "kex_tap.h"
#include "served_functions.h"
#include "support/bus_test.h"
#include "support/raw_peer.h"
#include "support/served_bus.h"
#include "value/tap_record.h"

#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// One record in one line: "call client>server #1 Probe.echo text=..." with what else its kind carries.
std::string line_of(const kex_tap_record_t &record) {
    static const char *const kinds[] = {"?",     "connected", "closed",  "call", "one-way",
                                        "reply", "refused",   "waiting", "lost", "watching"};
    std::string line = std::string(kinds[record.kind]) + " " + record.from.name + ">" + record.to.name;
    if (record.serial != 0)
        line += " #" + std::to_string(record.serial);
    if (*record.path != '\0')
        line += std::string(" ") + record.path + "." + record.function;
    for (uint32_t i = 0; i < record.argument_count; i++)
        line += std::string(" ") + record.argument_names[i] + "=" + show(record.arguments[i]);
    for (uint32_t i = 0; i < record.error_count; i++)
        line += " error " + std::to_string(record.error_codes[i]) + " " + record.error_descriptions[i] + ": " +
                record.error_infos[i];
    if (*record.text != '\0')
        line += std::string(" \"") + record.text + "\"";
    if (record.lost != 0)
        line += " lost " + std::to_string(record.lost);
    return line;
}

class Tap : public TwoBuses {
protected:
    Tap() {
        served::reset();
        served::declare(server);
        tap = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
        EXPECT_NE(tap, nullptr);
        turn_until_idle();
        EXPECT_THAT(read_all(), ElementsAre("watching server>tap", "connected client>server \"before\""));
    }
    ~Tap() override {
        kex_tap_close(tap);
        served::reset();
    }

    std::vector<std::string> read_all() {
        std::vector<std::string> lines;
        kex_tap_record_t record;
        while (kex_tap_next(tap, &record) == 1)
            lines.push_back(line_of(record));
        return lines;
    }

    kex_tap_t *tap;
};

TEST_F(Tap, ShowsACallAndItsReply) {
    request_destroy(call("Probe", "echo", {{"text", text("hi")}, {"list", list({u32(1), boolean(true)})}}, 0x8001));
    request_destroy(call("Probe", "echo"));
    EXPECT_THAT(read_all(), ElementsAre("call client>server #1 Probe.echo text=text \"hi\" list=list [u32 1, true]",
                                        "reply server>client #1 =text \"hi\"", "call client>server #2 Probe.echo",
                                        "reply server>client #2 error 196640 Missing mandatory argument: text"));
}

TEST_F(Tap, RecordsCarryTimesFlagsSizesAndEnds) {
    timespec before;
    clock_gettime(CLOCK_REALTIME, &before);
    request_destroy(call("Probe", "note", {}, 0x8001));
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_CALL);
    EXPECT_EQ(record.flags, 0x8001u);
    EXPECT_EQ(record.bytes, support::call(1, "Probe", "note").bytes().size());
    EXPECT_GE(record.time_ns, static_cast<uint64_t>(before.tv_sec) * 1000000000u);
    EXPECT_EQ(record.from.process_id, getpid());
    EXPECT_EQ(record.from.connection, 1u);
    EXPECT_EQ(record.to.connection, 0u) << "the listener itself";
    EXPECT_STREQ(record.to.name, "server");
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_REPLY);
    EXPECT_EQ(record.from.connection, 0u);
    EXPECT_EQ(record.to.connection, 1u);
    EXPECT_EQ(kex_tap_next(tap, &record), 0);
}

// The bytes of the message that the record at hand tells of.
std::string packet_of(const kex_tap_t *tap) {
    uint32_t size = 4711;
    const void *bytes = kex_tap_packet(tap, &size);
    EXPECT_EQ(bytes == nullptr, size == 0);
    return {static_cast<const char *>(bytes), size};
}

TEST_F(Tap, PacketsAreTheMessagesAsTheyTravelled) {
    EXPECT_EQ(packet_of(tap), "") << "watching is no message";
    RawPeer raw(socket);
    raw.send(hello("visitor"));
    turn_until_idle();
    const support::Packet first = support::call(1, "Probe", "note"), second = support::call(2, "Probe", "nothing");
    raw.send(together({first, second}));
    turn_until_idle();
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_CONNECTED);
    EXPECT_EQ(packet_of(tap), "");
    for (const support::Packet &sent : {first, second}) {
        ASSERT_EQ(kex_tap_next(tap, &record), 1);
        EXPECT_EQ(packet_of(tap), sent.bytes()) << "one of two that shared a packet";
        EXPECT_EQ(record.bytes, sent.bytes().size());
    }
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.kind, KEX_TAP_REPLY);
    EXPECT_EQ(packet_of(tap), raw.receive_all().at(1)) << "behind the listener's hello";
    while (kex_tap_next(tap, &record) == 1)
        continue;
    EXPECT_EQ(packet_of(tap), "") << "no record is at hand";
    EXPECT_EQ(kex_tap_packet(nullptr, nullptr), nullptr);
    EXPECT_EQ(kex_tap_packet(tap, nullptr), nullptr);
}

TEST_F(Tap, ShowsWhoComesAndGoes) {
    {
        RawPeer raw(socket);
        raw.send(hello("visitor"));
        turn_until_idle();
        raw.send("rubbish");
        turn_until_idle();
    }
    {
        RawPeer raw(socket);
        raw.send(hello("second"));
        turn_until_idle();
    }
    turn_until_idle();
    EXPECT_THAT(read_all(),
                ElementsAre("connected visitor>server", "refused server>visitor \"this is no packet of the bus\"",
                            "closed visitor>server \"this is no packet of the bus\"", "connected second>server",
                            "closed second>server \"the peer is gone\""));
}

TEST_F(Tap, ShowsOneWayCallsAndWaiting) {
    request_t *r = request_create_executeFunction("Probe", "note", 0);
    ASSERT_TRUE(kex_sendRequest(client, to_server, r));
    request_destroy(r);
    turn_until_idle();
    RawPeer raw(socket);
    raw.send(hello("waiter"));
    raw.send(Packet(kWaiting, 44));
    turn_until_idle();
    EXPECT_THAT(read_all(), ElementsAre("one-way client>server #1 Probe.note", "connected waiter>server",
                                        "waiting waiter>server #44"));
}

TEST_F(Tap, ShowsDescriptorsAsTheSendersNumbers) {
    int fd = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 100);
    request_destroy(call("Probe", "note", {{"fds", list({descriptor(fd), descriptor(-3)})}}));
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    const variant_list_t *items = variant_da_list(const_cast<variant_t *>(record.arguments[0]));
    EXPECT_EQ(variant_fd(variant_list_at(items, 0)), fd);
    EXPECT_EQ(variant_fd(variant_list_at(items, 1)), -1);
    while (kex_tap_next(tap, &record) == 1)
        ;
    EXPECT_EQ(close(fd), 0) << "the tap closed nothing";
}

TEST_F(Tap, ShowsTheLargestPacket) {
    // 128 KiB as a whole, and the record is larger still.
    request_destroy(
        call("Probe", "note", {{"a", bytes(std::string(96 * 1024, 'x'))}, {"b", bytes(std::string(32000, 'y'))}}));
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(tap, &record), 1);
    EXPECT_EQ(record.argument_count, 2u);
    EXPECT_GT(record.bytes, 130000u);
}

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

TEST_F(Tap, ALateOneIsToldWhoIsThereAlready) {
    RawPeer first(socket), nameless(socket), second(socket), gone(socket);
    first.send(hello("first"));
    second.send(hello("second"));
    gone.send(hello("gone"));
    turn_until_idle();
    gone.close();
    turn_until_idle();
    read_all();
    kex_tap_t *late = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    turn_until_idle();
    std::vector<std::string> lines;
    kex_tap_record_t record;
    while (kex_tap_next(late, &record) == 1) {
        EXPECT_EQ(record.to.connection == 0, record.kind == KEX_TAP_CONNECTED);
        lines.push_back(line_of(record));
    }
    EXPECT_THAT(lines, ElementsAre("watching server>tap", "connected client>server \"before\"",
                                   "connected first>server \"before\"", "connected second>server \"before\""));
    EXPECT_THAT(read_all(), ElementsAre()) << "who was there before knows them";
    kex_tap_close(late);
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

TEST_F(Tap, RecordSaysItsSizeBeforeItIsWritten) {
    bus::wire::TapRecord record = {};
    record.from.name = bus::text_of("sender");
    record.to.name = bus::text_of("receiver's name");
    record.text = bus::text_of("why");
    const std::string packet(1000, 'x');
    record.message = reinterpret_cast<const uint8_t *>(packet.data());
    record.size = 1000;
    std::vector<uint8_t> memory(bus::wire::kMaxTapRecord);
    bus::wire::Writer writer = bus::wire::message_begin(memory.data(), bus::wire::kMaxTapRecord);
    bus::wire::tap_record_write(writer, record);
    EXPECT_EQ(bus::wire::tap_record_size(record), writer.size);
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

TEST_F(Tap, EachMessageOfAPacketIsARecord) {
    RawPeer raw(socket);
    raw.send(hello());
    RawPeer raw_tap(socket);
    raw_tap.send(Packet(kTapHello).text("tap"));
    turn_until_idle();
    read_all();
    raw_tap.receive_all();
    const Packet note = Packet(kCall, 5).text("Probe").text("note").byte(0);
    ASSERT_TRUE(raw.send(together({note, Packet(kWaiting, 6), note})));
    turn_until_idle();
    EXPECT_THAT(read_all(), ElementsAre("call raw>server #5 Probe.note", "waiting raw>server #6",
                                        "call raw>server #5 Probe.note", "reply server>raw #5", "reply server>raw #5"));
    const auto packet = raw_tap.receive_packet();
    ASSERT_TRUE(packet.has_value());
    EXPECT_GE(messages_of(*packet).size(), 3u) << "what was read together leaves together, too";
}

TEST_F(Tap, ShowsWhatLeavesLastToOneWhoCameAfterIt) {
    RawPeer raw(socket);
    raw.send(hello());
    peer_t *peer = peer_of(raw, server);
    read_all();
    request_t *r = request_create_executeFunction("Theirs", "leave", 0);
    ASSERT_TRUE(kex_sendRequest(server, peer, r));
    request_destroy(r);
    kex_destroy(server);
    server = nullptr;
    EXPECT_THAT(read_all(), ElementsAre("one-way server>raw #1 Theirs.leave"));
}

TEST_F(Tap, EndOfTheListenerIsTold) {
    kex_destroy(server);
    server = nullptr;
    kex_tap_record_t record;
    int result = 1;
    while (result == 1)
        result = kex_tap_next(tap, &record);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(kex_tap_next(tap, &record), -1);
}

TEST_F(Tap, RefusedTapSeesWhyAsItsLastRecord) {
    CapturedTrace trace;
    std::vector<std::unique_ptr<RawPeer>> crowd;
    for (int i = 0; i < 6; i++) { // with the client and the first tap: 8 of this process
        crowd.push_back(std::make_unique<RawPeer>(socket));
        crowd.back()->send(hello());
        turn_until_idle();
    }
    kex_tap_t *late = kex_tap_open(uri_of(socket).c_str(), nullptr, 0);
    ASSERT_NE(late, nullptr);
    turn_until_idle();
    kex_tap_record_t record;
    ASSERT_EQ(kex_tap_next(late, &record), 1);
    EXPECT_EQ(line_of(record), "refused > \"its process has 8 connections already\"");
    EXPECT_EQ(kind_of(packet_of(late)), kRefused);
    EXPECT_EQ(kex_tap_next(late, &record), -1);
    kex_tap_close(late);
}

TEST_F(Tap, OpeningSaysWhyItFails) {
    char why[256] = "";
    EXPECT_EQ(kex_tap_open(uri_of(scratch.path("nobody")).c_str(), why, sizeof why), nullptr);
    EXPECT_EQ(why, "cannot tap '" + uri_of(scratch.path("nobody")) + "': No such file or directory");
    EXPECT_EQ(kex_tap_open("nonsense", why, sizeof why), nullptr);
    EXPECT_THAT(why, HasSubstr("Invalid argument"));
    EXPECT_EQ(kex_tap_open(nullptr, why, sizeof why), nullptr);
    strcpy(why, "as before");
    EXPECT_EQ(kex_tap_open("nonsense", why, 0), nullptr);
    EXPECT_STREQ(why, "as before") << "no room";
    EXPECT_EQ(kex_tap_descriptor(nullptr), -1);
    EXPECT_EQ(kex_tap_next(nullptr, nullptr), -1);
    EXPECT_EQ(kex_tap_next(tap, nullptr), -1);
    kex_tap_close(nullptr);
}

TEST_F(Tap, DescriptorIsReadableWhenThereIsARecord) {
    pollfd polled = {kex_tap_descriptor(tap), POLLIN, 0};
    EXPECT_EQ(poll(&polled, 1, 0), 0);
    request_destroy(call("Probe", "note"));
    EXPECT_EQ(poll(&polled, 1, 0), 1);
}

// Instead of the bus's listener: sends a tap what no bus would.
class RogueListener : public DescriptorTest {
protected:
    RogueListener() {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
    }
    ~RogueListener() override { close(listener_); }

    // A tap that has connected, and the socket of its listener.
    kex_tap_t *tapped(std::unique_ptr<RawPeer> &listener) {
        kex_tap_t *tap = kex_tap_open(uri_of(path).c_str(), nullptr, 0);
        listener = std::make_unique<RawPeer>(accept(listener_, nullptr, nullptr));
        return tap;
    }
    // A record of a call, around these bytes.
    static Packet record(const std::string &packet) {
        return Packet(kTapRecord)
            .word(KEX_TAP_CALL)
            .word(0)
            .word(0)
            .word(1)
            .word(1)
            .text("from")
            .word(2)
            .word(2)
            .text("to")
            .word(0)
            .text("")
            .text(packet);
    }

    ScratchDirectory scratch;
    std::string path = scratch.path("bus");

private:
    int listener_ = -1;
};

TEST_F(RogueListener, WhatIsNoRecordEndsTheTap) {
    const std::string good = call(7, "Probe", "note").bytes();
    const std::string without_its_argument = Packet(kCall, 7).text("Probe").text("note").byte(1).bytes();
    for (const std::string &sent :
         {std::string("rubbish"), record("rubbish").bytes(), record(good.substr(0, good.size() - 1)).bytes(),
          record(good).bytes() + "x", record(without_its_argument).bytes(),
          Packet(kTapRecord).word(KEX_TAP_CALL).bytes()}) {
        std::unique_ptr<RawPeer> listener;
        kex_tap_t *tap = tapped(listener);
        ASSERT_NE(tap, nullptr);
        ASSERT_TRUE(listener->send(sent));
        kex_tap_record_t shown;
        EXPECT_EQ(kex_tap_next(tap, &shown), -1);
        EXPECT_EQ(kex_tap_next(tap, &shown), -1) << "for ever";
        kex_tap_close(tap);
    }
}

// Its hello has not been read: the kernel tells of the reset in front of what can still be read.
TEST_F(RogueListener, RecordsOfAListenerThatIsGoneAreRead) {
    std::unique_ptr<RawPeer> listener;
    kex_tap_t *tap = tapped(listener);
    ASSERT_NE(tap, nullptr);
    ASSERT_TRUE(listener->send(record(call(7, "Probe", "note").bytes())));
    listener->close();
    kex_tap_record_t shown;
    ASSERT_EQ(kex_tap_next(tap, &shown), 1);
    EXPECT_EQ(line_of(shown), "call from>to #7 Probe.note");
    EXPECT_EQ(kex_tap_next(tap, &shown), -1);
    kex_tap_close(tap);
}

// In the turn in which its end is read: what is left of it waits to be run.
TEST_F(Tap, ALateOneIsNotToldOfWhomHasGone) {
    RawPeer raw(socket);
    raw.send(hello());
    RawPeer late(socket);
    turn_until_idle();
    late.receive_all();
    raw.close();
    late.send(Packet(kTapHello).text("late"));
    kex_dispatch(server);
    turn_until_idle();
    std::vector<std::string> before;
    for (const std::string &record : late.receive_all()) {
        if (record.find("before") != std::string::npos)
            before.push_back(record.find("raw") != std::string::npos ? "raw" : "another");
    }
    EXPECT_THAT(before, ElementsAre("another"));
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
