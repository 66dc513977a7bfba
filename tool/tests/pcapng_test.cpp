// SPDX-License-Identifier: MIT
// Blocks of pcapng held against bytes typed from the format's description.
#include "pcapng.h"

#include <bit>

#include <gtest/gtest.h>

using namespace voicectl;

namespace {

// Words in this machine's order, bytes and texts as they are.
class Written {
public:
    Written &word(uint32_t value) { return add(&value, sizeof value); }
    Written &half(uint16_t value) { return add(&value, sizeof value); }
    Written &wide(uint64_t value) { return add(&value, sizeof value); }
    Written &raw(const std::string &text) { return add(text.data(), text.size()); }
    const std::string &bytes() const { return bytes_; }

private:
    Written &add(const void *value, size_t size) {
        bytes_.append(static_cast<const char *>(value), size);
        return *this;
    }
    std::string bytes_;
};

std::string zeros(size_t count) {
    return std::string(count, '\0');
}

TEST(Pcapng, SectionSaysOrderAndWhoWroteIt) {
    Written wanted;
    wanted.word(0x0A0D0D0A).word(28 + 8 + 12 + 4).word(0x1A2B3C4D).half(1).half(0).wide(UINT64_MAX);
    wanted.half(3).half(3).raw("L 6" + zeros(1)).half(4).half(8).raw("voicectl").half(0).half(0).word(52);
    EXPECT_EQ(pcapng::section("voicectl", "L 6"), wanted.bytes());
}

TEST(Pcapng, InterfaceHasNanoseconds) {
    Written wanted;
    wanted.word(1).word(52).half(252).half(0).word(0);
    wanted.half(2).half(3).raw("kex" + zeros(1)).half(3).half(7).raw("the bus" + zeros(1));
    wanted.half(9).half(1).raw("\x09" + zeros(3)).half(0).half(0).word(52);
    EXPECT_EQ(pcapng::interface(pcapng::kUpperLayer, "kex", "the bus"), wanted.bytes());
}

TEST(Pcapng, AddressNameIsBigEndianAndEndsInAZero) {
    Written wanted;
    wanted.word(4).word(28).half(1).half(8).raw({127, 1, 0, 2}).raw("fxs" + zeros(1)).word(0).word(28);
    EXPECT_EQ(pcapng::address_name(0x7F010002, "fxs"), wanted.bytes());
}

TEST(Pcapng, PacketIsPaddedAndHasOptionsOnlyWhereThereIsSomethingToSay) {
    Written plain;
    plain.word(6).word(40).word(1).word(0x18F1).word(0x23456789).word(5).word(5).raw("12345" + zeros(3)).word(40);
    EXPECT_EQ(pcapng::packet(1, 0x18F123456789, "12345", 0, ""), plain.bytes());
    Written lossy;
    lossy.word(6).word(56).word(0).word(0).word(7).word(0).word(0);
    lossy.half(1).half(4).raw("FXS1").half(4).half(8).wide(3).half(0).half(0).word(56);
    EXPECT_EQ(pcapng::packet(0, 7, "", 3, "FXS1"), lossy.bytes());
}

TEST(Pcapng, StatisticsSayWhatCameAndWhatWasLost) {
    Written wanted;
    wanted.word(5).word(52).word(0).word(0).word(9).half(4).half(8).wide(100).half(5).half(8).wide(2).half(0).half(0);
    EXPECT_EQ(pcapng::statistics(0, 9, 100, 2), wanted.word(52).bytes());
}

TEST(Pcapng, TagsAreBigEndianAndPadded) {
    const std::string tags = pcapng::origin_tags({.dissector = "rtp",
                                                  .protocol = "RTP",
                                                  .datagrams = true,
                                                  .source = 0x7F010001,
                                                  .destination = 0x7F010002,
                                                  .source_port = 30000,
                                                  .destination_port = 1});
    Written wanted;
    wanted.raw({0, 12, 0, 4}).raw("rtp" + zeros(1)).raw({0, 33, 0, 4}).raw("RTP" + zeros(1));
    wanted.raw({0, 20, 0, 4, 127, 1, 0, 1, 0, 21, 0, 4, 127, 1, 0, 2});
    wanted.raw({0, 24, 0, 4, 0, 0, 0, 3, 0, 25, 0, 4, 0, 0, 0x75, 0x30, 0, 26, 0, 4, 0, 0, 0, 1}).raw(zeros(4));
    EXPECT_EQ(tags, wanted.bytes());
    const std::string message = tags + "message";
    std::string_view rest(message);
    pcapng::Origin read{};
    ASSERT_TRUE(pcapng::origin_take(rest, read));
    EXPECT_EQ(rest, "message");
    EXPECT_EQ(read.dissector, "rtp");
    EXPECT_EQ(read.source, 0x7F010001u);
    EXPECT_EQ(read.destination, 0x7F010002u);
    EXPECT_EQ(read.source_port, 30000);
    EXPECT_EQ(read.destination_port, 1);
    EXPECT_TRUE(read.datagrams);
    for (size_t size = 0; size < tags.size(); ++size) {
        rest = std::string_view(tags).substr(0, size);
        EXPECT_FALSE(pcapng::origin_take(rest, read)) << size;
    }
}

TEST(Pcapng, LongTextsAreCut) {
    const std::string block = pcapng::address_name(1, std::string(100'000, 'x'));
    EXPECT_LT(block.size(), 1100u);
    EXPECT_LT(pcapng::packet(0, 0, "", 0, std::string(100'000, 'x')).size(), 1100u);
}

} // namespace
