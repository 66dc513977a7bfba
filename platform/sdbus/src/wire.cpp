// SPDX-License-Identifier: MIT
// How a value travels: (yv), its type code and one of
//     ay     texts and bytes: texts are in any encoding here, and D-Bus takes UTF-8 only for its own
//     x      numbers, booleans, a descriptor of -1, and no value
//     h      a descriptor, which sd-bus duplicates when it is appended
//     a(yv)  a list
#include "value.h"

#include <errno.h>
#include <fcntl.h>

namespace sdbus {

namespace {

int content_append(sd_bus_message *message, const Inside *value) {
    static const std::string kEmpty;
    switch (value->type) {
    case VARIANT_TEXT:
    case VARIANT_BYTES:
        return bytes_append(message, value->text != nullptr ? *value->text : kEmpty);
    case VARIANT_LIST: {
        int r = sd_bus_message_open_container(message, 'a', "(yv)");
        if (r >= 0 && value->list != nullptr) {
            for (const variant_t &item : value->list->items) {
                if ((r = value_append(message, &item)) < 0)
                    return r;
            }
        }
        return r < 0 ? r : sd_bus_message_close_container(message);
    }
    default:
        if (value->type != VARIANT_FD || value->number < 0)
            return sd_bus_message_append_basic(message, 'x', &value->number);
        const int fd = static_cast<int>(value->number);
        return sd_bus_message_append_basic(message, 'h', &fd);
    }
}

const char *content_signature(const Inside *value) {
    switch (value->type) {
    case VARIANT_TEXT:
    case VARIANT_BYTES:
        return "ay";
    case VARIANT_LIST:
        return "a(yv)";
    default:
        return value->type == VARIANT_FD && value->number >= 0 ? "h" : "x";
    }
}

int list_read(sd_bus_message *message, variant_t *v) {
    int r = sd_bus_message_enter_container(message, 'a', "(yv)");
    while (r >= 0 && (r = sd_bus_message_at_end(message, 0)) == 0) {
        Value item;
        if ((r = value_read(message, &item)) < 0)
            return r;
        variant_da_list(v)->items.push_back(item);
        variant_initialize(&item, VARIANT_NONE); // it has moved
    }
    return r < 0 ? r : sd_bus_message_exit_container(message);
}

// The message closes its descriptors in the end, so that a value has one of its own.
int descriptor_read(sd_bus_message *message, Inside *value) {
    int fd;
    int r = sd_bus_message_read_basic(message, 'h', &fd);
    if (r < 0)
        return r;
    value->number = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    value->owned = value->number >= 0;
    return value->number >= 0 ? r : -errno;
}

bool number_fits(uint32_t type, int64_t number) {
    switch (type) {
    case VARIANT_INT16:
        return std::in_range<int16_t>(number);
    case VARIANT_INT32:
        return std::in_range<int32_t>(number);
    case VARIANT_UINT16:
        return std::in_range<uint16_t>(number);
    case VARIANT_UINT32:
        return std::in_range<uint32_t>(number);
    case VARIANT_BOOL:
        return number == 0 || number == 1;
    default:
        return type == VARIANT_FD ? number == -1 : type == VARIANT_NONE;
    }
}

int number_read(sd_bus_message *message, Inside *value) {
    int r = sd_bus_message_read_basic(message, 'x', &value->number);
    if (r < 0 || number_fits(value->type, value->number))
        return r;
    value->number = -1; // of a descriptor: nothing is there to be closed
    return -EBADMSG;
}

int content_read(sd_bus_message *message, variant_t *v, const std::string &contents) {
    Inside *value = inside(v);
    if (contents == "a(yv)" && value->type == VARIANT_LIST)
        return list_read(message, v);
    if (contents == "h" && value->type == VARIANT_FD)
        return descriptor_read(message, value);
    if (contents == "x")
        return number_read(message, value);
    if (contents != "ay" || (value->type != VARIANT_TEXT && value->type != VARIANT_BYTES))
        return -EBADMSG;
    std::string text;
    int r = bytes_read(message, text);
    if (r < 0 || (value->type == VARIANT_TEXT && text.find('\0') != std::string::npos))
        return r < 0 ? r : -EBADMSG;
    value->text = new std::string(std::move(text));
    return r;
}

} // namespace

int bytes_append(sd_bus_message *message, const std::string &text) {
    return sd_bus_message_append_array(message, 'y', text.data(), text.size());
}

int bytes_read(sd_bus_message *message, std::string &text) {
    const void *data;
    size_t size;
    int r = sd_bus_message_read_array(message, 'y', &data, &size);
    if (r < 0)
        return r;
    if (size > 0)
        text.assign(static_cast<const char *>(data), size);
    return 0;
}

int value_append(sd_bus_message *message, const variant_t *v) {
    const Inside *value = inside(v);
    const uint8_t type = static_cast<uint8_t>(value->type);
    int r = sd_bus_message_open_container(message, 'r', "yv");
    r = r < 0 ? r : sd_bus_message_append_basic(message, 'y', &type);
    r = r < 0 ? r : sd_bus_message_open_container(message, 'v', content_signature(value));
    r = r < 0 ? r : content_append(message, value);
    r = r < 0 ? r : sd_bus_message_close_container(message);
    return r < 0 ? r : sd_bus_message_close_container(message);
}

int value_read(sd_bus_message *message, variant_t *v) {
    uint8_t type = VARIANT_NONE;
    const char *contents = nullptr;
    int r = sd_bus_message_enter_container(message, 'r', "yv");
    if (r <= 0 || (r = sd_bus_message_read_basic(message, 'y', &type)) < 0)
        return r < 0 ? r : -EBADMSG;
    if (variant_initialize(v, type) == 0)
        return -EBADMSG;
    if ((r = sd_bus_message_peek_type(message, nullptr, &contents)) <= 0 || contents == nullptr)
        return r < 0 ? r : -EBADMSG;
    const std::string signature = contents; // entering does not keep it
    r = sd_bus_message_enter_container(message, 'v', signature.c_str());
    r = r < 0 ? r : content_read(message, v, signature);
    r = r < 0 ? r : sd_bus_message_exit_container(message);
    return r < 0 ? r : sd_bus_message_exit_container(message);
}

} // namespace sdbus
