// SPDX-License-Identifier: MIT
// Implements tap_record.h.
#include "value/tap_record.h"

namespace bus::wire {

namespace {

void put_end(Writer &writer, const TapEnd &end) {
    put_word(writer, static_cast<uint32_t>(end.process_id));
    put_word(writer, end.connection);
    put_text(writer, end.name);
}

TapEnd get_end(Reader &reader) {
    TapEnd end;
    end.process_id = static_cast<int32_t>(get_word(reader));
    end.connection = get_word(reader);
    end.name = get_text(reader);
    return end;
}

} // namespace

int32_t tap_record_kind(uint8_t message_kind) {
    switch (message_kind) {
    case kCall:
        return KEX_TAP_CALL;
    case kOneWayCall:
        return KEX_TAP_ONE_WAY_CALL;
    case kReply:
    case kMissed:
        return KEX_TAP_REPLY;
    case kRefused:
        return KEX_TAP_REFUSED;
    case kWaiting:
        return KEX_TAP_WAITING;
    default:
        return 0;
    }
}

uint32_t tap_record_size(const TapRecord &record) {
    constexpr uint32_t kNumbers = kHeadSize + 10 * sizeof(uint32_t) + sizeof(uint64_t);
    return kNumbers + record.from.name.length + record.to.name.length + record.text.length + record.size;
}

void tap_record_write(Writer &writer, const TapRecord &record) {
    put_head(writer, kTapRecord, 0, 0);
    put_word(writer, static_cast<uint32_t>(record.kind));
    put_long(writer, record.time);
    put_end(writer, record.from);
    put_end(writer, record.to);
    put_word(writer, record.lost);
    put_text(writer, record.text);
    put_word(writer, record.size);
    put_bytes(writer, record.message, record.size);
    head_complete(writer);
}

bool tap_record_read(const Message &message, TapRecord &record) {
    Reader reader = reader_at(message.data, message.size, kHeadSize, nullptr);
    record.kind = static_cast<int32_t>(get_word(reader));
    record.time = get_long(reader);
    record.from = get_end(reader);
    record.to = get_end(reader);
    record.lost = get_word(reader);
    record.text = get_text(reader);
    record.size = get_word(reader);
    record.message = reader.data + reader.at;
    return reader.why == nullptr && record.size == reader.size - reader.at;
}

} // namespace bus::wire
