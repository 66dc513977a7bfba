// SPDX-License-Identifier: MIT
// What is kept for a peer takes no more of the heap than is promised, however small the pieces are that it sends.
#include "base/footprint.h"
#include "base/memory.h"
#include "served_functions.h"
#include "support/heap.h"
#include "support/served_bus.h"
#include "transport/account.h"
#include "value/variant.h"
#include "value/wire.h"

#include <cstdlib>
#include <memory>
#include <unistd.h>

using namespace support;
using testing::HasSubstr;

namespace {

constexpr size_t kMebibyte = 1024 * 1024;
constexpr size_t kOnePacket = 128 * 1024; // a limit is passed by one packet at most
constexpr size_t kFixed = 32 * 1024;      // of a connection, whatever it sends

class Accounts : public ServedBus {
protected:
    Accounts() : ServedBus("victim") { served::log.reserve(100000); }
    ~Accounts() override {
        for (request_t *r : requests)
            request_destroy(r);
    }

    // To the raw peer, with a handler that does nothing.
    request_t *send_request() {
        request_t *r = request_create_executeFunction("Theirs", "slow", 0);
        request_setDoneHandler(r, [](request_t *) {});
        EXPECT_TRUE(kex_sendRequest(bus, peer, r));
        requests.push_back(r);
        return r;
    }

    // So many that destroy themselves when they are answered: as they came to the raw peer.
    std::vector<std::string> requests_that_wait(size_t count) {
        for (size_t i = 0; i < count; i++)
            request_setDoneHandler(send_request(), [](request_t *r) { request_destroy(r); });
        requests.clear();
        kex_dispatch(bus);
        return raw->receive_all();
    }

