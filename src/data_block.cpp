// SPDX-License-Identifier: MIT
// Caller-display data blocks, the part without trace messages: blocks and their texts are written, texts turned into bytes.
#include "data_block.h"

#include <stdlib.h> // strtol
#include <string.h>

#include "libvoice_utils.h"

namespace {

using namespace voice;

template <size_t count>
constexpr uint32_t largest(const Item (&items)[count]) {
    uint32_t bytes = 0;
    for (const auto &item : items)
        bytes += kHeadBytes + item.size;
    return bytes;
}

// Callers pass no room: what they owe is fixed here.
constexpr uint32_t kLargestCallSetup = kHeadBytes + largest(kCommonItems) + largest(kCallSetupItems) + kChecksumBytes;
constexpr uint32_t kLargestMessageWaiting =
    kHeadBytes + largest(kCommonItems) + largest(kMessageWaitingItems) + kChecksumBytes;
static_assert(kLargestCallSetup == 118 && kLargestMessageWaiting == 99);
static_assert(2 * kLargestCallSetup + 1 <= LIBVOICE_DB_TEXT_BYTES);
static_assert(2 * kLargestMessageWaiting + 1 <= LIBVOICE_DB_TEXT_BYTES);

// Modulo 256, eight bytes at a time: in pairs, so that what a pair holds does not run into the next one.
uint8_t byte_sum(const uint8_t *bytes, size_t count) {
    constexpr uint64_t kLowOfPair = 0x00FF00FF00FF00FF;
    uint64_t pairs = 0;
    uint8_t sum = 0;
    for (; count >= sizeof pairs; count -= sizeof pairs, bytes += sizeof pairs) {
        uint64_t eight;
        memcpy(&eight, bytes, sizeof eight);
        pairs = (pairs + (eight & kLowOfPair) + (eight >> 8 & kLowOfPair)) & kLowOfPair;
    }
    for (; pairs != 0; pairs >>= 16)
        sum = static_cast<uint8_t>(sum + pairs);
    for (; count != 0; --count)
        sum = static_cast<uint8_t>(sum + *bytes++);
    return sum;
}

// ------------------------------------------------------------------------------------------------------- Writing

bool is_written(Form form, const libvoice_db_field &field) {
    if (!field.value)
        return false;
    switch (form) {
    case Form::whole:
    case Form::one_limited:
        return field.length <= kNumberSize;
    case Form::one_counted:
        return field.length != 0;
    default:
        return true;
    }
}

constexpr char hex_digit(uint32_t value) {
    return static_cast<char>(value < 10 ? '0' + value : 'A' - 10 + value);
}

// Writes the eight digits of four bytes, all at once: 7 instructions for each byte instead of 12. The bytes are
// read before anything is written.
void digits_write(const uint8_t *bytes, char *to) {
    constexpr uint64_t kEach = 0x0101010101010101;
    constexpr uint64_t kLow = 0x000F000F000F000F;
    const uint64_t in_pairs = bytes[0] | static_cast<uint64_t>(bytes[1]) << 16 | static_cast<uint64_t>(bytes[2]) << 32 |
                              static_cast<uint64_t>(bytes[3]) << 48;
    // In each eight bits a digit's value, then its character: those from ten on stand seven further in ASCII.
    uint64_t digits = (in_pairs >> 4 & kLow) | (in_pairs & kLow) << 8;
    digits += '0' * kEach + ((digits + 6 * kEach) >> 4 & kEach) * ('A' - '9' - 1);
    if (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__)
        digits = __builtin_bswap64(digits);
    memcpy(to, &digits, sizeof digits);
}

// Writes one item at `to` and returns its bytes.
uint32_t item_write(const Item &item, const libvoice_db_field &field, uint8_t *to) {
    const uint32_t given = smaller(field.length, item.size);
    const bool full_size = item.form == Form::fixed || holds_one_byte(item.form);
    const uint32_t written = full_size ? item.size : given;
    to[0] = item.type;
    to[1] = static_cast<uint8_t>(written);

    uint8_t *value = to + kHeadBytes;
    if (item.form == Form::number) {
        const size_t length = strnlen(static_cast<const char *>(field.value), written);
        memcpy(value, field.value, length);
        if (length < written)
            memset(value + length, 0, written - length);
    } else if (holds_one_byte(item.form)) {
        *value = *static_cast<const uint8_t *>(field.value);
    } else {
        // Kept: a date and time of fewer than eight bytes leaves the rest of its eight as the caller's buffer had them.
        memcpy(value, field.value, given);
    }
    return kHeadBytes + written;
}

// Writes the items that a record holds at `to` and returns their bytes; a null record holds none.
uint32_t items_write(const Items &items, uint8_t *to) {
    uint32_t written = 0;
    if (!items.record)
        return written;
    for (const Item *item = items.begin; item != items.end; ++item) {
        const libvoice_db_field &field = items.field(item);
        if (is_written(item->form, field))
            written += item_write(*item, field, to + written);
    }
    return written;
}

} // namespace

