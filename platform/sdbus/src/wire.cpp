// SPDX-License-Identifier: MIT
// How a value travels: (yv), its type code and one of
//     ay     texts and bytes: texts are in any encoding here, and D-Bus takes UTF-8 only for its own
//     x      numbers, booleans, a descriptor of -1, and no value
//     h      a descriptor, which sd-bus duplicates when it is appended
//     a(yv)  a list
#include "wire.h"

#include <errno.h>
#include <fcntl.h>

namespace sdbus {

namespace {

bool is_descriptor(const Inside &value) {
    return value.type == VARIANT_FD && value.number >= 0;
}

const char *contents_of(uint32_t type, bool is_descriptor) {
    if (type == VARIANT_TEXT || type == VARIANT_BYTES)
        return "ay";
    if (type == VARIANT_LIST)
        return "a(yv)";
    return is_descriptor ? "h" : "x";
}

// For a reader or a writer.
template <class Message>
void list_enter(Message &message) {
    if (++message.depth > kMaxDepth)
        message.result = -ELOOP;
}

void content_write(Writer &writer, const Inside &value) {
    if (value.type == VARIANT_TEXT || value.type == VARIANT_BYTES)
        return writer.bytes(value.text != nullptr ? *value.text : "");
    if (is_descriptor(value)) {
        const int fd = static_cast<int>(value.number);
        return writer.number('h', &fd);
    }
    if (value.type != VARIANT_LIST)
        return writer.number('x', &value.number);
    list_enter(writer);
    writer.open('a', "(yv)");
    if (value.list != nullptr) {
        for (const variant_t &item : value.list->items)
            writer.value(&item);
    }
    writer.close();
    writer.depth--;
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

void number_read(Reader &reader, Inside &value) {
    int64_t number = 0;
    reader.number('x', &number);
    if (reader.result >= 0 && !number_fits(value.type, number))
        reader.result = -EBADMSG;
    if (reader.result >= 0)
        value.number = number;
}

// The message closes its descriptors in the end, so a value has one of its own.
void descriptor_read(Reader &reader, Inside &value) {
    int fd = -1;
    reader.number('h', &fd);
    if (reader.result < 0)
        return;
    value.number = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    value.owned = value.number >= 0;
    if (value.number < 0)
        reader.result = -errno;
}

void text_read(Reader &reader, Inside &value) {
    std::string text;
    reader.bytes(text);
    if (value.type == VARIANT_TEXT && text.find('\0') != std::string::npos)
        reader.result = -EBADMSG;
    if (reader.result >= 0)
        value.text = new std::string(std::move(text));
}

void list_read(Reader &reader, variant_t *v) {
    list_enter(reader);
    reader.enter('a', "(yv)");
    while (reader.more()) {
        variant_t &item = variant_da_list(v)->items.emplace_back();
        variant_initialize(&item, VARIANT_NONE);
        reader.value(&item);
    }
    reader.exit();
    reader.depth--;
}

} // namespace

// ------------------------------------------------------------------------------------------------------- Writing

void Writer::number(char type, const void *value) {
    result = result < 0 ? result : sd_bus_message_append_basic(message, type, value);
}
void Writer::bytes(const std::string &text) {
    result = result < 0 ? result : sd_bus_message_append_array(message, 'y', text.data(), text.size());
}
void Writer::open(char container, const char *contents) {
    result = result < 0 ? result : sd_bus_message_open_container(message, container, contents);
}
void Writer::close() {
    result = result < 0 ? result : sd_bus_message_close_container(message);
}

void Writer::value(const variant_t *v) {
    const Inside &value = *inside(v);
    const uint8_t type = static_cast<uint8_t>(value.type);
    open('r', "yv");
    number('y', &type);
    open('v', contents_of(type, is_descriptor(value)));
    content_write(*this, value);
    close();
    close();
}

// ------------------------------------------------------------------------------------------------------- Reading

// sd-bus answers 0 at the end of an array, where something was to be read.
void Reader::number(char type, void *value) {
    if (result >= 0 && (result = sd_bus_message_read_basic(message, type, value)) == 0)
        result = -EBADMSG;
}

void Reader::bytes(std::string &text) {
    const void *data = nullptr;
    size_t size = 0;
    if (result >= 0 && (result = sd_bus_message_read_array(message, 'y', &data, &size)) == 0)
        result = -EBADMSG;
    if (result >= 0 && size > 0)
        text.assign(static_cast<const char *>(data), size);
}

void Reader::enter(char container, const char *contents) {
    if (result >= 0 && (result = sd_bus_message_enter_container(message, container, contents)) == 0)
        result = -EBADMSG;
}
void Reader::exit() {
    result = result < 0 ? result : sd_bus_message_exit_container(message);
}

bool Reader::more() {
    const int end = result < 0 ? result : sd_bus_message_at_end(message, 0);
    result = end < 0 ? end : result;
    return end == 0;
}

void Reader::value(variant_t *v) {
    uint8_t type = VARIANT_NONE;
    const char *found = nullptr;
    enter('r', "yv");
    number('y', &type);
    if (result < 0 || (result = sd_bus_message_peek_type(message, nullptr, &found)) < 0)
        return;
    const std::string contents = found != nullptr ? found : ""; // entering does not keep it
    if (variant_initialize(v, type) == 0 || contents != contents_of(type, type == VARIANT_FD && contents == "h")) {
        result = -EBADMSG;
        return;
    }
    enter('v', contents.c_str());
    if (contents == "ay")
        text_read(*this, *inside(v));
    else if (contents == "a(yv)")
        list_read(*this, v);
    else if (contents == "h")
        descriptor_read(*this, *inside(v));
    else
        number_read(*this, *inside(v));
    exit();
    exit();
}

} // namespace sdbus
