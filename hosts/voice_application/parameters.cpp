// SPDX-License-Identifier: MIT
// Parameters of endpoints.
#include "parameters.h"

#include "console.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

uint32_t parameter_of_text(const char *name) {
    char full[80];
    if (name == nullptr)
        return 0xFFFFFFFF;
    snprintf(full, sizeof full, "LIBVOICE_PARAM_%s", name);
    uint32_t id = libvoice_str_to_param(full);
    return id != 0xFFFFFFFF ? id : libvoice_str_to_param(name);
}

// Prints one parameter by the value type that its identifier carries.
void say_parameter(const char *label, uint32_t id, const uint8_t *value, uint32_t length) {
    constexpr uint32_t kInteger = 1, kString = 2, kBoolean = 4;
    const char *name = libvoice_param_str(id);
    if (strncmp(name, "LIBVOICE_PARAM_", 15) == 0)
        name += 15;
    uint32_t type = id >> 24 & 0xF;
    int32_t number = 0;
    if ((type == kInteger || type == kBoolean) && length >= sizeof number) {
        memcpy(&number, value, sizeof number);
        const char *text = id == LIBVOICE_PARAM_zil_dect_pp_type ? libvoice_dect_pp_type_str(number) : "";
        say("param %s %s=%d%s%s", label, name, number, *text != 0 ? " " : "", text);
    } else if (type == kString) {
        say("param %s %s=\"%.*s\"", label, name,
            static_cast<int>(strnlen(reinterpret_cast<const char *>(value), length)),
            reinterpret_cast<const char *>(value));
    } else {
        say("param %s %s (%u bytes)", label, name, length);
    }
}

} // namespace

const char *set_parameter(const line *line, const char *name, const char *value) {
    constexpr uint32_t kInteger = 1, kString = 2, kBoolean = 4;
    uint32_t id = parameter_of_text(name);
    if (id == 0xFFFFFFFF || value == nullptr)
        return "set LINE PARAMETER VALUE: for example set 101 tdmc_gain -3";
    uint32_t type = id >> 24 & 0xF;
    long number;
    int sent;
    if (type == kString) {
        sent = libvoice_set_params(line->endpoint, id, value, static_cast<uint32_t>(strlen(value) + 1));
    } else if ((type == kInteger || type == kBoolean) && read_number(value, INT32_MIN, INT32_MAX, &number)) {
        int32_t word = static_cast<int32_t>(number);
        sent = libvoice_set_params(line->endpoint, id, &word, sizeof word);
    } else {
        return refuse("'%s' is no value of %s", value, name);
    }
    return sent ? nullptr : "not sent";
}

const char *get_parameter(const line *line, const char *name) {
    uint32_t id = parameter_of_text(name);
    if (id == 0xFFFFFFFF)
        return "get LINE PARAMETER: for example get 101 tdmc_gain";
    return libvoice_get_params(line->endpoint, id, static_cast<uint32_t>(line->endpoint)) ? nullptr : "not sent";
}

// A "get" has been answered, or its plugin has died meanwhile. The request and its context word are ours to free.
void app_get_done(request_t *request) {
    uint32_t *context = static_cast<uint32_t *>(request_data(request));
    line *line = context == nullptr ? nullptr : line_of_endpoint(static_cast<int32_t>(*context));
    const char *label = line != nullptr ? line->label : "?";
    const void *bytes = nullptr;
    uint32_t length = 0;
    libvoice_param_set_t head = {};
    bool good = _reply_ok(request_reply(request)) &&
                variant_toByteArray(_reply_return_value(request_reply(request)), &bytes, &length) &&
                length >= sizeof head;
    if (good) {
        memcpy(&head, bytes, sizeof head);
        good = head.length <= length - sizeof head;
    }
    if (!good) {
        say("param %s: no answer", label);
    } else {
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
                say_parameter(label, id, value, size);
        }
    }
    free(context);
    request_destroy(request);
}