    std::unique_ptr<RawPeer> raw = connected_peer();
    peer_t *peer = peer_of(*raw, bus);
    std::vector<request_t *> requests;
};

TEST_F(Accounts, RepliesOfFewBytesThatNobodyReadsTakeTwoMebibytes) {
    CapturedTrace trace;
    const CountedMemory memory;
    const std::string call = Packet(kCall, 1).text("Probe").text("note").byte(0).bytes();
    while (trace.text().empty()) {
        while (raw->send(call))
            ;
        kex_dispatch(bus);
    }
    turn_until_idle({bus}); // calls that the turn had no time for
    EXPECT_THAT(trace.text(), HasSubstr("it does not read its replies"));
    EXPECT_GT(memory.most(), 3 * kMebibyte / 2) << "the queue is used";
    EXPECT_LE(memory.most(), 2 * kMebibyte + kOnePacket);
    EXPECT_LE(static_cast<ptrdiff_t>(memory.held()), ptrdiff_t{kFixed}) << "all of it is given back";
}

TEST_F(Accounts, RequestsOfFewBytesThatNobodyReadsTakeOneMebibyte) {
    CapturedTrace trace;
    const CountedMemory memory;
    size_t sent = 0;
    for (; sent < 100000; sent++) {
        request_t *r = request_create_executeFunction("a", "b", 0);
        const bool queued = kex_sendRequest(bus, peer, r);
        request_destroy(r);
        if (!queued)
            break;
        kex_dispatch(bus); // what the kernel takes has left
    }
    EXPECT_THAT(trace.text(), HasSubstr("the queue is full"));
    EXPECT_GT(memory.most(), kMebibyte - kOnePacket);
    EXPECT_LE(memory.most(), kMebibyte + kFixed);
}

TEST_F(Accounts, RequestsThatNobodyReadsHoldNinetySixDescriptors) {
    CapturedTrace trace;
    unsigned queued = 0;
    for (bool goes_on = true; goes_on && queued < 1000; queued += goes_on) {
        request_t *r = request_create_executeFunction("a", "b", 0);
        variant_t descriptor = {};
        variant_setFd(&descriptor, STDIN_FILENO);
        request_addParameter(r, "fd", &descriptor);
        variant_cleanup(&descriptor);
        goes_on = kex_sendRequest(bus, peer, r); // nothing leaves before the turn ends
        request_destroy(r);
    }
    EXPECT_EQ(queued, 96u);
    EXPECT_THAT(trace.text(), HasSubstr("the queue is full"));
}

TEST_F(Accounts, CallsThatAreNotRunYetTakeOneMebibyte) {
    CapturedTrace trace;
    request_t *r = send_request();
    kex_dispatch(bus);
    const CountedMemory memory;
    // In the kernel lies as much as it takes; the rest follows while the wait reads.
    const std::string call =
        Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("x").byte(0).text(std::string(900, 'x')).bytes();
    const timeval at_once = {0, 0};
    while (trace.text().empty()) {
        while (raw->send(call))
            ;
        EXPECT_FALSE(kex_waitForReply(bus, r, &at_once));
    }
    EXPECT_THAT(trace.text(), HasSubstr("it sent too much while its reply was waited for"));
    EXPECT_GT(memory.most(), kMebibyte - kOnePacket);
    EXPECT_LE(memory.most(), kMebibyte + kOnePacket);
}

// A block may get what would lie unused behind it besides: too little for a block of its own.
constexpr size_t kUnusedBehind = 4 * sizeof(size_t) - 2 * sizeof(size_t);

// A text and a byte array are kept with a zero byte behind them.
TEST(Footprint, IsNoLessThanWhatValuesTake) {
    for (uint32_t length = 0; length < 300; length++) {
        const std::string content(length, 'x');
        for (bool as_text : {true, false}) {
            const CountedMemory memory;
            variant_t value = {};
            if (as_text)
                variant_setChar(&value, content.c_str());
            else
                variant_setByteArray(&value, content.data(), length);
            EXPECT_GE(bus::value_footprint(&value) + kUnusedBehind, memory.held())
                << length << (as_text ? " of text" : " bytes");
            variant_cleanup(&value);
        }
    }
}

TEST(Footprint, IsNoLessThanWhatTheHeapTakes) {
    for (size_t size = 1; size < 300; size++) {
        const CountedMemory memory;
        void *block = bus::memory_take(size);
        EXPECT_GE(bus::footprint(size) + kUnusedBehind, memory.held()) << size;
        free(block);
    }
}

// A value of one byte takes 32 in memory: a reply of 4,000 of them a hundred times what it was on the way.
TEST_F(Accounts, RepliesWhoseHandlersHaveNotRunYetTakeOneMebibyte) {
    CapturedTrace trace;
    request_t *awaited = send_request();
    for (int i = 0; i < 100; i++)
        send_request();
    kex_dispatch(bus);
    std::vector<uint32_t> serials;
    for (const std::string &packet : raw->receive_all())
        serials.push_back(serial_of(packet));
    const CountedMemory memory;
    const timeval at_once = {0, 0};
    for (size_t i = serials.size() - 1; i > 0 && trace.text().empty(); i--) {
        raw->send(Packet(kReply, serials[i]).byte(0).byte(1).byte(13).word(4000).raw(std::string(4000, '\xFF')));
        EXPECT_FALSE(kex_waitForReply(bus, awaited, &at_once));
    }
    EXPECT_THAT(trace.text(), HasSubstr("it sent too much while its reply was waited for"));
    EXPECT_GT(memory.most(), kMebibyte - kOnePacket);
    EXPECT_LE(memory.most(), kMebibyte + 2 * kOnePacket)
        << "one reply is twice as large in memory as the largest packet";
}

// A reader sees nothing of a text behind its first zero byte. Whatever stands there counts, or is not kept.
TEST_F(Accounts, RepliesWhoseTextsHoldZeroBytesTakeOneMebibyte) {
    const std::string hidden(90000, '\0');
    const Packet value = Packet(0).byte(0).byte(1).byte(0).text(hidden);
    const Packet error = Packet(0).byte(1).word(7).text(hidden).text("").byte(0);
    for (const Packet &answer : {value, error}) {
        const std::vector<std::string> sent = requests_that_wait(100);
        ASSERT_EQ(sent.size(), 100u);
        request_t *awaited = send_request();
        const CountedMemory memory;
        const timeval at_once = {0, 0};
        for (const std::string &packet : sent) {
            raw->send(Packet(kReply, serial_of(packet)).raw(body_of(answer)));
            EXPECT_FALSE(kex_waitForReply(bus, awaited, &at_once));
        }
        EXPECT_LE(memory.most(), kMebibyte + 2 * kOnePacket);
        requests.clear();
        request_destroy(awaited);
        turn_until_idle({bus});
        raw->receive_all();
    }
}

// A value that takes much more in memory than on its way: so many lists, each with a text in two more.
Packet nested_lists(uint32_t count) {
    Packet value = Packet(0).byte(13).word(count);
    for (uint32_t i = 0; i < count; i++)
        value.byte(13).word(1).byte(13).word(1).byte(13).word(1).byte(0).text(std::string(25, 'x'));
    return value;
}

// In memory they are seven times what they were on the way, and they are read in batches.
TEST_F(Accounts, RepliesOfOneReadTakeNoMoreThanThreeAndAHalfMebibytes) {
    const TableSize table(kRoomForEightPackets);
    if (!table.made())
        GTEST_SKIP() << "the process may not have so many descriptors";
    constexpr size_t kReplies = 100;
    constexpr uint32_t kLists = 1023;
    const std::vector<std::string> sent = requests_that_wait(kReplies);
    ASSERT_EQ(sent.size(), kReplies);
    const Packet value = nested_lists(kLists);
    const CountedMemory memory;
    for (size_t answered = 0; answered < kReplies;) {
        while (answered < kReplies &&
               raw->send(Packet(kReply, serial_of(sent[answered])).byte(0).byte(1).raw(body_of(value))))
            answered++;
        kex_dispatch(bus);
    }
    turn_until_idle({bus});
    EXPECT_FALSE(raw->is_closed());
    EXPECT_GT(memory.most(), kMebibyte) << "several came at once";
    EXPECT_LE(memory.most(), 7 * kMebibyte / 2);
}

// The values of a packet are limited together, however many replies it brings.
TEST_F(Accounts, RepliesOfFullPacketsTakeNoMoreEither) {
    const TableSize table(kRoomForEightPackets);
    if (!table.made())
        GTEST_SKIP() << "the process may not have so many descriptors";
    constexpr size_t kReplies = 2560;
    constexpr uint32_t kLists = 15;
    const std::vector<std::string> sent = requests_that_wait(kReplies);
    ASSERT_EQ(sent.size(), kReplies);
    const Packet value = nested_lists(kLists);
    std::vector<std::string> packets;
    for (size_t i = 0; i < kReplies; i += 64) {
        std::vector<Packet> replies;
        for (size_t j = i; j < i + 64; j++)
            replies.push_back(Packet(kReply, serial_of(sent[j]))
                                  .byte(1)
                                  .word(1)
                                  .text("description")
                                  .text("info")
                                  .byte(1)
                                  .raw(body_of(value)));
        packets.push_back(together(replies));
    }
    const CountedMemory memory;
    for (size_t answered = 0; answered < packets.size();) {
        while (answered < packets.size() && raw->send(packets[answered]))
            answered++;
        kex_dispatch(bus);
    }
    turn_until_idle({bus});
    EXPECT_FALSE(raw->is_closed());
    EXPECT_GT(memory.most(), kMebibyte / 3) << "more than one came at once";
    EXPECT_LE(memory.most(), 7 * kMebibyte / 2);
}

TEST_F(Accounts, CallsOfFullPacketsTakeNoMoreThanTheLimit) {
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        usleep(6000); // a turn runs one of them
        fcall_destroy(call);
        return 0;
    };
    const std::string packet = together(std::vector<Packet>(
        60, Packet(kOneWayCall, 1).text("Probe").text("run").byte(1).text("x").byte(0).text(std::string(2000, 'x'))));
    const CountedMemory memory;
    for (int turn = 0; turn < 30; turn++) {
        while (raw->send(packet))
            ;
        kex_dispatch(bus);
    }
    EXPECT_GT(memory.most(), kMebibyte - 2 * kOnePacket);
    EXPECT_LE(memory.most(), kMebibyte + kFixed) << "no packet passes it";
    raw->close();
    served::probe = [](function_call_t *call, argument_list_t *, variant_t *) {
        fcall_destroy(call);
        return 0;
    };
    turn_until_idle({bus});
}