uint32_t libvoice_db_call_setup_encode(const libvoice_db_message_fields *message,
                                       const libvoice_db_common_fields *common, char *out, uint32_t *out_length) {
    return libvoice_db_encode(message, common, out, out_length, LIBVOICE_DB_CALL_SETUP);
}

uint32_t libvoice_db_message_waiting_encode(const libvoice_db_message_fields *message,
                                            const libvoice_db_common_fields *common, char *out, uint32_t *out_length) {
    return libvoice_db_encode(message, common, out, out_length, LIBVOICE_DB_MESSAGE_WAITING);
}

// The block is built in the caller's buffer and turned into its text there, from the end on: digits never stand on a byte
// that is still to be turned.
uint32_t libvoice_db_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common,
                            char *out, uint32_t *out_length, uint32_t type) {
    if (!out || !out_length)
        return LIBVOICE_OK;
    uint8_t *block = reinterpret_cast<uint8_t *>(out);
    uint32_t position = kHeadBytes;
    position += items_write({kCommonItems, common}, block + position);
    if (type == LIBVOICE_DB_CALL_SETUP)
        position += items_write({kCallSetupItems, message}, block + position);
    else if (type == LIBVOICE_DB_MESSAGE_WAITING)
        position += items_write({kMessageWaitingItems, message}, block + position);

    block[0] = static_cast<uint8_t>(type);
    block[1] = static_cast<uint8_t>(position - kHeadBytes);
    block[position] = byte_sum(block, position);

    const uint32_t bytes = position + kChecksumBytes;
    out[2 * bytes] = '\0';
    uint32_t k = bytes;
    for (; k >= 4; k -= 4)
        digits_write(block + k - 4, out + 2 * k - 8);
    while (k-- > 0) {
        const uint8_t byte = block[k];
        out[2 * k] = hex_digit(byte >> 4);
        out[2 * k + 1] = hex_digit(byte & 0xF);
    }
    *out_length = 2 * bytes + 1;
    return LIBVOICE_OK;
}

uint32_t libvoice_db_encode_common(const libvoice_db_common_fields *common, char *out, uint32_t *position,
                                   uint8_t *count) {
    if (!out || !position || !count)
        return LIBVOICE_OK;
    const uint32_t written = items_write({kCommonItems, common}, reinterpret_cast<uint8_t *>(out) + *position);
    *position += written;
    *count = static_cast<uint8_t>(written);
    return LIBVOICE_OK;
}

// ------------------------------------------------------------------------------------------------------- Reading

namespace {

constexpr uint8_t kNoDigit = 0xFF;

// What each character says as a digit.
struct Digits {
    uint8_t of[256];

    constexpr Digits() : of() {
        for (uint8_t &digit : of)
            digit = kNoDigit;
        for (uint8_t i = 0; i < 10; ++i)
            of['0' + i] = i;
        for (uint8_t i = 0; i < 6; ++i)
            of['A' + i] = of['a' + i] = static_cast<uint8_t>(10 + i);
    }
};
constexpr Digits kDigits;

uint32_t digit(char character) {
    return kDigits.of[static_cast<uint8_t>(character)];
}

} // namespace

namespace voice {

uint16_t libvoice_db_hex_byte(const char *characters) {
    const char two[3] = {characters[0], characters[0] != '\0' ? characters[1] : '\0', '\0'};
    return static_cast<uint16_t>(strtol(two, nullptr, 16));
}

BlockText::BlockText(const char *block_text) : text(block_text ? block_text : ""), characters(strlen(text)) {
    turn_up_to(kHeadBytes);
    type = byte(0);
    length = byte(1);
    turn_up_to(size_t{kHeadBytes} + length + kChecksumBytes);
}

uint32_t BlockText::odd_byte(size_t k) const {
    return 2 * k < characters ? libvoice_db_hex_byte(text + 2 * k) : 0;
}

// Ends at the first two characters that are not two digits.
void BlockText::turn_up_to(size_t end) {
    if (end > characters / 2)
        end = characters / 2;
    if (end > kMost)
        end = kMost;
    size_t k = turned_;
    uint32_t sum = turned_sum_;
    for (; k < end; ++k) {
        const uint32_t high = digit(text[2 * k]);
        const uint32_t low = digit(text[2 * k + 1]);
        if ((high | low) > 0xF)
            break;
        const uint32_t value = high << 4 | low;
        bytes_[k] = static_cast<uint8_t>(value);
        sum += value;
    }
    turned_ = k;
    turned_sum_ = static_cast<uint8_t>(sum);
}

uint8_t BlockText::sum(size_t count) const {
    uint32_t sum = turned_sum_;
    for (size_t k = count; k < turned_; ++k)
        sum -= bytes_[k];
    for (size_t k = turned_; k < count; ++k)
        sum += odd_byte(k);
    return static_cast<uint8_t>(sum);
}

void BlockText::copy_odd(size_t k, uint32_t count, char *to) const {
    for (uint32_t i = 0; i < count; ++i)
        to[i] = static_cast<char>(byte(k + i));
}

} // namespace voice
