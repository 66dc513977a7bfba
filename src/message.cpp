// SPDX-License-Identifier: MIT
// Names of identifiers and the dump of a parameter buffer as one text, for plugins and the voice application.
#include "message.h"

#include <limits.h> // INT_MAX
#include <stdarg.h>
#include <stdio.h>  // snprintf
#include <string.h> // memcpy

#include "libvoice_plugin.h"
#include "trace.h"
#include "vocabulary.h"

namespace {

using namespace voice;

constexpr uint32_t kNoIdentifier = 0xFFFFFFFFu;

// The caller's text with the place where the next piece goes; a piece that does not fit is cut, and nothing follows it.
class CutText {
public:
    CutText(char *text, int32_t position, int32_t size)
        : text_(text), position_(position), size_(text && position >= 0 ? size : INT32_MIN) {}

    [[gnu::format(printf, 2, 3)]] void print(const char *format, ...) {
        if (position_ >= size_)
            return;
        const int32_t room = size_ - position_;
        va_list arguments;
        va_start(arguments, format);
        const int count = vsnprintf(text_ + position_, static_cast<size_t>(room), format, arguments);
        va_end(arguments);
        position_ = count >= 0 && count < room ? position_ + count : size_;
    }

private:
    char *text_;
    int32_t position_;
    int32_t size_;
};

// A value's first word. Bytes that a short value lacks count as zero, in memory order.
uint32_t first_word(const uint8_t *value, uint32_t length) {
    uint32_t word = 0;
    memcpy(&word, value, length < sizeof word ? length : sizeof word);
    return word;
}

// How many characters of a text value to show at most: it ends with its item, terminated or not.
int text_limit(uint32_t length) {
    return length < INT_MAX ? static_cast<int>(length) : INT_MAX;
}

} // namespace

namespace voice {

const char *libvoice_class_str(uint32_t id) {
    switch (id_class(id)) {
    case IdClass::signal:
        return "sig";
    case IdClass::event:
        return "evt";
    case IdClass::property:
        return "prop";
    }
    // Kept: "uknown" is how the system has always said it.
    TRACE_ERROR("uknown class for 0x%08x", id);
    return "????";
}

} // namespace voice

const char *libvoice_param_str(uint32_t id) {
    const int32_t row = vocabulary_row(id);
    if (row >= 0)
        return vocabulary_name(row);
    // Kept: "sig_nil" is a text for people only; libvoice_str_to_param() does not know it.
    return id == 0 ? "sig_nil" : "????";
}

uint32_t libvoice_str_to_param(const char *name) {
    const int32_t row = vocabulary_row(name);
    return row >= 0 ? vocabulary_number(row) : kNoIdentifier;
}

void dump_msg(char *text, int32_t position, int32_t size, const void *params, uint32_t length) {
    CutText out(text, position, size);
    // The reader moves a cursor of its own through the caller's buffer and writes nothing there.
    uint8_t *cursor = params ? static_cast<uint8_t *>(const_cast<void *>(params)) : nullptr;
    uint32_t remaining = params ? length : 0;

    while (remaining != 0) {
        uint32_t id = 0;
        uint32_t value_length = 0;
        uint8_t *value = nullptr;
        if (libvoice_get_current_param(&id, &value_length, &value, &cursor, &remaining) != LIBVOICE_OK)
            return;
        // An item cut off by the end of the buffer reads as success with untouched outputs.
        if (!value)
            return;

        const ValueType type = id_value_type(id);
        if (type > ValueType::boolean)
            TRACE_ERROR("unknown param type for id 0x%08x", id);
        const char *word = libvoice_class_str(id);
        const char *name = libvoice_param_str(id);
        switch (type) {
        case ValueType::none:
            out.print("%s %s ", word, name);
            break;
        case ValueType::integer:
            out.print("%s %s %d ", word, name, static_cast<int32_t>(first_word(value, value_length)));
            break;
        case ValueType::string:
            out.print("%s %s %.*s ", word, name, text_limit(value_length), reinterpret_cast<const char *>(value));
            break;
        case ValueType::hex:
            out.print("%s %s 0x%08x ", word, name, first_word(value, value_length));
            break;
        case ValueType::boolean:
            out.print("%s %s %s ", word, name, first_word(value, value_length) != 0 ? "true" : "false");
            break;
        default:
            out.print("%s %s ??? ", word, name);
            break;
        }
    }
}
