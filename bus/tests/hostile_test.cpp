// SPDX-License-Identifier: MIT
// What no well-behaved peer sends: it is told why, closed, traced in one message, and leaves no descriptor behind.
#include "served_functions.h"
#include "support/hostile.h"

#include <algorithm>
#include <sys/socket.h>
#include <unistd.h>

using namespace support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

// A call with one of everything, and two descriptors.
Packet full_call() {
    return Packet(kCall, 9, 0x8001)
        .text("Probe")
        .text("note")
        .byte(9)
        .text("text")
        .byte(0)
        .text("abc")
        .text("i16")
        .byte(3)
        .half(0xFFFF)
        .text("i32")
        .byte(4)
        .word(7)
        .text("u16")
        .byte(7)
        .half(9)
        .text("number")
        .byte(8)
        .word(70000)
        .text("bool")
        .byte(10)
        .byte(1)
        .text("list")
        .byte(13)
        .word(3)
        .byte(18)
        .word(1)
        .word(40)
        .byte(13)
        .word(1)
        .byte(255)
        .byte(18)
        .word(UINT32_MAX)
        .word(UINT32_MAX)
        .text("fd")
        .byte(18)
        .word(0)
        .word(41)
        .text("bytes")
        .byte(19)
        .text("xyz")
        .descriptors(2);
}

TEST_F(Hostile, TheFullCallIsGood) {
    auto raw = connected_peer();
    ASSERT_TRUE(raw->send(full_call(), {STDIN_FILENO, STDIN_FILENO}));
    settle();
    EXPECT_THAT(served::log, ElementsAre("note 70000"));
    auto packets = raw->receive_all();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0], Packet(kReply, 9).byte(0).byte(0).bytes());
}

TEST_F(Hostile, CallCutOffAtEveryByteIsRefused) {
    CapturedTrace trace;
    std::string whole = full_call().bytes();
    for (size_t size = 1; size < whole.size(); size++) {
        auto raw = connected_peer();
        ASSERT_TRUE(raw->send(whole.substr(0, size), {STDIN_FILENO, STDIN_FILENO}));
        settle();
        EXPECT_EQ(raw->refusal(), "the packet is cut off") << "after " << size << " bytes";
        EXPECT_TRUE(raw->is_closed()) << size;
    }
    EXPECT_THAT(served::log, IsEmpty());
    expect_alive();
}

// A call with one argument, which `add` appends.
template <typename Add>
Packet argument(Add add) {
    Packet packet = Packet(kCall, 1).text("Probe").text("note").byte(1).text("a");
    add(packet);
    return packet;
}

TEST_F(Hostile, BrokenPacketsAreRefusedWithTheirReason) {
    const BrokenPacket rows[] = {
        {"garbage", "GET / HTTP/1.1\r\n\r\n", {}, "this is no packet of the bus"},
        {"other version", Packet(kCall).set(1, 1).bytes(), {}, "the protocol version differs"},
        {"other byte order", Packet(kCall).set(2, 'X').bytes(), {}, "the byte order differs"},
        {"unknown kind", Packet(99).bytes(), {}, "the kind of the packet is unknown"},
        {"kind 0", Packet(0).bytes(), {}, "the kind of the packet is unknown"},
        {"bytes behind the end", Packet(full_call()).byte(0).bytes(), {0, 0}, "the packet has trailing bytes"},
        {"second hello", hello("again").bytes(), {}, "a second hello came"},
        {"tap hello after hello", Packet(kTapHello).text("t").bytes(), {}, "a second hello came"},
        {"tap record", Packet(kTapRecord).bytes(), {}, "the kind of the packet is unknown"},
        {"reply with two values",
         Packet(kReply, 1).byte(0).byte(2).byte(255).byte(255).bytes(),
         {},
         "a reply has more than one value"},
        {"reply with 65 errors", Packet(kReply, 1).byte(65).bytes(), {}, "too many error items"},
        {"packet over 128 KiB",
         Packet(kCall, 1).text(std::string(128 * 1024, 'p')).text("f").byte(0).bytes(),
         {},
         "the packet is too large"},
    };
    for (const BrokenPacket &row : rows)
        expect_refused(row);
    expect_alive();
}

