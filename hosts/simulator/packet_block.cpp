// SPDX-License-Identifier: MIT
// The blocks of a media file.
#include "packet_block.h"

#include "media_file.h"
#include "network_order.h"
#include "pcapng_numbers.h"

#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

using namespace pcapng_numbers;

namespace {

// A block that grows. Everything in it is a multiple of four bytes.
struct writer {
    uint8_t *bytes;
    uint32_t used;
};

void put_bytes(writer *to, const void *bytes, uint32_t size) {
    memcpy(to->bytes + to->used, bytes, size);
    memset(to->bytes + to->used + size, 0, -size & 3);
    to->used += size + (-size & 3);
}

void put_word(writer *to, uint32_t word) {
    put_bytes(to, &word, sizeof word);
}

void put_halves(writer *to, uint16_t first, uint16_t second) {
    const uint16_t halves[] = {first, second};
    put_bytes(to, halves, sizeof halves);
}

void put_option(writer *to, uint16_t code, const void *value, uint16_t size) {
    put_halves(to, code, size);
    put_bytes(to, value, size);
}

// A tag is in network order, whatever the file's order is.
void put_tag(writer *to, uint16_t tag, const void *value, uint16_t size) {
    uint8_t head[4];
    put16(head, tag);
    put16(head + 2, static_cast<uint16_t>(size + (-size & 3)));
    put_bytes(to, head, sizeof head);
    put_bytes(to, value, size);
}

void put_tag_number(writer *to, uint16_t tag, uint32_t number) {
    uint8_t value[4];
    put32(value, number);
    put_tag(to, tag, value, sizeof value);
}

writer block_begin(uint8_t *bytes, uint32_t type) {
    writer block = {bytes, 0};
    put_word(&block, type);
    put_word(&block, 0); // its size, at the end
    return block;
}

uint32_t block_end(writer *block) {
    const uint32_t size = block->used + 4;
    memcpy(block->bytes + 4, &size, sizeof size);
    put_word(block, size);
    return size;
}

void put_address(writer *to, bool source, const sockaddr_storage *address) {
    const auto *four = reinterpret_cast<const sockaddr_in *>(address);
    const auto *six = reinterpret_cast<const sockaddr_in6 *>(address);
    const uint16_t tag = source ? kSource : kDestination;
    if (address->ss_family == AF_INET6)
        put_tag(to, static_cast<uint16_t>(tag + 2), &six->sin6_addr, sizeof six->sin6_addr);
    else
        put_tag(to, tag, &four->sin_addr, sizeof four->sin_addr);
    put_tag_number(to, source ? kSourcePort : kDestinationPort,
                   ntohs(address->ss_family == AF_INET6 ? six->sin6_port : four->sin_port));
}

bool put_origin(writer *to, const media_file_packet *packet) {
    sockaddr_storage own = {}, peer = {};
    socklen_t own_size = sizeof own, peer_size = sizeof peer;
    if (getsockname(packet->socket, reinterpret_cast<sockaddr *>(&own), &own_size) != 0 ||
        getpeername(packet->socket, reinterpret_cast<sockaddr *>(&peer), &peer_size) != 0)
        return false;
    const char *dissector = packet->control ? "rtcp" : "rtp";
    put_tag(to, kDissector, dissector, static_cast<uint16_t>(strlen(dissector)));
    put_tag_number(to, kPortType, kUdp);
    put_address(to, true, packet->sent ? &own : &peer);
    put_address(to, false, packet->sent ? &peer : &own);
    put_word(to, kTagEnd);
    return true;
}

} // namespace

uint32_t file_head_write(uint8_t *bytes) {
    writer section = block_begin(bytes, kSection);
    put_word(&section, kByteOrderMark);
    put_halves(&section, 1, 0); // version
    const uint64_t any_length = UINT64_MAX;
    put_bytes(&section, &any_length, sizeof any_length);
    const uint32_t used = block_end(&section);
    writer interface = block_begin(bytes + used, kInterface);
    put_halves(&interface, kUpperLayer, 0);
    put_word(&interface, 0); // packets of any size
    put_option(&interface, kName, "media", 5);
    put_option(&interface, kTimeResolution, &kNanoseconds, 1);
    put_option(&interface, kOptionEnd, "", 0);
    return used + block_end(&interface);
}

bool section_is_ours(const uint8_t *bytes) {
    uint8_t own[kFileHeadBytes];
    file_head_write(own);
    return memcmp(bytes, own, kSectionBytes) == 0;
}

uint32_t packet_block_write(const media_file_packet *packet, uint64_t time_ns, uint64_t lost, const uint8_t *bytes,
                            size_t size, uint8_t *block) {
    constexpr uint32_t kBesides = 256; // the block without its packet: at most
    constexpr uint32_t kLengthsAt = 20;
    if (size > kMostPacketBlock - kBesides)
        return 0;
    writer to = block_begin(block, kPacket);
    put_word(&to, 0); // interface
    put_word(&to, static_cast<uint32_t>(time_ns >> 32));
    put_word(&to, static_cast<uint32_t>(time_ns));
    put_word(&to, 0); // length, twice
    put_word(&to, 0);
    const uint32_t begin = to.used;
    if (!put_origin(&to, packet))
        return 0;
    const uint32_t length = to.used - begin + static_cast<uint32_t>(size);
    put_bytes(&to, bytes, static_cast<uint32_t>(size));
    memcpy(block + kLengthsAt, &length, sizeof length);
    memcpy(block + kLengthsAt + 4, &length, sizeof length);
    char comment[64];
    const int shown = snprintf(comment, sizeof comment, "%.31s.%.31s", packet->who, packet->host);
    put_option(&to, kComment, comment, static_cast<uint16_t>(shown));
    const uint32_t flags = packet->sent ? kOutbound : kInbound;
    put_option(&to, kFlags, &flags, sizeof flags);
    if (lost > 0)
        put_option(&to, kLost, &lost, sizeof lost);
    put_option(&to, kOptionEnd, "", 0);
    return block_end(&to);
}
