// SPDX-License-Identifier: MIT
// Parameters of endpoints.
#include "parameters.h"

#include "console.h"
#include "identifiers.h"

#include <stdlib.h>
#include <string.h>

namespace {

// Prints one parameter by the value type that its identifier carries.
void parameter_say(const char *label, uint32_t id, const uint8_t *value, uint32_t length) {
    const char *name = identifier_name(id);
    int32_t number = 0;
    if (identifier_is_number(id) && length >= sizeof number) {
        memcpy(&number, value, sizeof number);
        const char *text = id == LIBVOICE_PARAM_zil_dect_pp_type ? libvoice_dect_pp_type_str(number) : "";
        say("param %s %s=%d%s%s", label, name, number, *text != 0 ? " " : "", text);
    } else if (voice_id_value_type(id) == VOICE_VALUE_STRING) {
        say("param %s %s=\"%.*s\"", label, name,
            static_cast<int>(strnlen(reinterpret_cast<const char *>(value), length)),
            reinterpret_cast<const char *>(value));
    } else {
        say("param %s %s (%u bytes)", label, name, length);
    }
}

// Prints what a "get" brought. @return no: it is no parameter set.
bool parameters_say(const char *label, const void *bytes, uint32_t length) {
    libvoice_param_set_t head;
    if (length < sizeof head)
        return false;
    memcpy(&head, bytes, sizeof head);
    if (head.length > length - sizeof head)
        return false;
    uint8_t copy[1024]; // the items stand on word boundaries here
    uint32_t remaining = head.length < sizeof copy ? head.length : static_cast<uint32_t>(sizeof copy);
    memcpy(copy, static_cast<const uint8_t *>(bytes) + sizeof head, remaining);
    uint8_t *cursor = copy;
    while (remaining > 0) {
        uint32_t id = 0, size = 0;
        uint8_t *value = nullptr;
        if (libvoice_get_current_param(&id, &size, &value, &cursor, &remaining) != LIBVOICE_OK || value == nullptr)
            break;
        if (id != LIBVOICE_PARAM_zil_ep_id)
            parameter_say(label, id, value, size);
    }
    return true;
}

} // namespace

const char *parameter_set(const line *who, const char *name, const char *value) {
    uint32_t id = identifier_of_name(name);
    if (id == kUnknownIdentifier || value == nullptr)
        return "set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3";
    long number;
    int sent;
    if (voice_id_value_type(id) == VOICE_VALUE_STRING) {
        sent = libvoice_set_params(who->endpoint, id, value, static_cast<uint32_t>(strlen(value) + 1));
    } else if (identifier_is_number(id) && read_number(value, INT32_MIN, INT32_MAX, &number)) {
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
    uint32_t *context = static_cast<uint32_t *>(request_data(request));
    const line *who = context == nullptr ? nullptr : line_of_endpoint(static_cast<int32_t>(*context));
    const char *label = who != nullptr ? who->label : "?";
    const void *bytes = nullptr;
    uint32_t length = 0;
    bool answered = _reply_ok(request_reply(request)) &&
                    variant_toByteArray(_reply_return_value(request_reply(request)), &bytes, &length);
    if (!answered || !parameters_say(label, bytes, length))
        say("param %s: no answer", label);
    free(context);
    request_destroy(request);
}
