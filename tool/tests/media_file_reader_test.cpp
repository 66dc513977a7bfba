// SPDX-License-Identifier: MIT
#include "media_file_reader.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "pcapng.h"

namespace voicectl {

namespace {

constexpr uint64_t kTime = 1'795'000'000'123'456'789;

std::string tags(std::string_view dissector = "rtp") {
    return pcapng::origin_tags({.dissector = dissector,
                                .protocol = "",
                                .datagrams = true,
                                .source = 0x7F000001,
                                .destination = 0x7F000002,
                                .source_port = 30'000,
                                .destination_port = 30'002});
}

std::string head() {
    return pcapng::section("test", "") + pcapng::interface(pcapng::kUpperLayer, "media", "");
}

std::string packet(std::string_view bytes, uint64_t lost = 0) {
    return pcapng::packet(0, kTime, tags().append(bytes), lost, "1.fxs1");
}

class MediaFile : public testing::Test {
protected:
    MediaFile() : folder_(std::filesystem::temp_directory_path() / "voice-media-XXXXXX") {
        std::string name = folder_;
        folder_ = mkdtemp(name.data());
        path = folder_ / "media";
    }
    ~MediaFile() override { std::filesystem::remove_all(folder_); }

    void write(const std::string &bytes) { std::ofstream(path, std::ios::binary | std::ios::app) << bytes; }
    // What the packets hold that are there now.
    static std::string read(MediaFileReader &reader) {
        std::string found;
        reader.look();
        int blocks = INT_MAX;
        while (const std::optional<FilePacket> packet = reader.next(blocks))
            found += packet->bytes;
        return found;
    }

    std::filesystem::path path;

private:
    std::filesystem::path folder_;
};

TEST_F(MediaFile, PacketHasItsTimeAddressesAndComment) {
    write(head() + packet("x", 7) + pcapng::packet(0, kTime, tags("rtcp"), 0, ""));
    MediaFileReader reader(path);
    reader.look();
    int blocks = 10;
    const std::optional<FilePacket> first = reader.next(blocks);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->time_ns, kTime);
    EXPECT_EQ(first->bytes, "x");
    EXPECT_EQ(first->comment, "1.fxs1");
    EXPECT_EQ(first->lost, 7U);
    EXPECT_FALSE(first->control);
    EXPECT_FALSE(first->sent);
    EXPECT_EQ(first->source, 0x7F000001U);
    EXPECT_EQ(first->destination, 0x7F000002U);
    EXPECT_EQ(first->source_port, 30'000);
    EXPECT_EQ(first->destination_port, 30'002);
    const std::optional<FilePacket> second = reader.next(blocks);
    ASSERT_TRUE(second);
    EXPECT_TRUE(second->control);
    EXPECT_FALSE(reader.next(blocks));
    EXPECT_EQ(reader.fault(), "");
}

TEST_F(MediaFile, FileThatGrowsByteByByteGivesEachPacketOnceItIsWhole) {
    const std::string whole = head() + packet("a") + packet("bc");
    MediaFileReader reader(path);
    EXPECT_EQ(read(reader), "") << "it is not there yet";
    std::string found;
    for (const char &byte : whole) {
        write(std::string(1, byte));
        found += read(reader);
        ASSERT_EQ(reader.fault(), "");
        ASSERT_TRUE(found == "" || found == "a" || &byte == &whole.back());
    }
    EXPECT_EQ(found, "abc");
}

TEST_F(MediaFile, FileThatBeginsAnewIsReadFromItsBegin) {
    write(head() + packet("a") + packet("b"));
    MediaFileReader reader(path);
    EXPECT_EQ(read(reader), "ab");
    std::filesystem::resize_file(path, 0);
    EXPECT_EQ(read(reader), "");
    write(head() + packet("c"));
    EXPECT_EQ(read(reader), "c");
    std::filesystem::remove(path);
    EXPECT_EQ(read(reader), "") << "what is gone may come back";
    write(head() + packet("d") + packet("e") + packet("f"));
    EXPECT_EQ(read(reader), "def");
    EXPECT_EQ(reader.fault(), "");
}

TEST_F(MediaFile, BlockThatIsTakenBackBeforeItIsWholeRepeatsNothing) {
    write(head() + packet("a"));
    const uintmax_t whole = std::filesystem::file_size(path);
    write(packet("b").substr(0, 30));
    MediaFileReader reader(path);
    EXPECT_EQ(read(reader), "a");
    std::filesystem::resize_file(path, whole);
    EXPECT_EQ(read(reader), "");
    write(packet("c"));
    EXPECT_EQ(read(reader), "c");
    EXPECT_EQ(reader.fault(), "");
}

TEST_F(MediaFile, WhatIsNoMediaFileIsSaidOnce) {
    for (const auto &[bytes, fault] : {
             std::pair<std::string, const char *>{"this is a text, not a capture", "is no pcapng"},
             {std::string(1000, '\0'), "is no pcapng"},
             {packet("x"), "is no pcapng"},
             {head() + std::string(1000, '\0'), "has a broken block at byte "},
             {head() + std::string(1000, '\xFF'), "has a broken block at byte "},
         }) {
        std::filesystem::remove(path);
        write(bytes);
        MediaFileReader reader(path);
        EXPECT_EQ(read(reader), "");
        EXPECT_EQ(reader.fault().substr(0, std::string_view(fault).size()), fault);
        write(head() + packet("x"));
        EXPECT_EQ(read(reader), "") << "it is read no further";
    }
    MediaFileReader folder(path.parent_path());
    EXPECT_EQ(read(folder), "");
    EXPECT_EQ(folder.fault(), "is no file");
}

TEST_F(MediaFile, InterfacesBeyondAThousandEndIt) {
    std::string bytes = head();
    for (size_t i = 0; i < 1000; ++i)
        bytes += pcapng::interface(252, "", "");
    write(bytes + packet("x"));
    MediaFileReader reader(path);
    EXPECT_EQ(read(reader), "");
    EXPECT_EQ(reader.fault(), "has more than 1000 interfaces");
}

TEST_F(MediaFile, FourGigabytesOfNothingEndIt) {
    write(head() + packet("x"));
    std::filesystem::resize_file(path, uint64_t{1} << 32);
    MediaFileReader reader(path);
    EXPECT_EQ(read(reader), "x");
    EXPECT_EQ(reader.fault().substr(0, 18), "has a broken block");
}

TEST_F(MediaFile, AnyByteMayBeWrong) {
    const std::string whole = head() + packet("abcdefgh", 7) + packet("ijkl") + pcapng::statistics(0, kTime, 1, 1);
    for (size_t at = 0; at < whole.size(); ++at)
        for (const uint8_t change : {0x01, 0x80, 0xFF}) {
            std::string bytes = whole;
            bytes[at] = static_cast<char>(static_cast<uint8_t>(bytes[at]) ^ change);
            std::filesystem::remove(path);
            write(bytes);
            MediaFileReader reader(path);
            EXPECT_LE(read(reader).size(), whole.size());
        }
}

TEST_F(MediaFile, PacketsOfOtherKindsArePassedOver) {
    write(head() + pcapng::packet(0, kTime, tags("kexbus") + "x", 0, "") + pcapng::packet(3, kTime, tags(), 0, "") +
          pcapng::packet(0, kTime, "\xFF\xFF\xFF\xFF", 0, "") + pcapng::packet(0, kTime, "", 0, "") +
          pcapng::statistics(0, kTime, 1, 1) + pcapng::address_name(1, "x") + packet("y"));
    MediaFileReader reader(path);
    EXPECT_EQ(read(reader), "y");
    EXPECT_EQ(reader.strange(), 4U);
    EXPECT_EQ(reader.fault(), "");
}

TEST_F(MediaFile, NoMoreBlocksAreReadAtATimeThanMayBe) {
    const std::string other = pcapng::packet(0, kTime, tags("kexbus"), 0, "");
    write(head() + other + other + other + packet("x") + packet("y"));
    MediaFileReader reader(path);
    reader.look();
    int blocks = 4; // of them two are the head
    EXPECT_FALSE(reader.next(blocks));
    EXPECT_EQ(blocks, 0);
    EXPECT_EQ(reader.strange(), 2U);
    EXPECT_FALSE(reader.next(blocks));
    EXPECT_EQ(reader.strange(), 2U);
    blocks = 10;
    const std::optional<FilePacket> first = reader.next(blocks);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->bytes, "x");
    EXPECT_EQ(blocks, 8);
    ASSERT_TRUE(reader.next(blocks));
    EXPECT_FALSE(reader.next(blocks));
    EXPECT_EQ(blocks, 7);
}

} // namespace

} // namespace voicectl