TEST_F(Hostile, DescriptorsHaveToBeThoseThatValuesName) {
    const BrokenPacket rows[] = {
        {"descriptor that did not come", full_call().bytes(), {0}, "a descriptor did not come"},
        {"no descriptors came", full_call().bytes(), {}, "a descriptor did not come"},
        {"one descriptor more", full_call().bytes(), {0, 0, 0}, "a descriptor came that no value names"},
        {"descriptor in a packet without values",
         Packet(kWaiting, 1).descriptors(1).bytes(),
         {0},
         "a descriptor came that no value names"},
        {"descriptor used twice",
         argument([](Packet &p) { p.byte(13).word(2).byte(18).word(0).word(5).byte(18).word(0).word(5); })
             .descriptors(1)
             .bytes(),
         {0},
         "a descriptor is used twice"},
        {"index far out",
         argument([](Packet &p) { p.byte(18).word(0x80000000).word(5); }).descriptors(1).bytes(),
         {0},
         "a descriptor did not come"},
        {"64 descriptors in a packet without values", Packet(kWaiting, 1).descriptors(64).bytes(),
         std::vector<int>(64, 0), "a descriptor came that no value names"},
        {"65 descriptors", Packet(kWaiting, 1).descriptors(65).bytes(), std::vector<int>(65, 0),
         "too many descriptors"},
        {"253 descriptors", full_call().bytes(), std::vector<int>(253, 0), "too many descriptors"},
    };
    for (const BrokenPacket &row : rows)
        expect_refused(row);
    expect_alive();
}

TEST_F(Hostile, ValuesHaveToKeepTheirLimits) {
    const Packet deep = argument(
        [](Packet &p) { p.byte(13).word(1).byte(13).word(1).byte(13).word(1).byte(13).word(1).byte(13).word(0); });
    Packet many = Packet(kCall, 1).text("Probe").text("note").byte(65);
    for (int i = 0; i < 65; i++)
        many.text("a").byte(255);
    const Packet values = argument([](Packet &p) { p.byte(13).word(5000).raw(std::string(5000, '\xFF')); });
    const BrokenPacket rows[] = {
        {"five lists deep", deep.bytes(), {}, "lists are nested too deep"},
        {"65 arguments", many.bytes(), {}, "too many arguments"},
        {"5,000 values", values.bytes(), {}, "too many values"},
        {"list with a count of all ones",
         argument([](Packet &p) { p.byte(13).word(UINT32_MAX); }).bytes(),
         {},
         "the packet is cut off"},
        {"text with a length of all ones",
         argument([](Packet &p) { p.byte(0).word(UINT32_MAX); }).bytes(),
         {},
         "the packet is cut off"},
        {"byte array over 96 KiB",
         argument([](Packet &p) { p.byte(19).text(std::string(96 * 1024 + 1, 'x')); }).bytes(),
         {},
         "a byte array is too long"},
        {"boolean 2", argument([](Packet &p) { p.byte(10).byte(2); }).bytes(), {}, "a boolean is neither 0 nor 1"},
        {"unknown type", argument([](Packet &p) { p.byte(1).word(0); }).bytes(), {}, "a value has an unknown type"},
    };
    for (const BrokenPacket &row : rows)
        expect_refused(row);
    expect_alive();
}

TEST_F(Hostile, HelloHasToComeFirst) {
    CapturedTrace trace;
    for (const Packet &first :
         {support::call(1, "Probe", "echo"), Packet(kWaiting, 1), Packet(kReply, 1).byte(0).byte(0)}) {
        RawPeer raw(socket);
        raw.send(first);
        settle();
        EXPECT_EQ(raw.refusal(), "no hello came first");
        EXPECT_TRUE(raw.is_closed());
    }
    EXPECT_THAT(served::log, IsEmpty());
    expect_alive();
}

