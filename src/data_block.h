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
#ifndef VOICE_DATA_BLOCK_H
#define VOICE_DATA_BLOCK_H

#include <stddef.h> // offsetof
#include <string.h> // memcpy

#include "libvoice_plugin.h"

namespace voice {

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
struct Item {
    uint8_t type;
    Form form;
    uint8_t place; // among the record's fields
    uint32_t size; // 32 bits, or g++ makes of a copy by it a "rep movsb", which takes longer than all else for one item
};

#define IN_COMMON(field) offsetof(libvoice_db_common_fields, field) / sizeof(libvoice_db_field)
#define IN_MESSAGE(field) offsetof(libvoice_db_message_fields, field) / sizeof(libvoice_db_field)
static_assert(sizeof(libvoice_db_common_fields) == 3 * sizeof(libvoice_db_field));
static_assert(sizeof(libvoice_db_message_fields) == 8 * sizeof(libvoice_db_field));

// In the order of writing, which is not the order of types.
constexpr Item kCommonItems[] = {
    {0x01, Form::fixed, IN_COMMON(date_time), 8},
    {0x02, Form::number, IN_COMMON(calling_number), kNumberSize},
    {0x04, Form::one, IN_COMMON(no_calling_number), 1},
};

// Kept: a called number that is too long is left out, while a calling number and a name are cut.
// Kept: in a call setup the reason for absence of the name is left out when its length is 21 or more, though only one
// byte of it is ever written; in a message waiting indication it is written whatever its length.
constexpr Item kCallSetupItems[] = {
    {0x07, Form::name, IN_MESSAGE(name), 50},
    {0x08, Form::one_limited, IN_MESSAGE(no_name), 1},
    {0x03, Form::whole, IN_MESSAGE(slot2), kNumberSize},
    {0x11, Form::one, IN_MESSAGE(call_type), 1},
};

constexpr Item kMessageWaitingItems[] = {
    {0x07, Form::name, IN_MESSAGE(name), 50},
    {0x08, Form::one, IN_MESSAGE(no_name), 1},
    {0x0B, Form::one, IN_MESSAGE(slot2), 1},
    {0x13, Form::one_counted, IN_MESSAGE(messages), 1},
};

// The items of one kind of record, and the record, which may be null.
struct Items {
    const Item *begin;
    const Item *end;
    const void *record;

    template <size_t count>
    constexpr Items(const Item (&items)[count], const void *of) : begin(items), end(items + count), record(of) {}

    // The item of a type, or null.
    const Item *find(uint32_t type) const {
        const Item *item = begin;
        while (item != end && item->type != type)
            ++item;
        return item != end ? item : nullptr;
    }
    const libvoice_db_field &field(const Item *item) const {
        return static_cast<const libvoice_db_field *>(record)[item->place];
    }
};

constexpr uint32_t kHeadBytes = 2;     // message type and length, or an item's type and length
constexpr uint32_t kChecksumBytes = 1; // behind the last item

constexpr bool holds_one_byte(Form form) {
    return form >= Form::one;
}

constexpr uint32_t smaller(uint32_t a, uint32_t b) {
    return a < b ? a : b;
}

// A block's text as it is read. What is written in plain digits, so as encoders do it, is turned into bytes once; anything
// else is read where it is asked for.
class BlockText {
public:
    const char *text;
    size_t characters;
    uint32_t type;
    uint32_t length;

    explicit BlockText(const char *block_text);

    // Byte k of the block; 0 behind the text's end. Up to 0xFFFF where a sign stands.
    uint32_t byte(size_t k) const { return k < turned_ ? bytes_[k] : odd_byte(k); }
    bool holds(size_t k) const { return characters >= 2 * (k + 1); }
    // The sum of the first `count` bytes, modulo 256. It is taken while they are turned.
    uint8_t sum(size_t count) const;
    // The values of bytes from k on, as text.
    void copy(size_t k, uint32_t count, char *to) const {
        if (k + count <= turned_)
            memcpy(to, bytes_ + k, count);
        else
            copy_odd(k, count, to);
    }

private:
    static constexpr size_t kMost = kHeadBytes + UINT8_MAX + kChecksumBytes;

    uint32_t odd_byte(size_t k) const;
    void copy_odd(size_t k, uint32_t count, char *to) const;
    void turn_up_to(size_t end);

    size_t turned_ = 0;
    uint8_t turned_sum_ = 0;
    uint8_t bytes_[kMost];
};

} // namespace voice

#endif
