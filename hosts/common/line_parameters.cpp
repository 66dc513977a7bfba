// SPDX-License-Identifier: MIT
// Parameters of lines, asked for and set.
#include "console.h"
#include "identifiers.h"
#include "line.h"
#include "printable.h"

#include <stdlib.h>
#include <string.h>

namespace {

static_assert(static_cast<int>(LINE_VALUE_INTEGER) == VOICE_VALUE_INTEGER);
static_assert(static_cast<int>(LINE_VALUE_TEXT) == VOICE_VALUE_STRING);
static_assert(static_cast<int>(LINE_VALUE_BYTES) == VOICE_VALUE_HEX);
static_assert(static_cast<int>(LINE_VALUE_BOOLEAN) == VOICE_VALUE_BOOLEAN);

constexpr uint32_t kValueBytes = 256;

bool value_read(const voice_item_t *item, char *text, line_value_t *value) {
    *value = {};
    value->type = static_cast<line_value_type_t>(voice_id_value_type(item->id));
    switch (value->type) {
    case LINE_VALUE_INTEGER:
        return voice_item_get_i32(item, &value->number) != 0;
    case LINE_VALUE_BOOLEAN:
        return voice_item_get_bool(item, &value->number) != 0;
    case LINE_VALUE_TEXT:
        voice_item_get_text(item, text, kValueBytes);
        text_make_printable(text);
        value->text = text;
        return true;
    case LINE_VALUE_BYTES:
        value->bytes = item->value;
        value->length = item->length;
        return true;
    default:
        return false; // a signal or an event is no parameter
    }
}

// What does not fit is left out of the answer.
void value_add(voice_set_message_t *set, uint32_t id, const line_value_t *value) {
    if (value->type == LINE_VALUE_TEXT)
        voice_set_add_text(set, id, value->text);
    else if (value->type == LINE_VALUE_BYTES)
        voice_set_add_bytes(set, id, value->bytes, value->length);
    else if (identifier_is_number(id))
        voice_set_add(set, id, voice_id_value_type(id), &value->number, sizeof value->number);
}

} // namespace

int32_t line_get_callback(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t) {
    const line_t *line = line_of_endpoint(voice_set_endpoint(request));
    if (line == nullptr)
        return 1;
    voice_set_message_t answer;
    voice_set_begin(&answer, static_cast<libvoice_param_block_t *>(malloc(sizeof *answer.block)), line->endpoint);
    if (answer.block == nullptr)
        return 1;
    voice_params_t rest = voice_set_params(request);
    for (voice_item_t item; voice_params_next(&rest, &item);) {
        line_value_t value = {};
        value.type = static_cast<line_value_type_t>(voice_id_value_type(item.id));
        if (item.id != LIBVOICE_PARAM_zil_ep_id && line->driver->get != nullptr &&
            line->driver->get(line->userdata, item.id, &value))
            value_add(&answer, item.id, &value);
    }
    voice_set_end(&answer, result);
    return 0;
}

int32_t line_set_callback(libvoice_param_set_t *params) {
    const line_t *line = line_of_endpoint(voice_set_endpoint(params));
    if (line == nullptr)
        return 1;
    int32_t result = 0;
    voice_params_t rest = voice_set_params(params);
    while (rest.length > 0) {
        voice_item_t item;
        if (!voice_params_next(&rest, &item))
            return 1;
        if (item.id == LIBVOICE_PARAM_zil_ep_id)
            continue;
        char text[kValueBytes];
        line_value_t value;
        if (line->driver->set != nullptr && value_read(&item, text, &value) &&
            line->driver->set(line->userdata, item.id, &value))
            continue;
        say("%d ignores param %s", line->number, identifier_name(item.id));
        result = 1;
    }
    return result;
}
