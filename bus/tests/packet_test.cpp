// SPDX-License-Identifier: MIT
// Packets of several messages by themselves: taken apart as they were put together, or refused whole.
#include "support/bus_test.h"
#include "support/raw_peer.h"
#include "value/packet.h"

using namespace support;
using testing::ElementsAre;

namespace {

std::string check(const std::string &bytes, uint32_t descriptors = 0) {
    // On the heap and exactly as long: a look one byte too far is seen.
    const std::vector<char> exact(bytes.begin(), bytes.end());
    bus::wire::Packet packet;
    const char *why =
        bus::wire::packet_validate(exact.data(), static_cast<uint32_t>(exact.size()), descriptors, packet);
    return why != nullptr ? why : "";
}

std::string check(const std::vector<Packet> &messages, uint32_t descriptors = 0) {
    return check(together(messages), descriptors);
}

Packet note(uint32_t serial = 1) {
    return Packet(kOneWayCall, serial).text("Probe").text("note").byte(0);
}

// One that announces so many descriptors and names them.
Packet bringing(uint32_t descriptors) {
    Packet packet = Packet(kOneWayCall, 1).text("Probe").text("note").byte(1).text("fds").byte(13).word(descriptors);
    for (uint32_t i = 0; i < descriptors; i++)
        packet.byte(18).word(i).word(7);
    return packet.descriptors(descriptors);
}

TEST(PacketOfSeveral, MessagesAreFoundInTheirOrder) {
    const std::string bytes =
        together({note(7), bringing(2), Packet(kReply, 8).byte(0).byte(0), Packet(kWaiting, 9), bringing(1)});
    bus::wire::Packet packet;
    ASSERT_EQ(bus::wire::packet_validate(bytes.data(), static_cast<uint32_t>(bytes.size()), 3, packet), nullptr);
    std::vector<uint32_t> serials, kinds, descriptors;
    std::string back;
    for (uint32_t i = 0; i < packet.count; i++) {
        const bus::wire::Message &message = packet.messages[i];
        serials.push_back(message.serial);
        kinds.push_back(message.kind);
        descriptors.push_back(message.descriptors);
        back += std::string(reinterpret_cast<const char *>(message.data), message.size);
    }
    EXPECT_THAT(serials, ElementsAre(7, 1, 8, 9, 1));
    EXPECT_THAT(kinds, ElementsAre(kOneWayCall, kOneWayCall, kReply, kWaiting, kOneWayCall));
    EXPECT_THAT(descriptors, ElementsAre(0, 2, 0, 0, 1));
    EXPECT_EQ(back, bytes);
}

TEST(PacketOfSeveral, SixtyFourAndNoMore) {
    EXPECT_EQ(check(std::vector<Packet>(64, note())), "");
    EXPECT_EQ(check(std::vector<Packet>(65, note())), "too many messages");
    EXPECT_EQ(check(std::vector<Packet>(6000, Packet(kWaiting))), "too many messages");
}

TEST(PacketOfSeveral, EmptyMessagesAreNone) {
    const std::string head = Packet(kWaiting).size(0).bytes();
    std::string heads;
    for (int i = 0; i < 10000; i++)
        heads += head;
    EXPECT_EQ(check(heads), "a message is shorter than its head");
    EXPECT_EQ(check(std::string(10000, '\0')), "this is no packet of the bus");
}

// What a message says of its size, each where it stands first and where it stands last.
TEST(PacketOfSeveral, WrongSizesAreRefused) {
    const auto whole = static_cast<uint32_t>(note().bytes().size());
    const struct {
        uint32_t size;
        const char *first;
        const char *last;
    } rows[] = {
        {0, "a message is shorter than its head", "a message is shorter than its head"},
        {1, "a message is shorter than its head", "a message is shorter than its head"},
        {19, "a message is shorter than its head", "a message is shorter than its head"},
        {20, "this is no packet of the bus", "this is no packet of the bus"}, // what follows is its body
        {whole - 1, "this is no packet of the bus", "the packet is cut off"}, // a byte that stands alone
        {whole + 1, "this is no packet of the bus", "the packet is cut off"},
        {whole + 20, "this is no packet of the bus", "the packet is cut off"},
        {2 * whole, "the packet has trailing bytes", "the packet is cut off"},
        {2 * whole + 1, "the packet is cut off", "the packet is cut off"},
        {0x80000000, "the packet is cut off", "the packet is cut off"},
        {UINT32_MAX - whole + 1, "the packet is cut off", "the packet is cut off"}, // ends in front of its begin
        {UINT32_MAX, "the packet is cut off", "the packet is cut off"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(check({note().size(row.size), note()}), row.first) << row.size;
        EXPECT_EQ(check({note(), note().size(row.size)}), row.last) << row.size;
    }
}

TEST(PacketOfSeveral, DescriptorsHaveToAddUp) {
    EXPECT_EQ(check({bringing(1), bringing(2)}, 3), "");
    EXPECT_EQ(check({bringing(1), bringing(2)}, 2), "a descriptor did not come");
    EXPECT_EQ(check({bringing(1), bringing(2)}, 0), "a descriptor did not come");
    EXPECT_EQ(check({bringing(1), bringing(2)}, 4), "a descriptor came that no value names");
    EXPECT_EQ(check({note(), note()}, 1), "a descriptor came that no value names");
    // The sum is right, the parts are not.
    EXPECT_EQ(check({bringing(1).descriptors(2), bringing(2).descriptors(1)}, 3),
              "a descriptor came that no value names");
    EXPECT_EQ(check({bringing(2).descriptors(1), bringing(1).descriptors(2)}, 3), "a descriptor did not come");
    EXPECT_EQ(check({note().descriptors(1), bringing(1)}, 2), "a descriptor came that no value names");
    EXPECT_EQ(check({bringing(1), note().descriptors(UINT32_MAX)}, 1), "a descriptor did not come");
    EXPECT_EQ(check({bringing(2).descriptors(UINT32_MAX), bringing(1).descriptors(4)}, 3), "a descriptor did not come")
        << "their sum wraps to 3";
}

TEST(PacketOfSeveral, LimitsAreThoseOfAllMessagesTogether) {
    EXPECT_EQ(check({bringing(32), bringing(32)}, 64), "");
    EXPECT_EQ(check({bringing(32), bringing(33)}, 65), "too many descriptors");
    auto listing = [](uint32_t count) {
        return Packet(kOneWayCall, 1)
            .text("a")
            .text("b")
            .byte(1)
            .text("c")
            .byte(13)
            .word(count)
            .raw(std::string(count, '\xFF'));
    };
    EXPECT_EQ(check({listing(2047), listing(2047)}), "") << "and the lists themselves";
    EXPECT_EQ(check({listing(2047), listing(2048)}), "too many values");
    auto failing = [](uint8_t errors) {
        Packet packet = Packet(kReply, 1).byte(errors);
        for (uint8_t i = 0; i < errors; i++)
            packet.word(1).text("").text("");
        return packet.byte(0);
    };
    EXPECT_EQ(check({failing(32), failing(32)}), "");
    EXPECT_EQ(check({failing(32), failing(33)}), "too many error items");
}

TEST(PacketOfSeveral, HelloComesAlone) {
    EXPECT_EQ(check({hello()}), "");
    const Packet tap_hello = Packet(kTapHello).text("tap");
    for (const Packet &one : {hello(), tap_hello}) {
        EXPECT_EQ(check({one, note()}), "a hello came together with other messages");
        EXPECT_EQ(check({note(), one}), "a hello came together with other messages");
        EXPECT_EQ(check({one, one}), "a hello came together with other messages");
    }
}

TEST(PacketOfSeveral, EndsWithItsLastMessage) {
    const std::string good = together({note(), note()});
    EXPECT_EQ(check(good + "k"), "the packet is cut off");
    EXPECT_EQ(check(good + std::string(3, '\0')), "the packet is cut off");
    EXPECT_EQ(check(good + std::string(4, '\0')), "this is no packet of the bus");
    EXPECT_EQ(check(good + std::string(64, '\0')), "this is no packet of the bus");
    EXPECT_EQ(check(good + note().bytes().substr(0, 19)), "the packet is cut off");
    EXPECT_EQ(check(""), "the packet is cut off");
}

TEST(PacketOfSeveral, ProblemOfAnyMessageIsThePackets) {
    const Packet bad = Packet(kCall, 1).text("Probe").text("note").byte(1).text("a").byte(10).byte(2);
    for (const auto &messages : std::vector<std::vector<Packet>>{{bad, note()}, {note(), bad}, {note(), bad, note()}})
        EXPECT_EQ(check(messages), "a boolean is neither 0 nor 1");
    EXPECT_EQ(check({note(), Packet(99)}), "the kind of the packet is unknown");
    EXPECT_EQ(check({note(), note().set(1, 1)}), "the protocol version differs");
    EXPECT_EQ(check({note(), note().set(2, 'X')}), "the byte order differs");
}

// ----------------------------------------------------------------------------------------- Putting together

constexpr uint32_t kLimit = 1000;

// How many equal messages a packet takes.
uint32_t taken(const bus::wire::PacketUse &each) {
    bus::wire::PacketUse packet = {};
    while (bus::wire::packet_takes(packet, each, kLimit)) {
    }
    return packet.messages;
}

TEST(PacketUse, GrowsAsFarAsItsLimits) {
    EXPECT_EQ(taken({1, 15, 0, 0, 0}), 64u);
    EXPECT_EQ(taken({1, 100, 0, 0, 0}), 10u) << "bytes";
    EXPECT_EQ(taken({1, 101, 0, 0, 0}), 9u) << "bytes";
    EXPECT_EQ(taken({1, 1, 4, 0, 0}), 4u) << "descriptors";
    EXPECT_EQ(taken({1, 1, 5, 0, 0}), 3u) << "descriptors";
    EXPECT_EQ(taken({1, 1, 64, 0, 0}), 1u) << "descriptors";
    EXPECT_EQ(taken({1, 1, 0, 1024, 0}), 4u) << "values";
    EXPECT_EQ(taken({1, 1, 0, 1025, 0}), 3u) << "values";
    EXPECT_EQ(taken({1, 1, 0, 0, 32}), 2u) << "error items";
    EXPECT_EQ(taken({1, 1, 0, 0, 33}), 1u) << "error items";
}

TEST(PacketUse, TakesOneMessageOfAnySize) {
    EXPECT_EQ(taken({1, kLimit + 1, 0, 0, 0}), 1u);
}

TEST(PacketUse, TakesMessagesWithoutDescriptorsBehindAnyNumberOfThem) {
    bus::wire::PacketUse packet = {};
    ASSERT_TRUE(bus::wire::packet_takes(packet, {1, 1, 64, 0, 0}, kLimit));
    EXPECT_TRUE(bus::wire::packet_takes(packet, {1, 1, 0, 0, 0}, kLimit));
    EXPECT_FALSE(bus::wire::packet_takes(packet, {1, 1, 1, 0, 0}, kLimit));
    EXPECT_EQ(packet.messages, 2u);
}

TEST(PacketUse, StaysAsItWasWhenAMessageDoesNotFit) {
    bus::wire::PacketUse packet = {};
    ASSERT_TRUE(bus::wire::packet_takes(packet, {1, 600, 3, 5, 7}, kLimit));
    EXPECT_FALSE(bus::wire::packet_takes(packet, {1, 600, 3, 5, 7}, kLimit));
    EXPECT_TRUE(bus::wire::packet_takes(packet, {1, 400, 1, 1, 1}, kLimit));
    EXPECT_EQ(packet.messages, 2u);
    EXPECT_EQ(packet.size, 1000u);
    EXPECT_EQ(packet.descriptors, 4u);
    EXPECT_EQ(packet.values, 6u);
    EXPECT_EQ(packet.errors, 8u);
}

} // namespace