TEST_F(Hostile, WhoeverSaysNothingIsClosedAfterTwoSeconds) {
    CapturedTrace trace;
    static uint64_t now;
    now = 1000000000;
    kex_setClock(
        bus, [](void *) { return now; }, nullptr);
    RawPeer raw(socket);
    settle();
    kex_dispatch(bus);
    now += 1999999999;
    kex_dispatch(bus);
    EXPECT_FALSE(raw.is_closed());
    now += 1;
    kex_dispatch(bus);
    settle();
    EXPECT_TRUE(raw.is_closed());
    EXPECT_THAT(trace.text(), HasSubstr("no hello came within 2 s"));
}

TEST_F(Hostile, UndeclaredNamesAreErrorItemsAndNeverLookedUp) {
    const std::string names[] = {"",
                                 std::string(10 * 1024, 'n'),
                                 std::string("echo\0", 5),
                                 "__libc_system",
                                 "system",
                                 "Probe_echo",
                                 "__Probe_echo",
                                 "echo ",
                                 "ECHO",
                                 "%s%n"};
    for (const std::string &name : names) {
        auto raw = connected_peer();
        raw->send(support::call(3, "Probe", name));
        raw->send(support::call(4, name, "echo"));
        settle();
        auto packets = raw->receive_all();
        ASSERT_EQ(packets.size(), 2u) << name;
        std::string shown = name.substr(0, 63);
        std::replace(shown.begin(), shown.end(), '\0', '?');
        EXPECT_EQ(packets[0],
                  Packet(kReply, 3).byte(1).word(0x10002).text("No such function").text(shown).byte(0).bytes());
        EXPECT_EQ(packets[1],
                  Packet(kReply, 4).byte(1).word(0x10001).text("No such object").text(shown).byte(0).bytes());
    }
    EXPECT_THAT(served::log, IsEmpty());
}

TEST_F(Hostile, RepliesNobodyAskedForArePassedOver) {
    auto raw = connected_peer();
    raw->send(Packet(kReply, 77).byte(0).byte(1).byte(18).word(0).word(3), {STDIN_FILENO});
    raw->send(Packet(kWaiting, 77));
    settle();
    EXPECT_FALSE(raw->is_closed());
    expect_alive();
}

TEST_F(Hostile, OneWayCallsGetNoReplyButANoticeWhenTheyFindNothing) {
    auto raw = connected_peer();
    raw->send(Packet(kOneWayCall, 1).text("Probe").text("echo").byte(0));
    settle();
    EXPECT_THAT(served::log, ElementsAre("echo"));
    EXPECT_THAT(raw->receive_all(), IsEmpty());
    raw->send(Packet(kOneWayCall, 2).text("nobody").text("echo").byte(0));
    settle();
    EXPECT_THAT(served::log, ElementsAre("echo"));
    EXPECT_THAT(raw->receive_all(), ElementsAre(Packet(kMissed, 2)
                                                    .byte(1)
                                                    .word(KEX_ERROR_NO_OBJECT)
                                                    .text("No such object")
                                                    .text("nobody")
                                                    .byte(0)
                                                    .bytes()));
}

TEST_F(Hostile, NamesFromOutsideCannotForgeTraceLines) {
    CapturedTrace trace;
    RawPeer raw(socket);
    raw.send(hello("evil\nKEX     - [x]forged\x1b[2J"));
    raw.send("?");
    settle();
    EXPECT_THAT(trace.text(), HasSubstr("'evil?KEX     - [x]forged?[2J'"));
    std::string lines = trace.text();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1);
}

// The client's side: what a listener may do to whoever connects to it.
TEST_F(Hostile, ListenerThatRefusesIsReportedInItsWords) {
    CapturedTrace trace;
    ScratchDirectory own;
    kex_t *client = kex_create("client");
    kex_t *listener = kex_create("listener");
    std::string path = own.path("bus");
    connection_listenOnIPC(kex_connection(listener), path.c_str());
    peer_t *peer = kex_client_connect(client, uri_of(path).c_str());
    static int closed;
    closed = 0;
    peer_setEventHandler(peer, PEER_EVENT_CLOSED, nullptr, [](peer_t *, int, void *) { return ++closed; });
    request_t *r = request_create_executeFunction("a", "b", 0);
    kex_sendRequest(client, peer, r);
    request_destroy(r);
    std::vector<std::unique_ptr<RawPeer>> crowd;
    for (int i = 0; i < 8; i++)
        crowd.push_back(std::make_unique<RawPeer>(path));
    turn_until_idle({listener});
    kex_t *late = kex_create("late");
    peer_t *late_peer = kex_client_connect(late, uri_of(path).c_str());
    EXPECT_NE(late_peer, nullptr);
    peer_setEventHandler(late_peer, PEER_EVENT_CLOSED, nullptr, [](peer_t *, int, void *) { return ++closed; });
    EXPECT_TRUE(turn_until({listener, late}, [] { return closed == 1; }));
    EXPECT_THAT(trace.text(), HasSubstr("refused this process: its process has 8 connections already"));
    kex_destroy(late);
    kex_destroy(client);
    kex_destroy(listener);
}

