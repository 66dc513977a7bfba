// SPDX-License-Identifier: MIT
/**
 * @file packet_block.h
 * The blocks of a media file: pcapng in this machine's byte order, link type 252 (upper layer), so that Wireshark knows RTP and
 * RTCP with their addresses and ports without being told.
 */
#pragma once

#include <stddef.h>
#include <stdint.h>

struct media_file_packet;

constexpr uint32_t kSectionBytes = 28;      // of the block that begins a file
constexpr uint32_t kFileHeadBytes = 128;    // at most: that block and the description of the one interface
constexpr uint32_t kMostPacketBlock = 2048; // with a packet of 1500 bytes

/** Writes what stands in front of all packets. @return its size */
uint32_t file_head_write(uint8_t *bytes);
/** Whether a file that begins so was written by file_head_write(), on a machine of the same byte order. */
bool section_is_ours(const uint8_t *bytes);
/** Writes a packet's block. @param lost  how many are missing in front of it. @return its size, 0: it is too large, or its socket
 *  is not connected */
uint32_t packet_block_write(const media_file_packet *packet, uint64_t time_ns, uint64_t lost, const uint8_t *bytes,
                            size_t size, uint8_t *block);
