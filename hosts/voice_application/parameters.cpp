// SPDX-License-Identifier: MIT
// Parameters of endpoints.
#include "parameters.h"

#include "console.h"
#include "identifiers.h"
#include "printable.h"

#include <stdlib.h>
#include <string.h>

namespace {

// With its terminator, behind the endpoint's item of 12 bytes and a head of 8. For more the library does not give back
// what it has allocated.
constexpr size_t kTextBytes = LIBVOICE_PARAM_BLOCK_BYTES - 20;

// Prints one parameter by the value type that its identifier carries.
void parameter_say(const char *label, const voice_item_t *item) {
    const char *name = identifier_name(item->id);
    char text[LIBVOICE_PARAM_BLOCK_BYTES] = "";
    int32_t number = 0;
    if (identifier_is_number(item->id) && item->length >= sizeof number) {
        memcpy(&number, item->value, sizeof number);
        const char *type = item->id == LIBVOICE_PARAM_zil_dect_pp_type ? libvoice_dect_pp_type_str(number) : "";
        say("param %s %s=%d%s%s", label, name, number, *type != 0 ? " " : "", type);
    } else if (voice_item_get_text(item, text, sizeof text) != 0) {
        text_make_printable(text);
        say("param %s %s=\"%s\"", label, name, text);
    } else {
        say("param %s %s (%u bytes)", label, name, item->length);
    }
}

} // namespace

const char *parameter_set(const line *who, const char *name, const char *value) {
    uint32_t id = identifier_of_name(name);
    if (id == kUnknownIdentifier || value == nullptr)
        return "set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3";
    long number;
    int sent;
    if (voice_id_value_type(id) == VOICE_VALUE_STRING) {
        if (strlen(value) >= kTextBytes)
            return command_error("a text has at most %zu characters", kTextBytes - 1);
        sent = libvoice_set_params(who->endpoint, id, value, static_cast<uint32_t>(strlen(value) + 1));
    } else if (identifier_is_number(id) && word_to_number(value, INT32_MIN, INT32_MAX, &number)) {
        int32_t word = static_cast<int32_t>(number);
        sent = libvoice_set_params(who->endpoint, id, &word, sizeof word);
    } else {
        return command_error("'%s' is no value of %s", value, name);
    }
    return sent ? nullptr : "not sent";
}

const char *parameter_get(const line *who, const char *name) {
    uint32_t id = identifier_of_name(name);
    if (id == kUnknownIdentifier)
        return "get LINE PARAMETER: for example get 101 tdmc_gain";
    return libvoice_get_params(who->endpoint, id, static_cast<uint32_t>(who->endpoint)) ? nullptr : "not sent";
}

// A "get" has been answered, or its plugin has died meanwhile. The request and its context word are ours to free.
void parameters_get_done(request_t *request) {
    uint32_t endpoint = UINT32_MAX;
    voice_params_t rest;
    voice_item_t item;
    const bool answered = voice_get_answer(request, &rest, &endpoint) != 0;
    const line *who = line_of_endpoint(static_cast<int32_t>(endpoint));
    const char *label = who != nullptr ? who->label : "?";
    bool has_value = false;
    while (answered && voice_params_next(&rest, &item)) {
        if (item.id == LIBVOICE_PARAM_zil_ep_id)
            continue;
        parameter_say(label, &item);
        has_value = true;
    }
    if (!has_value) // the line has no such parameter
        say("param %s: no %s", label, answered ? "value" : "answer");
    free(request_data(request));
    request_destroy(request);
}