// ----------------------------------------------------------------------------------------- Packets of several messages

TEST_F(Hostile, NothingOfABrokenPacketIsHandled) {
    const Packet with_one =
        Packet(kOneWayCall, 3).text("Probe").text("note").byte(1).text("fd").byte(18).word(0).word(0).descriptors(1);
    const BrokenPacket rows[] = {
        {"size 0", together({note(1), note(2).size(0)}), {}, "a message is shorter than its head"},
        {"size one short of a head", together({note(1), note(2).size(19)}), {}, "a message is shorter than its head"},
        {"size one beyond the packet",
         together({note(1), note(2).size(static_cast<uint32_t>(note(2).bytes().size()) + 1)}),
         {},
         "the packet is cut off"},
        {"size of all ones", together({note(1), note(2).size(UINT32_MAX)}), {}, "the packet is cut off"},
        {"one reaches into the next",
         together({note(1).size(static_cast<uint32_t>(note(1).bytes().size()) + 12), note(2)}),
         {},
         "this is no packet of the bus"},
        {"65 messages", together(std::vector<Packet>(65, note(1))), {}, "too many messages"},
        {"6,000 notices", together(std::vector<Packet>(6000, Packet(kWaiting, 1))), {}, "too many messages"},
        {"10,000 notices", together(std::vector<Packet>(10000, Packet(kWaiting, 1))), {}, "the packet is too large"},
        {"a hello behind", together({note(1), hello()}), {}, "a hello came together with other messages"},
        {"an unknown kind behind", together({note(1), Packet(99)}), {}, "the kind of the packet is unknown"},
        {"a tap record behind", together({note(1), Packet(kTapRecord)}), {}, "the kind of the packet is unknown"},
        {"the last one's descriptor is missing", together({with_one, with_one}), {0}, "a descriptor did not come"},
        {"a descriptor more", together({with_one, with_one}), {0, 0, 0}, "a descriptor came that no value names"},
        {"descriptors of all ones",
         together({with_one, note(2).descriptors(UINT32_MAX)}),
         {0},
         "a descriptor did not come"},
        {"garbage behind", together({with_one, note(2)}) + "GET / HTTP/1.1", {0}, "this is no packet of the bus"},
        {"broken in the middle",
         together({with_one, Packet(kCall, 1).text("Probe"), note(2)}),
         {0},
         "the packet is cut off"},
        {"reply with two values behind",
         together({note(1), Packet(kReply, 1).byte(0).byte(2).byte(255).byte(255)}),
         {},
         "a reply has more than one value"},
    };
    for (const BrokenPacket &row : rows)
        expect_refused(row);
    expect_alive();
}

// Of one turn, which looks at the clock once for both.
TEST_F(Hostile, TimerThatIsDueWithItFiresAsWell) {
    static uint64_t now;
    static int fired;
    now = 1000000000;
    fired = 0;
    kex_setClock(
        bus, [](void *) { return now; }, nullptr);
    RawPeer raw(socket);
    ASSERT_TRUE(turn_until({bus}, [&] { return raw.receive().has_value(); })) << "it is greeted when it is taken in";
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, [](kex_timer_t *) { fired++; });
    kex_timer_start(timer, 2000);
    now += 2000000000;
    kex_dispatch(bus); // the connection waits for its close event, then for the rest of its queue
    settle();
    EXPECT_EQ(fired, 1);
    EXPECT_TRUE(raw.is_closed());
    kex_timer_destroy(timer);
}

