// SPDX-License-Identifier: MIT
/**
 * @file little_endian.h
 * Numbers with their lowest byte first, as WAV files have them, whatever the processor's order is.
 */
#pragma once

#include <stdint.h>

inline void put_le16(uint8_t *bytes, uint32_t value) {
    bytes[0] = static_cast<uint8_t>(value);
    bytes[1] = static_cast<uint8_t>(value >> 8);
}
inline void put_le32(uint8_t *bytes, uint32_t value) {
    put_le16(bytes, value & 0xFFFF);
    put_le16(bytes + 2, value >> 16);
}
inline uint16_t get_le16(const uint8_t *bytes) {
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}
inline uint32_t get_le32(const uint8_t *bytes) {
    return static_cast<uint32_t>(get_le16(bytes)) | static_cast<uint32_t>(get_le16(bytes + 2)) << 16;
}
