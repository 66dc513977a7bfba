// SPDX-License-Identifier: MIT
// Files of RTP packets, block by block.
#include "media_file.h"

#include "packet_block.h"
#include "scratch_folder.h"
#include "udp_pair.h"

#include <string.h>
#include <unistd.h>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint64_t kTime = 1795000000123456789;

uint32_t word_at(const std::string &bytes, size_t at) {
    uint32_t word = 0;
    memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}

class MediaFile : public ScratchFolder {
protected:
    MediaFile() { make_udp_pair(pair_); }
    ~MediaFile() override {
        close(pair_[0]);
        close(pair_[1]);
    }

    media_file_packet packet(bool sent) const { return {pair_[0], "1", "fxs1", false, sent, 0}; }

    int pair_[2] = {};
};

TEST_F(MediaFile, BlockHasPacketAddressesDirectionAndName) {
    const uint8_t rtp[] = {0x80, 8, 0, 1, 0xAA};
    uint8_t bytes[kMostPacketBlock];
    const media_file_packet sent = packet(true);
    const uint32_t size = packet_block_write(&sent, kTime, 7, rtp, sizeof rtp, bytes);
    const std::string block(reinterpret_cast<char *>(bytes), size);
    EXPECT_EQ(size % 4, 0u);
    EXPECT_EQ(word_at(block, 0), 6u);
    EXPECT_EQ(word_at(block, 4), size);
    EXPECT_EQ(word_at(block, size - 4), size);
    EXPECT_EQ(uint64_t{word_at(block, 12)} << 32 | word_at(block, 16), kTime);
    const uint32_t length = word_at(block, 20);
    EXPECT_EQ(word_at(block, 24), length);
    const std::string tagged = block.substr(28, length);
    EXPECT_EQ(tagged.substr(0, 8), std::string("\0\x0C\0\4rtp\0", 8));
    EXPECT_NE(tagged.find(std::string("\0\x14\0\4\x7F\0\0\1", 8)), std::string::npos) << "from 127.0.0.1";
    EXPECT_EQ(tagged.substr(length - sizeof rtp), std::string("\x80\x08\0\x01\xAA", 5));
    const std::string options = block.substr(28 + ((length + 3) & ~3u));
    EXPECT_EQ(options.substr(4, 6), "1.fxs1");
    EXPECT_EQ(word_at(options, 16), 2u) << "outbound";
    EXPECT_EQ(word_at(options, 24) + word_at(options, 20 + 8), 7u) << "copies that are missing before it";
}

TEST_F(MediaFile, LargestPacketFitsAndALargerOneHasNoBlock) {
    uint8_t bytes[kMostPacketBlock];
    const Bytes rtp(kMostPacketBlock);
    const std::string name(100, 'x');
    media_file_packet longest = packet(false);
    longest.who = longest.host = name.c_str();
    EXPECT_LE(packet_block_write(&longest, kTime, 1, rtp.data(), 1500, bytes), kMostPacketBlock);
    EXPECT_GT(packet_block_write(&longest, kTime, 1, rtp.data(), kMostPacketBlock - 256, bytes), 0u);
    EXPECT_EQ(packet_block_write(&longest, kTime, 1, rtp.data(), kMostPacketBlock - 255, bytes), 0u);
}

TEST_F(MediaFile, AddressesOfIpv6HaveTagsOfTheirOwn) {
    int pair[2];
    for (int &fd : pair)
        fd = socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof address;
    if (bind(pair[0], reinterpret_cast<sockaddr *>(&address), size) != 0)
        GTEST_SKIP() << "no IPv6 here";
    ASSERT_EQ(getsockname(pair[0], reinterpret_cast<sockaddr *>(&address), &size), 0);
    ASSERT_EQ(connect(pair[1], reinterpret_cast<sockaddr *>(&address), size), 0);
    uint8_t bytes[kMostPacketBlock];
    media_file_packet six = packet(true);
    six.socket = pair[1];
    const uint32_t written = packet_block_write(&six, kTime, 0, bytes, 0, bytes);
    const std::string block(reinterpret_cast<char *>(bytes), written);
    EXPECT_NE(block.find(std::string("\0\x17\0\x10", 4) + std::string(15, '\0') + '\1'), std::string::npos);
    close(pair[0]);
    close(pair[1]);
}

TEST_F(MediaFile, SocketThatIsNotConnectedHasNoAddresses) {
    uint8_t bytes[kMostPacketBlock];
    media_file_packet none = packet(true);
    none.socket = -1;
    EXPECT_EQ(packet_block_write(&none, kTime, 0, bytes, 0, bytes), 0u);
}

// Numbers of packets in the file, and of those that it says are missing.
std::pair<size_t, uint64_t> counted(const std::string &file) {
    size_t packets = 0;
    uint64_t lost = 0;
    for (size_t at = 0; at + 12 <= file.size() && word_at(file, at + 4) <= file.size() - at;
         at += word_at(file, at + 4)) {
        if (word_at(file, at) != 6)
            continue;
        packets++;
        // Its name and its direction take 20 bytes, then comes what is missing, if anything is.
        const size_t options = at + 28 + ((word_at(file, at + 20) + 3) & ~size_t{3}) + 20;
        uint16_t code = 0;
        memcpy(&code, file.data() + options, sizeof code);
        uint64_t before = 0;
        if (code == 4)
            memcpy(&before, file.data() + options + 4, sizeof before);
        lost += before;
    }
    return {packets, lost};
}

TEST_F(MediaFile, EachPacketIsWrittenOrCountedHoweverFastTheyCome) {
    constexpr size_t kBurst = 20'000; // 28 MB: more than a buffer of 256 KiB holds, by far
    const std::string file = path("media");
    ASSERT_EQ(media_file_take(file.c_str()), nullptr);
    EXPECT_STREQ(media_file_take(path("other").c_str()), "one file only");
    media_file_begin();
    const Bytes rtp(1400);
    const media_file_packet one = packet(false);
    for (size_t i = 0; i < kBurst; i++)
        media_file_add(&one, rtp.data(), rtp.size());
    // What was lost last is told with the packet behind it.
    size_t added = kBurst;
    std::pair<size_t, uint64_t> found;
    for (int i = 0; i < 2000 && (i == 0 || found.first + found.second < added); i++) {
        if (i % 100 == 0) {
            media_file_add(&one, rtp.data(), rtp.size());
            added++;
        }
        usleep(10'000);
        found = counted(contents("media"));
    }
    EXPECT_EQ(found.first + found.second, added);
    EXPECT_GT(found.first, 180u) << "what the buffer holds is there at least";
}

} // namespace