// Of version 1, whose heads had neither size nor descriptors.
TEST_F(Hostile, OlderPeerIsRefusedWithItsReason) {
    CapturedTrace trace;
    RawPeer raw(socket);
    raw.send(hello().set(1, 1).bytes().substr(0, 12) + body_of(hello()));
    settle();
    EXPECT_EQ(raw.refusal(), "the protocol version differs");
    EXPECT_TRUE(raw.is_closed());
    EXPECT_THAT(trace.text(), HasSubstr("refused: the protocol version differs\n"));
}

TEST_F(Hostile, PacketMayNotSayWhatItsSenderMayNot) {
    CapturedTrace trace;
    RawPeer silent(socket);
    silent.send(together({Packet(kRefused).text("go away"), note(1)}));
    RawPeer tap(socket);
    tap.send(Packet(kTapHello).text("tap"));
    tap.send(together({Packet(kRefused).text("go away"), note(2)}));
    settle();
    EXPECT_EQ(silent.refusal(), "no hello came first");
    EXPECT_EQ(tap.refusal(), "a tap only looks");
    EXPECT_THAT(trace.text(), Not(HasSubstr("go away"))) << "nor is the first message of them taken in";
    EXPECT_THAT(served::log, IsEmpty());
}

// What was read before the end runs, as that of single packets does; the close event comes behind it.
TEST_F(Hostile, PeerClosedBetweenTwoMessagesOfAPacket) {
    kex_onPeerClosed(
        bus, [](kex_t *, peer_t *, void *) { served::log.push_back("closed"); }, nullptr);
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        EXPECT_TRUE(peer_disconnect(fcall_peer(call)));
        fcall_destroy(call);
        return 0;
    };
    for (const bool far_side : {false, true}) {
        served::log.clear();
        auto raw = connected_peer();
        const Packet middle = far_side ? note(2) : Packet(kOneWayCall, 2).text("Probe").text("run").byte(0);
        ASSERT_TRUE(raw->send(together({note(1), middle, note(3), Packet(kWaiting, 4)})));
        if (far_side)
            raw->close();
        settle();
        if (far_side)
            EXPECT_THAT(served::log, ElementsAre("note 1", "note 2", "note 3", "closed"));
        else
            EXPECT_THAT(served::log, ElementsAre("note 1", "note 3", "closed"));
    }
}

// The limit is reached by the packet's middle: all of it is taken in, and it is the last one.
TEST_F(Hostile, PacketThatFillsALimitHalfway) {
    auto raw = connected_peer();
    request_t *r = request_create_executeFunction("Theirs", "slow", 0);
    ASSERT_TRUE(kex_sendRequest(bus, peer_of(*raw, bus), r));
    CapturedTrace trace;
    const timeval at_once = {0, 0};
    const std::string calls = together(std::vector<Packet>(60, note(1)));
    for (int i = 0; i < 18; i++) { // the last one begins with 1,020 before it
        while (!raw->send(calls))
            kex_waitForReply(bus, r, &at_once);
    }
    for (int i = 0; i < 40 && trace.text().empty(); i++)
        EXPECT_FALSE(kex_waitForReply(bus, r, &at_once));
    EXPECT_THAT(trace.text(), HasSubstr("it sent too much while its reply was waited for"));
    settle();
    EXPECT_EQ(served::log.size(), 18u * 60u) << "calls that came run, whole packets of them";
    request_destroy(r);
    expect_alive();
}

TEST_F(Hostile, NothingMoreIsQueuedForOneThatReceivesNoMoreAndThatIsSaid) {
    CapturedTrace trace;
    auto raw = connected_peer();
    peer_t *peer = peer_of(*raw, bus);
    shutdown(raw->fd(), SHUT_RD);
    for (const bool queued : {true, false}) { // with the first one it shows
        request_t *r = request_create_executeFunction("a", "b", 0);
        EXPECT_EQ(kex_sendRequest(bus, peer, r) != 0, queued);
        request_destroy(r);
        settle();
    }
    EXPECT_THAT(trace.text(), HasSubstr("not queued: it receives no more"));
    expect_alive();
}

} // namespace
