// SPDX-License-Identifier: MIT
// Caller-display data blocks: what an analogue telephone shows of a call or of waiting messages, written and read.
//
// A block is a multiple-data-message of ETSI EN 300 659-3, carried between processes as hexadecimal text, two digits
// per byte:
//
//      0      1        2                                         2 + length
//     +------+--------+------+---+---------+------+---+---------+----------+
//     | type | length | item | n | value n | item | n | value n | checksum |
//     +------+--------+------+---+---------+------+---+---------+----------+
//      0x80   of all     1     1      n                          sum of all
//      0x82   items                                              bytes before
//
// Type 0x80 is a call setup, 0x82 a message waiting indication.
// Kept: the checksum is the plain sum modulo 256. The standard's two's complement belongs to the telephone line, and
// whoever modulates a block puts it there.
#define TRACE_ZONE "SIGNL"

#include "libvoice_utils.h"

#include <stdlib.h> // strtol
#include <string.h>

#include "libvoice_plugin.h"
#include "trace.h"

namespace {

using namespace voice;

// How an item's value is written. All that begin with "one" hold one byte, all others text.
enum class Form : uint8_t {
    fixed,       // always the full size
    number,      // a text, cut to the size, zeros behind its end
    name,        // bytes as they are, cut to the size
    whole,       // bytes as they are, left out when longer than the size
    one,         // one byte whatever length is given
    one_limited, // one byte, left out when the given length is above a number's size
    one_counted, // one byte, left out when the given length is 0
};

constexpr uint32_t kNumberSize = 20;

// One item that a record can hold: its type on the wire, the most bytes of value, and where the record has it.
template <typename Record>
struct Item {
    uint8_t type;
    uint8_t size;
    Form form;
    libvoice_db_field Record::*field;
};

using CommonItem = Item<libvoice_db_common_fields>;
using MessageItem = Item<libvoice_db_message_fields>;

// In the order of writing, which is not the order of types.
constexpr CommonItem kCommonItems[] = {
    {0x01, 8, Form::fixed, &libvoice_db_common_fields::date_time},
    {0x02, kNumberSize, Form::number, &libvoice_db_common_fields::calling_number},
    {0x04, 1, Form::one, &libvoice_db_common_fields::no_calling_number},
};

// Kept: a called number that is too long is left out, while a calling number and a name are cut.
// Kept: in a call setup the reason for absence of the name is left out when its length is 21 or more, though only one
// byte of it is ever written; in a message waiting indication it is written whatever its length.
constexpr MessageItem kCallSetupItems[] = {
    {0x07, 50, Form::name, &libvoice_db_message_fields::name},
    {0x08, 1, Form::one_limited, &libvoice_db_message_fields::no_name},
    {0x03, kNumberSize, Form::whole, &libvoice_db_message_fields::slot2},
    {0x11, 1, Form::one, &libvoice_db_message_fields::call_type},
};

constexpr MessageItem kMessageWaitingItems[] = {
    {0x07, 50, Form::name, &libvoice_db_message_fields::name},
    {0x08, 1, Form::one, &libvoice_db_message_fields::no_name},
    {0x0B, 1, Form::one, &libvoice_db_message_fields::slot2},
    {0x13, 1, Form::one_counted, &libvoice_db_message_fields::messages},
};

constexpr uint32_t kHeadBytes = 2;     // message type and length, or an item's type and length
constexpr uint32_t kChecksumBytes = 1; // behind the last item

template <typename Record, size_t count>
constexpr uint32_t largest(const Item<Record> (&items)[count]) {
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

constexpr bool holds_one_byte(Form form) {
    return form >= Form::one;
}

constexpr uint32_t smaller(uint32_t a, uint32_t b) {
    return a < b ? a : b;
}

// ------------------------------------------------------------------------------------------------------- Encoding

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

// Writes one item at `to` and returns its bytes.
template <typename Record>
uint32_t write_item(const Item<Record> &item, const libvoice_db_field &field, uint8_t *to) {
    const uint32_t given = smaller(field.length, item.size);
    const bool full_size = item.form == Form::fixed || holds_one_byte(item.form);
    const uint32_t written = full_size ? item.size : given;
    to[0] = item.type;
    to[1] = static_cast<uint8_t>(written);

    uint8_t *value = to + kHeadBytes;
    if (item.form == Form::number) {
        const size_t length = strnlen(static_cast<const char *>(field.value), written);
        memcpy(value, field.value, length);
        memset(value + length, 0, written - length);
    } else {
        // Kept: a date and time of fewer than eight bytes leaves the rest of its eight as the caller's buffer had them.
        memcpy(value, field.value, holds_one_byte(item.form) ? 1 : given);
    }
    return kHeadBytes + written;
}

// Writes the items that a record holds at `to` and returns their bytes; a null record holds none.
template <typename Record, size_t count>
uint32_t write_items(const Item<Record> (&items)[count], const Record *record, uint8_t *to) {
    uint32_t written = 0;
    if (!record)
        return written;
    for (const auto &item : items) {
        const libvoice_db_field &field = record->*item.field;
        if (is_written(item.form, field))
            written += write_item(item, field, to + written);
    }
    return written;
}

// ------------------------------------------------------------------------------------------------------- Decoding

// The text of a block and what its first two bytes say.
struct Block {
    const char *text;
    size_t characters;
    uint32_t type;
    uint32_t length;

    explicit Block(const char *block_text)
        : text(block_text ? block_text : ""), characters(strlen(text)), type(byte(0)), length(byte(1)) {}

    // Byte k of the block; 0 behind the text's end.
    uint32_t byte(size_t k) const { return 2 * k < characters ? libvoice_db_hex_byte(text + 2 * k) : 0; }
    bool holds(size_t k) const { return characters >= 2 * (k + 1); }
};

Block show_block(const char *text, Where here = Where::caller()) {
    const Block block(text);
    TRACE_INFO_AT(here, "db = %s", shown(text));
    TRACE_INFO_AT(here, "mtype = 0x%02x, len = 0x%02x", block.type, block.length);
    return block;
}

void show_text(uint32_t type, const char *text, Where here) {
    switch (type) {
    case 0x01:
        TRACE_INFO_AT(here, "time = %s", text);
        break;
    case 0x02:
        TRACE_INFO_AT(here, "id = %s", text);
        break;
    case 0x03:
        TRACE_INFO_AT(here, "called id = %s", text);
        break;
    default:
        TRACE_INFO_AT(here, "name = %s", text);
        break;
    }
}

// Copies the value of `length` bytes at position p to where the caller wants it.
void read_value(const Block &block, uint32_t p, uint32_t length, uint32_t type, Form form,
                const libvoice_db_field &field, Where here) {
    if (!field.value)
        return;
    char *target = static_cast<char *>(field.value);
    if (holds_one_byte(form)) {
        // Kept: an item without a value stores the byte that follows it.
        if (form != Form::one_counted || field.length != 0)
            *target = static_cast<char>(block.byte(p + kHeadBytes));
        return;
    }
    const uint32_t copied = smaller(field.length, length);
    memset(target, 0, field.length);
    for (uint32_t i = 0; i < copied; ++i)
        target[i] = static_cast<char>(block.byte(p + kHeadBytes + i));
    // Kept: a text that fills its capacity ends one byte behind it.
    target[copied] = '\0';
    show_text(type, target, here);
}

// Reads the item at position p when the table has its type; a null record wants nothing.
template <typename Record, size_t count>
bool read_item(const Item<Record> (&items)[count], const Record *record, const Block &block, uint32_t p,
               uint32_t length, Where here) {
    const uint32_t type = block.byte(p);
    for (const auto &item : items) {
        if (item.type != type)
            continue;
        if (record)
            read_value(block, p, length, type, item.form, record->*item.field, here);
        return true;
    }
    return false;
}

// Reads all items of a block whose checksum is right, so that every byte up to the checksum is there.
void read_items(const Block &block, const MessageItem (&items)[4], const libvoice_db_message_fields *message,
                const libvoice_db_common_fields *common, Where here = Where::caller()) {
    for (uint32_t p = kHeadBytes; p <= block.length;) {
        const uint32_t length = block.byte(p + 1);
        // Kept: an item that runs past the message ends the reading without a trace message.
        if (p + length > block.length)
            return;
        if (!read_item(kCommonItems, common, block, p, length, here) &&
            !read_item(items, message, block, p, length, here))
            TRACE_WARNING_AT(here, "Unknown parameter received: 0x%02x", block.byte(p));
        p += length + kHeadBytes;
    }
}

} // namespace

namespace voice {

uint16_t libvoice_db_hex_byte(const char *characters) {
    const char two[3] = {characters[0], characters[0] != '\0' ? characters[1] : '\0', '\0'};
    return static_cast<uint16_t>(strtol(two, nullptr, 16));
}

int libvoice_db_verify_checksum(const char *text) {
    const Block block(text);
    const size_t end = size_t{kHeadBytes} + block.length;
    const bool complete = block.holds(end);
    const uint32_t checksum = complete ? block.byte(end) : 0;
    if (complete) {
        uint8_t sum = 0;
        for (size_t k = 0; k < end; ++k)
            sum = static_cast<uint8_t>(sum + block.byte(k));
        if (sum == checksum)
            return 1;
    }
    // Kept: the trace message shows what the block holds, not the sum that was expected.
    TRACE_ERROR("Invalid Data Block checksum : checksum = 0x%02x, checksum in msg = %s", checksum,
                complete ? block.text + 2 * end : "");
    return 0;
}

} // namespace voice

uint32_t libvoice_db_call_setup_encode(const libvoice_db_message_fields *message,
                                       const libvoice_db_common_fields *common, char *out, uint32_t *out_length) {
    return libvoice_db_encode(message, common, out, out_length, LIBVOICE_DB_CALL_SETUP);
}

uint32_t libvoice_db_message_waiting_encode(const libvoice_db_message_fields *message,
                                            const libvoice_db_common_fields *common, char *out, uint32_t *out_length) {
    return libvoice_db_encode(message, common, out, out_length, LIBVOICE_DB_MESSAGE_WAITING);
}

// The block is built in the caller's buffer and its text, always longer, then takes its place.
uint32_t libvoice_db_encode(const libvoice_db_message_fields *message, const libvoice_db_common_fields *common,
                            char *out, uint32_t *out_length, uint32_t type) {
    if (!out || !out_length)
        return LIBVOICE_OK;
    uint8_t *block = reinterpret_cast<uint8_t *>(out);
    uint32_t position = kHeadBytes;
    uint8_t length = 0;
    libvoice_db_encode_common(common, out, &position, &length);
    if (type == LIBVOICE_DB_CALL_SETUP)
        position += write_items(kCallSetupItems, message, block + position);
    else if (type == LIBVOICE_DB_MESSAGE_WAITING)
        position += write_items(kMessageWaitingItems, message, block + position);

    block[0] = static_cast<uint8_t>(type);
    block[1] = static_cast<uint8_t>(position - kHeadBytes);
    uint8_t checksum = 0;
    for (uint32_t k = 0; k < position; ++k)
        checksum = static_cast<uint8_t>(checksum + block[k]);
    block[position] = checksum;

    char text[LIBVOICE_DB_TEXT_BYTES] = {};
    uint32_t characters = 0;
    for (uint32_t k = 0; k < position + kChecksumBytes; ++k) {
        text[characters++] = "0123456789ABCDEF"[block[k] >> 4];
        text[characters++] = "0123456789ABCDEF"[block[k] & 0xF];
    }
    memcpy(out, text, characters + 1);
    *out_length = characters + 1;
    return LIBVOICE_OK;
}

uint32_t libvoice_db_encode_common(const libvoice_db_common_fields *common, char *out, uint32_t *position,
                                   uint8_t *count) {
    if (!out || !position || !count)
        return LIBVOICE_OK;
    const uint32_t written = write_items(kCommonItems, common, reinterpret_cast<uint8_t *>(out) + *position);
    *position += written;
    *count = static_cast<uint8_t>(written);
    return LIBVOICE_OK;
}

// Kept: a wrong checksum answers 0 like a block that was read; only the trace message tells them apart. The length of
// the text that callers pass has never been read.
uint32_t libvoice_db_call_setup_decode(const char *text, uint32_t, libvoice_db_message_fields *message,
                                       libvoice_db_common_fields *common) {
    const Block block = show_block(text);
    if (!libvoice_db_verify_checksum(text))
        return 0;
    if (block.type != LIBVOICE_DB_CALL_SETUP) {
        TRACE_ERROR("Wrong message received: 0x%02x", block.type);
        return 1;
    }
    read_items(block, kCallSetupItems, message, common);
    return 0;
}

uint32_t libvoice_db_message_waiting_decode(const char *text, uint32_t, libvoice_db_message_fields *message,
                                            libvoice_db_common_fields *common) {
    const Block block = show_block(text);
    if (!libvoice_db_verify_checksum(text))
        return 0;
    if (block.type != LIBVOICE_DB_MESSAGE_WAITING) {
        // Kept: "message type" here, "message" in the other decoder.
        TRACE_ERROR("Wrong message type received: 0x%02x", block.type);
        return 1;
    }
    read_items(block, kMessageWaitingItems, message, common);
    return 0;
}