// ----------------------------------------------------------------------------------------- How often it is taken

// What a call costs its sender until it has left: its request, and the message that is queued. There is room in a request
// for four values of 60 bytes, names included; each that finds none takes a block.
TEST_F(Accounts, CallThatLeavesTakesTwoBlocks) {
    const variant_t name = text("FXS1");
    const variant_t record = bytes(std::string(56, 'x'));
    const variant_t large = bytes(std::string(712, 'x'));
    const variant_t number = u32(7);
    send_request(); // the first one makes the table of those that wait for an answer
    turn_until_idle({bus});
    raw->receive_all();
    for (const variant_t *event : {&number, &record, &large}) {
        const CountedMemory memory;
        request_t *r = request_create_executeFunction("VoiceService.VoiceApplication", "event", 1);
        request_addParameter(r, "plugin_name", &name);
        request_addParameter(r, "event", event);
        request_addParameter(r, "ep_line_id", &number);
        request_addParameter(r, "type", &number);
        ASSERT_TRUE(kex_sendRequest(bus, peer, r));
        request_destroy(r);
        kex_dispatch(bus);
        EXPECT_EQ(memory.blocks(), event == &large ? 3u : 2u);
        EXPECT_EQ(memory.held(), 0u);
    }
    EXPECT_EQ(raw->receive_all().size(), 3u);
    for (const variant_t *value : {&name, &record, &large})
        variant_cleanup(const_cast<variant_t *>(value));
}

