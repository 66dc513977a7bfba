// SPDX-License-Identifier: MIT
// Caller-display data blocks as plugins read them, with a trace message for each text that is found. data_block.h shows a block.
#define TRACE_ZONE signl

#include "libvoice_utils.h"

#include <string.h> // memset

#include "data_block.h"
#include "libvoice_plugin.h"
#include "trace.h"

namespace {

using namespace voice;

void block_show(const BlockText &block, const char *text, Where here = Where::caller()) {
    TRACE_INFO_AT(here, "db = %s", shown(text));
    TRACE_INFO_AT(here, "mtype = 0x%02x, len = 0x%02x", block.type, block.length);
}

void text_show(uint32_t type, const char *text, Where here) {
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
void value_read(const BlockText &block, uint32_t p, uint32_t length, uint32_t type, Form form,
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
    block.copy(size_t{p} + kHeadBytes, copied, target);
    // Kept: a text that fills its capacity ends one byte behind it.
    target[copied] = '\0';
    text_show(type, target, here);
}

// Reads all items of a block whose checksum is right, so that every byte up to the checksum is there. A null record wants
// nothing.
void items_read(const BlockText &block, const Items &message, const Items &common, Where here = Where::caller()) {
    for (uint32_t p = kHeadBytes; p <= block.length;) {
        const uint32_t type = block.byte(p);
        const uint32_t length = block.byte(p + 1);
        // Kept: an item that runs past the message ends the reading without a trace message.
        if (p + length > block.length)
            return;
        const Items *items = &common;
        const Item *item = common.find(type);
        if (!item) {
            items = &message;
            item = message.find(type);
        }
        if (!item)
            TRACE_WARNING_AT(here, "Unknown parameter received: 0x%02x", type);
        else if (items->record)
            value_read(block, p, length, type, item->form, items->field(item), here);
        p += length + kHeadBytes;
    }
}

// Whether the checksum is right; writes the trace message of the function of this name when not.
int libvoice_db_verify_checksum(const BlockText &block) {
    const size_t end = size_t{kHeadBytes} + block.length;
    const bool complete = block.holds(end);
    const uint32_t checksum = complete ? block.byte(end) : 0;
    if (complete && block.sum(end) == checksum)
        return 1;
    // Kept: the trace message shows what the block holds, not the sum that was expected.
    TRACE_ERROR("Invalid Data Block checksum : checksum = 0x%02x, checksum in msg = %s", checksum,
                complete ? block.text + 2 * end : "");
    return 0;
}

} // namespace

namespace voice {

int libvoice_db_verify_checksum(const char *text) {
    return ::libvoice_db_verify_checksum(BlockText(text));
}

} // namespace voice

// Kept: a wrong checksum answers 0 like a block that was read; only the trace message tells them apart. The length of
// the text that callers pass has never been read.
uint32_t libvoice_db_call_setup_decode(const char *text, uint32_t, libvoice_db_message_fields *message,
                                       libvoice_db_common_fields *common) {
    const BlockText block(text);
    block_show(block, text);
    if (!libvoice_db_verify_checksum(block))
        return 0;
    if (block.type != LIBVOICE_DB_CALL_SETUP) {
        TRACE_ERROR("Wrong message received: 0x%02x", block.type);
        return 1;
    }
    items_read(block, {kCallSetupItems, message}, {kCommonItems, common});
    return 0;
}

uint32_t libvoice_db_message_waiting_decode(const char *text, uint32_t, libvoice_db_message_fields *message,
                                            libvoice_db_common_fields *common) {
    const BlockText block(text);
    block_show(block, text);
    if (!libvoice_db_verify_checksum(block))
        return 0;
    if (block.type != LIBVOICE_DB_MESSAGE_WAITING) {
        // Kept: "message type" here, "message" in the other decoder.
        TRACE_ERROR("Wrong message type received: 0x%02x", block.type);
        return 1;
    }
    items_read(block, {kMessageWaitingItems, message}, {kCommonItems, common});
    return 0;
}
