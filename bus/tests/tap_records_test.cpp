// SPDX-License-Identifier: MIT
// What a tap shows of the traffic.
#include "support/raw_peer.h"
#include "support/served_bus.h"
#include "tap_fixture.h"
#include "value/tap_record.h"
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;

namespace {

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

} // namespace
