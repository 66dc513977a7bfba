// SPDX-License-Identifier: MIT
/**
 * @file fsk.h
 * Caller display on an analogue line: a data block as the sound of a modem (ETSI EN 300 659-1, on-hook transmission).
 */
#pragma once

#include <stdint.h>

/** Frequencies of a modem of 1200 bit/s. */
struct fsk_modem {
    const char *name;
    uint32_t mark;  // Hz, a one
    uint32_t space; // Hz, a zero
};

constexpr fsk_modem kV23 = {"v23", 1300, 2100};         // ITU-T V.23: Europe
constexpr fsk_modem kBell202 = {"bell202", 1200, 2200}; // North America

constexpr uint32_t kBlockBytes = 258; // the largest block: type, length, 255 bytes, checksum
constexpr uint32_t kWavRate = 48000;  // samples per second of the file

/**
 * The bytes that go onto the line for a data block's text: as the text has them, but with the checksum that the line
 * wants, the two's complement of the sum. @return how many; 0: not a data block.
 */
uint32_t fsk_line_block(const char *text, uint8_t *block);
/** Writes a block as sound into a WAV file: channel seizure, mark, the bytes. @return whether; errno tells. */
bool fsk_write_wav(const char *path, const fsk_modem *modem, const uint8_t *block, uint32_t length);
