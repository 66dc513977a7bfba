// SPDX-License-Identifier: MIT
// Parameters of lines, asked for and set.
#include "console.h"
#include "identifiers.h"
#include "line.h"
#include "message.h"
#include "printable.h"

#include <stdlib.h>
#include <string.h>

namespace {

static_assert(static_cast<int>(LINE_VALUE_INTEGER) == VOICE_VALUE_INTEGER);
static_assert(static_cast<int>(LINE_VALUE_TEXT) == VOICE_VALUE_STRING);
static_assert(static_cast<int>(LINE_VALUE_BYTES) == VOICE_VALUE_HEX);
static_assert(static_cast<int>(LINE_VALUE_BOOLEAN) == VOICE_VALUE_BOOLEAN);

constexpr uint32_t kValueBytes = 256;

line_t *line_of_set(const libvoice_param_set_t *set, const uint8_t *params) {
    int32_t endpoint;
    if (!params_int(params, set->length, LIBVOICE_PARAM_zil_ep_id, &endpoint))
        return nullptr;
    return line_of_endpoint(endpoint);
}

// Reads the next item. @return no: what follows is broken, and nothing after it can be read.
bool item_read(uint8_t **cursor, uint32_t *remaining, uint32_t *id, uint32_t *length, uint8_t **value) {
    *value = nullptr;
    return libvoice_get_current_param(id, length, value, cursor, remaining) == LIBVOICE_OK;
}

bool value_read(uint32_t id, const uint8_t *bytes, uint32_t length, char *text, line_value_t *value) {
    *value = {};
    value->type = static_cast<line_value_type_t>(voice_id_value_type(id));
    switch (value->type) {
    case LINE_VALUE_INTEGER:
    case LINE_VALUE_BOOLEAN:
        if (length < sizeof value->number)
            return false;
        memcpy(&value->number, bytes, sizeof value->number);
        return true;
    case LINE_VALUE_TEXT: {
        size_t used = strnlen(reinterpret_cast<const char *>(bytes), length);
        used = used < kValueBytes ? used : kValueBytes - 1;
        memcpy(text, bytes, used);
        text[used] = 0;
        text_make_printable(text);
        value->text = text;
        return true;
    }
    case LINE_VALUE_BYTES:
        value->bytes = bytes;
        value->length = length;
        return true;
    default:
        return false; // a signal or an event is no parameter
    }
}

void value_add(libvoice_param_block_t *block, uint32_t id, const line_value_t *value) {
    uint32_t *used = &block->head.length;
    if (value->type == LINE_VALUE_TEXT && value->text != nullptr)
        params_add_bytes(block->buffer, sizeof block->buffer, used, id, value->text,
                         static_cast<uint32_t>(strlen(value->text) + 1));
    else if (value->type == LINE_VALUE_BYTES)
        params_add_bytes(block->buffer, sizeof block->buffer, used, id, value->bytes, value->length);
    else if (identifier_is_number(id))
        params_add_int(block->buffer, sizeof block->buffer, used, id, value->number);
}

} // namespace

int32_t line_get_callback(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t) {
    uint8_t *cursor = libvoice_set_params_of(request);
    uint32_t remaining = request->length;
    line_t *line = line_of_set(request, cursor);
    if (line == nullptr)
        return 1;
    libvoice_param_block_t *block = static_cast<libvoice_param_block_t *>(calloc(1, sizeof *block));
    if (block == nullptr)
        return 1;
    params_add_int(block->buffer, sizeof block->buffer, &block->head.length, LIBVOICE_PARAM_zil_ep_id, line->endpoint);
    while (remaining > 0) {
        uint32_t id = 0, length = 0;
        uint8_t *bytes;
        if (!item_read(&cursor, &remaining, &id, &length, &bytes))
            break;
        line_value_t value = {};
        value.type = static_cast<line_value_type_t>(voice_id_value_type(id));
        if (id != LIBVOICE_PARAM_zil_ep_id && line->driver->get != nullptr &&
            line->driver->get(line->userdata, id, &value))
            value_add(block, id, &value);
    }
    *result = &block->head; // the library frees it
    return 0;
}

int32_t line_set_callback(libvoice_param_set_t *params) {
    uint8_t *cursor = libvoice_set_params_of(params);
    uint32_t remaining = params->length;
    const line_t *line = line_of_set(params, cursor);
    if (line == nullptr)
        return 1;
    int32_t result = 0;
    while (remaining > 0) {
        uint32_t id = 0, length = 0;
        uint8_t *bytes;
        if (!item_read(&cursor, &remaining, &id, &length, &bytes) || bytes == nullptr)
            return 1;
        if (id == LIBVOICE_PARAM_zil_ep_id)
            continue;
        char text[kValueBytes];
        line_value_t value;
        if (line->driver->set != nullptr && value_read(id, bytes, length, text, &value) &&
            line->driver->set(line->userdata, id, &value))
            continue;
        say("%d ignores param %s", line->number, identifier_name(id));
        result = 1;
    }
    return result;
}
