// SPDX-License-Identifier: MIT
// What a tap receives for each message that passes and each event (kex_tap.h). Drawn in layout.h.
#ifndef KEX_TAP_RECORD_H
#define KEX_TAP_RECORD_H

#include "value/message.h"

namespace bus::wire {

// A record around the largest message.
constexpr uint32_t kMaxTapRecord = kMaxPacket + 4096;

struct TapEnd {
    int32_t process_id;
    uint32_t connection;
    Text name;
};

struct TapRecord {
    int32_t kind; // a kex_tap_kind
    uint64_t time;
    TapEnd from;
    TapEnd to;
    uint32_t lost;
    Text text;
    const uint8_t *message; // none: an event
    uint32_t size;
};

// The kind of a record about such a message; 0: none is made.
int32_t tap_record_kind(uint8_t message_kind);
// How many bytes it will have, without writing it.
uint32_t tap_record_size(const TapRecord &record);
void tap_record_write(Writer &writer, const TapRecord &record);
// Texts and the message that passed stay where they are in the record.
bool tap_record_read(const Message &message, TapRecord &record);

} // namespace bus::wire

#endif
