// SPDX-License-Identifier: MIT
// Captures read back: what pcapng.h writes, files of the other byte order, and what is no capture.
#include "capture_reader.h"

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "pcapng.h"

using namespace voicectl;

namespace {

class File {
public:
    explicit File(const std::string &bytes) : descriptor(memfd_create("capture", MFD_CLOEXEC)) {
        EXPECT_EQ(write(descriptor, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        lseek(descriptor, 0, SEEK_SET);
    }
    ~File() { close(descriptor); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    int descriptor;
};

std::string tagged(const char *dissector, const std::string &bytes) {
    return pcapng::origin_tags({.dissector = dissector,
                                .protocol = "X",
                                .datagrams = false,
                                .source = 0x7F010001,
                                .destination = 0x7F010002,
                                .source_port = 7,
                                .destination_port = 1}) +
           bytes;
}

std::string head() {
    return pcapng::section("voicectl", "L") + pcapng::interface(pcapng::kUpperLayer, "kex", "");
}

std::string small_capture() {
    return head() + pcapng::address_name(0x7F010001, "fxs") +
           pcapng::packet(0, 1'700'000'000'123'456'789, tagged("kexbus", "first"), 3, "") +
           pcapng::packet(0, 5, tagged("rtp", "second"), 0, "a comment") + pcapng::statistics(0, 6, 2, 0);
}

struct Read {
    std::vector<std::string> bytes{};
    std::string fault{};
    uint64_t strange = 0;
    uint64_t broken = 0;
    bool operator==(const Read &) const = default;
};

Read read_all(const std::string &file) {
    const File opened(file);
    CaptureReader reader(opened.descriptor);
    CapturedPacket packet;
    Read read;
    while (reader.next(packet))
        read.bytes.emplace_back(packet.bytes);
    read.fault = reader.fault();
    read.strange = reader.strange();
    read.broken = reader.broken();
    return read;
}

// Numbers of a file in the other order: all that pcapng.h has written but texts and packets.
std::string other_order(uint32_t ticks_code) {
    const auto word = [](uint32_t value) {
        value = __builtin_bswap32(value);
        return std::string(reinterpret_cast<const char *>(&value), sizeof value);
    };
    const auto half = [](uint16_t value) {
        value = __builtin_bswap16(value);
        return std::string(reinterpret_cast<const char *>(&value), sizeof value);
    };
    const std::string bytes = tagged("kexbus", "1234");
    const auto size = static_cast<uint32_t>(bytes.size());
    std::string file = word(0x0A0D0D0A) + word(28) + word(0x1A2B3C4D) + half(1) + half(0) + word(UINT32_MAX) +
                       word(UINT32_MAX) + word(28);
    file += word(1) + word(32) + half(252) + half(0) + word(0) + half(9) + half(1);
    file += std::string{static_cast<char>(ticks_code), 0, 0, 0} + half(0) + half(0) + word(32);
    file += word(6) + word(32 + size) + word(0) + word(0) + word(3 << 20) + word(size) + word(size) + bytes +
            word(32 + size);
    return file;
}

TEST(CaptureReader, WhatWasWrittenIsReadBack) {
    const File file(small_capture());
    CaptureReader reader(file.descriptor);
    CapturedPacket packet;
    ASSERT_TRUE(reader.next(packet));
    EXPECT_EQ(packet.time_ns, 1'700'000'000'123'456'789u);
    EXPECT_EQ(packet.dissector, "kexbus");
    EXPECT_EQ(packet.bytes, "first");
    EXPECT_EQ(packet.comment, "");
    EXPECT_EQ(packet.source, 0x7F010001u);
    EXPECT_EQ(packet.destination, 0x7F010002u);
    EXPECT_EQ(packet.source_port, 7);
    EXPECT_EQ(packet.destination_port, 1);
    ASSERT_TRUE(reader.next(packet));
    EXPECT_EQ(packet.dissector, "rtp");
    EXPECT_EQ(packet.bytes, "second");
    EXPECT_EQ(packet.comment, "a comment");
    EXPECT_FALSE(reader.next(packet));
    EXPECT_EQ(reader.fault(), "");
}

TEST(CaptureReader, FileOfTheOtherOrderAndOfOtherTicks) {
    constexpr std::pair<uint32_t, uint64_t> kTicks[] = {{6, 3'145'728'000}, {9, 3'145'728}, {0x94, 3'000'000'000}};
    for (const auto &[code, time_ns] : kTicks) {
        const File file(other_order(code));
        CaptureReader reader(file.descriptor);
        CapturedPacket packet;
        ASSERT_TRUE(reader.next(packet)) << reader.fault();
        EXPECT_EQ(packet.bytes, "1234");
        EXPECT_EQ(packet.time_ns, time_ns) << code;
    }
}

TEST(CaptureReader, CutAnywhereWhatIsWholeIsRead) {
    const std::string file = small_capture();
    const Read whole = read_all(file);
    for (size_t size = 0; size < file.size(); ++size) {
        const Read read = read_all(file.substr(0, size));
        const bool is_between = read.fault.empty();
        EXPECT_LE(read.bytes.size(), whole.bytes.size());
        EXPECT_TRUE(std::equal(read.bytes.begin(), read.bytes.end(), whole.bytes.begin())) << size;
        if (size == 0) {
            EXPECT_EQ(read.fault, "empty");
        } else if (size < 4) {
            EXPECT_NE(read.fault.find("no capture"), std::string::npos);
        } else if (!is_between) {
            EXPECT_NE(read.fault.find("cut off in the block at byte "), std::string::npos) << read.fault;
        }
    }
}

TEST(CaptureReader, SectionsBehindEachOtherHaveInterfacesOfTheirOwn) {
    const std::string plain =
        pcapng::section("x", "") + pcapng::interface(1, "eth", "") + pcapng::packet(0, 1, "frame", 0, "");
    const Read read = read_all(small_capture() + plain + other_order(9) + small_capture());
    EXPECT_EQ(read.bytes, (std::vector<std::string>{"first", "second", "1234", "first", "second"}));
    EXPECT_EQ(read.fault, "");
    EXPECT_EQ(read.strange, 1u);
}

TEST(CaptureReader, WhatIsNoCaptureIsSaid) {
    const std::string at_head = "the block at byte " + std::to_string(head().size());
    const std::pair<std::string, std::string> kRows[] = {
        {"", "empty"},
        {"Dear aunt, how are you?", "no capture: voicectl capture -o FILE makes one"},
        {std::string(100, '\0'), "no capture: voicectl capture -o FILE makes one"},
        {std::string("\xD4\xC3\xB2\xA1", 4) + std::string(20, '\0'),
         "a classic pcap file: editcap -F pcapng makes one of it that can be read"},
        {std::string("\xA1\xB2\x3C\x4D", 4) + std::string(20, '\0'),
         "a classic pcap file: editcap -F pcapng makes one of it that can be read"},
        {std::string("\x1F\x8B\x08\x00", 4) + std::string(20, '\0'),
         "compressed: gunzip makes one of it that can be read"},
        {head() + std::string(100, '\0'), at_head + " says it has 0 bytes"},
    };
    for (const auto &[file, sentence] : kRows)
        EXPECT_EQ(read_all(file).fault, sentence);
}

TEST(CaptureReader, BlockThatIsTooLargeIsNotWaitedFor) {
    std::string file = head();
    const uint32_t words[] = {6, kMostBlockBytes + 4};
    file.append(reinterpret_cast<const char *>(words), sizeof words).append(1000, '\0');
    EXPECT_EQ(read_all(file).fault,
              "the block at byte " + std::to_string(head().size()) + " says it has 16777220 bytes");
}

TEST(CaptureReader, InterfacesBeyondAThousandEndIt) {
    std::string file = pcapng::section("x", "");
    for (size_t i = 0; i < 1000; ++i)
        file += pcapng::interface(252, "", "");
    EXPECT_EQ(read_all(file + pcapng::packet(999, 1, tagged("kexbus", "1234"), 0, "")).bytes,
              std::vector<std::string>{"1234"});
    EXPECT_EQ(read_all(file + pcapng::interface(252, "", "")).fault, "more than 1000 interfaces");
}

TEST(CaptureReader, BlockWhoseSizesDifferEndsIt) {
    std::string file = small_capture();
    file[file.size() - 4] = static_cast<char>(file[file.size() - 4] + 4);
    EXPECT_NE(read_all(file).fault.find("says two sizes"), std::string::npos);
}

// What stands around a packet that is not whole is read, and it is counted.
void expect_counted(const std::string &packet) {
    const std::string whole = pcapng::packet(0, 1, tagged("kexbus", "whole"), 0, "");
    const Read read = read_all(head() + whole + packet + whole);
    EXPECT_EQ(read.bytes, (std::vector<std::string>{"whole", "whole"}));
    EXPECT_EQ(read.broken, 1u);
    EXPECT_EQ(read.strange, 0u);
    EXPECT_EQ(read.fault, "");
}

TEST(CaptureReader, TagsThatAreNotWholeMakeNoPacket) {
    const std::string whole = tagged("kexbus", "");
    for (size_t size = 0; size < whole.size(); ++size)
        expect_counted(pcapng::packet(0, 1, whole.substr(0, size), 0, ""));
}

TEST(CaptureReader, PacketOfNoInterfaceIsCounted) {
    expect_counted(pcapng::packet(1, 1, tagged("kexbus", "x"), 0, ""));
    expect_counted(pcapng::packet(UINT32_MAX, 1, tagged("kexbus", "x"), 0, ""));
}

TEST(CaptureReader, PacketThatIsLongerThanItsBlockIsCounted) {
    constexpr size_t kLengthAt = 20;
    const std::string plain = pcapng::packet(0, 1, tagged("kexbus", "x"), 0, "");
    for (const uint32_t length : {static_cast<uint32_t>(plain.size()), uint32_t{INT32_MAX}, UINT32_MAX}) {
        std::string packet = plain;
        packet.replace(kLengthAt, sizeof length, reinterpret_cast<const char *>(&length), sizeof length);
        expect_counted(packet);
    }
    std::string body(12, '\0'); // a block without room for the head of a packet
    const uint32_t words[] = {6, 24};
    expect_counted(std::string(reinterpret_cast<const char *>(words), sizeof words) + body +
                   std::string(reinterpret_cast<const char *>(&words[1]), sizeof words[1]));
}

} // namespace
