// SPDX-License-Identifier: MIT
// Filling and reading parameter buffers, for every host.
#include "message.h"

#include <string.h>

namespace {

bool item_add(uint8_t *params, uint32_t capacity, uint32_t *length, uint32_t id, const void *value, uint32_t bytes) {
    uint8_t *cursor = params + *length;
    uint32_t remaining = capacity - *length;
    if (libvoice_add_param(id, bytes, value, &cursor, &remaining) != LIBVOICE_OK)
        return false;
    *length = capacity - remaining;
    return true;
}

} // namespace

void signal_begin(signal_message *message, int32_t endpoint, uint32_t signal, uint32_t line) {
    memset(&message->head, 0, sizeof message->head);
    message->head.endpoint = endpoint;
    message->head.signal = signal;
    message->head.line = line;
    message->head.message_id = get_new_msg_id();
}

void event_begin(event_message *message, int32_t endpoint, uint32_t event, uint32_t line) {
    memset(&message->head, 0, sizeof message->head);
    message->head.endpoint = endpoint;
    message->head.event = event;
    message->head.line = line;
}

void signal_send(signal_message *message) {
    libvoice_send_signal(reinterpret_cast<libvoice_signal_t *>(message));
}

bool event_send(event_message *message) {
    return libvoice_send_event(reinterpret_cast<libvoice_event_t *>(message)) == 0;
}

bool signal_add_int(signal_message *message, uint32_t id, int32_t value) {
    return signal_add_bytes(message, id, &value, sizeof value);
}

bool signal_add_bytes(signal_message *message, uint32_t id, const void *value, uint32_t length) {
    return item_add(message->params, sizeof message->params, &message->head.length, id, value, length);
}

bool event_add_int(event_message *message, uint32_t id, int32_t value) {
    return event_add_bytes(message, id, &value, sizeof value);
}

bool event_add_text(event_message *message, uint32_t id, const char *text) {
    return event_add_bytes(message, id, text, static_cast<uint32_t>(strlen(text) + 1));
}

bool event_add_bytes(event_message *message, uint32_t id, const void *value, uint32_t length) {
    return item_add(message->params, sizeof message->params, &message->head.length, id, value, length);
}

bool params_add_int(void *params, uint32_t capacity, uint32_t *length, uint32_t id, int32_t value) {
    return item_add(static_cast<uint8_t *>(params), capacity, length, id, &value, sizeof value);
}

bool params_add_bytes(void *params, uint32_t capacity, uint32_t *length, uint32_t id, const void *value,
                      uint32_t bytes) {
    return item_add(static_cast<uint8_t *>(params), capacity, length, id, value, bytes);
}

bool params_bytes(const void *params, uint32_t length, uint32_t id, const uint8_t **value, uint32_t *bytes) {
    // The reader answers success for a value that is cut off and leaves the outputs alone: hence the presets.
    uint8_t *cursor = const_cast<uint8_t *>(static_cast<const uint8_t *>(params));
    uint8_t *found = nullptr;
    uint32_t found_bytes = 0;
    if (libvoice_get_param(id, &found_bytes, &found, &cursor, &length) != LIBVOICE_OK || found == nullptr)
        return false;
    *value = found;
    *bytes = found_bytes;
    return true;
}

bool params_int(const void *params, uint32_t length, uint32_t id, int32_t *value) {
    const uint8_t *bytes;
    uint32_t count;
    if (!params_bytes(params, length, id, &bytes, &count) || count < sizeof *value)
        return false;
    memcpy(value, bytes, sizeof *value);
    return true;
}

bool params_text(const void *params, uint32_t length, uint32_t id, char *out, uint32_t size) {
    const uint8_t *bytes;
    uint32_t count;
    if (size == 0 || !params_bytes(params, length, id, &bytes, &count))
        return false;
    size_t text = strnlen(reinterpret_cast<const char *>(bytes), count);
    if (text >= size)
        text = size - 1;
    memcpy(out, bytes, text);
    out[text] = 0;
    return true;
}