TEST_F(Accounts, CallThatComesTakesOneBlockAndItsReplyAnother) {
    raw->send(Packet(kCall, 1).text("Probe").text("note").byte(0));
    turn_until_idle({bus});
    served::log.clear();
    for (const uint8_t kind : {kOneWayCall, kCall}) {
        const CountedMemory memory;
        raw->send(Packet(kind, 2).text("Probe").text("note").byte(1).text("number").byte(8).word(5));
        kex_dispatch(bus);
        EXPECT_EQ(served::log.back(), "note 5");
        EXPECT_EQ(memory.blocks(), kind == kCall ? 2u : 1u);
        EXPECT_EQ(memory.held(), 0u);
    }
}

// A send has found that the peer has gone, while calls that it left still run and its end lies behind others: newcomers
// wait for these.
TEST_F(Accounts, ListingThatNobodyCanReadTakesNoBlock) {
    constexpr int kHeld = 14; // packets; of the others one more finds room
    constexpr int kUnread = 3;
    constexpr int kEcho = 10; // blocks
    const std::string calls = together(std::vector<Packet>(64, call(1, "kex", "list")));
    request_t *r = send_request();
    const timeval at_once = {0, 0};
    ASSERT_TRUE(raw->send(Packet(kCall, 1).text("Probe").text("echo").byte(1).text("text").byte(0).text(
        std::string(90000, 'x')))); // its reply leaves at once, and finds nobody
    for (int i = 0; i < kHeld; i++) {
        ASSERT_TRUE(raw->send(calls));
        EXPECT_FALSE(kex_waitForReply(bus, r, &at_once)); // reads and runs nothing
    }
    for (int i = 0; i < kUnread; i++)
        ASSERT_TRUE(raw->send(calls));
    raw->close();
    const CountedMemory memory;
    turn_until_idle({bus});
    EXPECT_LE(memory.blocks(), 64u * kUnread + kEcho) << "a listing takes several, and its reply another one";
}

TEST_F(Accounts, ReplyThatComesTakesABlockForEachItem) {
    request_t *r = send_request();
    kex_dispatch(bus);
    const std::vector<std::string> sent = raw->receive_all();
    ASSERT_EQ(sent.size(), 1u);
    const CountedMemory memory;
    raw->send(Packet(kReply, serial_of(sent[0])).byte(0).byte(1).byte(10).byte(1));
    kex_dispatch(bus);
    EXPECT_NE(request_reply(r), nullptr);
    EXPECT_EQ(memory.blocks(), 1u);
}

// A list takes memory for the values that came, and not for more.
TEST(Footprint, OfAListIsThatOfItsValues) {
    Packet lists = Packet(0).byte(13).word(2047);
    for (int i = 0; i < 2047; i++)
        lists.byte(13).word(1).byte(255);
    const std::string bytes = body_of(lists);
    bus::wire::Reader reader = bus::wire::reader_at(reinterpret_cast<const uint8_t *>(bytes.data()),
                                                    static_cast<uint32_t>(bytes.size()), 0, nullptr);
    const CountedMemory memory;
    variant_t value;
    ASSERT_TRUE(bus::wire::get_value(reader, &value));
    EXPECT_LE(memory.held(), 2 * kOnePacket)
        << "2,047 times a list, its memory for one value, and its place in the outer list";
    EXPECT_GE(bus::value_footprint(&value) + 2 * 2048 * kUnusedBehind, memory.held()) << "of each list, and its values";
    variant_cleanup(&value);
    EXPECT_EQ(memory.held(), 0u);
}

TEST_F(Accounts, RepliesStopCountingWhenTheirHandlersHaveRun) {
    for (int i = 0; i < 100; i++)
        send_request();
    kex_dispatch(bus);
    const std::vector<std::string> sent = raw->receive_all();
    for (const std::string &packet : sent) {
        ASSERT_TRUE(raw->send(
            Packet(kReply, serial_of(packet)).byte(0).byte(1).byte(13).word(4000).raw(std::string(4000, '\xFF'))));
        turn_until_idle({bus});
    }
    EXPECT_FALSE(raw->is_closed());
    for (request_t *r : requests)
        EXPECT_NE(request_reply(r), nullptr);
    raw->send(Packet(kCall, 5).text("Probe").text("note").byte(0));
    turn_until_idle({bus});
    EXPECT_EQ(raw->receive_all().size(), 1u) << "13 MiB of replies later it is still read";
}

TEST_F(Accounts, RequestDestroyedBeforeItsHandlersRanCountsNoMore) {
    request_t *awaited = send_request();
    request_t *other = send_request();
    kex_dispatch(bus);
    const std::vector<std::string> sent = raw->receive_all();
    ASSERT_EQ(sent.size(), 2u);
    ASSERT_TRUE(raw->send(Packet(kReply, serial_of(sent[1])).byte(0).byte(1).byte(8).word(1)));
    const timeval at_once = {0, 0};
    EXPECT_FALSE(kex_waitForReply(bus, awaited, &at_once)) << "the other one is answered, its handler waits";
    request_destroy(other);
    requests.pop_back();
    raw->close();
    turn_until_idle({bus});
}

// What strangers do that never become peers, or not for long.
TEST_F(Accounts, AnyNumberOfConnectionsLeavesNothingBehind) {
    CapturedTrace trace;
    const std::string packets[] = {"rubbish",
                                   Packet(kTapHello).text("tap").bytes(),
                                   hello(std::string(60000, 'n')).bytes(),
                                   hello().bytes() + "trailing",
                                   Packet(kCall, 1).text("Probe").text("echo").byte(1).bytes(),
                                   ""};
    const auto visit_all = [&] {
        for (const std::string &packet : packets) {
            RawPeer visitor(socket);
            if (!packet.empty())
                visitor.send(packet);
            turn_until_idle({bus});
            visitor.send(support::call(1, "nobody", "nothing"));
            turn_until_idle({bus});
        }
        turn_until_idle({bus});
    };
    for (int i = 0; i < 20; i++)
        visit_all();
    const CountedMemory memory;
    for (int i = 0; i < 300; i++)
        visit_all();
    EXPECT_LE(memory.held(), 1024u) << "after 1,800 connections";
    EXPECT_LE(memory.most(), kMebibyte);
}

TEST(Footprint, OfValuesThatHoldNothingIsNone) {
    variant_t value = {}; // a text that was never set
    EXPECT_EQ(bus::value_footprint(&value), 0u);
    for (uint32_t type : {uint32_t{VARIANT_BYTES}, uint32_t{VARIANT_LIST}, uint32_t{VARIANT_UINT32}}) {
        variant_initialize(&value, type);
        EXPECT_EQ(bus::value_footprint(&value), 0u) << type;
    }
}

TEST(Footprint, OfAListWithoutValuesIsItsOwn) {
    variant_t value;
    variant_initialize(&value, VARIANT_LIST);
    const CountedMemory memory;
    ASSERT_NE(variant_da_list(&value), nullptr);
    EXPECT_GE(bus::value_footprint(&value) + kUnusedBehind, memory.held());
    variant_cleanup(&value);
}

TEST(Accounting, WhatIsLargerThanTheLimitNeverFits) {
    EXPECT_TRUE(bus::account_fits(0, 4, 4));
    EXPECT_FALSE(bus::account_fits(0, 5, 4));
    EXPECT_FALSE(bus::account_fits(1, 4, 4));
    EXPECT_FALSE(bus::account_fits(UINT32_MAX, 2, UINT32_MAX)) << "the sum would wrap";
}

} // namespace
