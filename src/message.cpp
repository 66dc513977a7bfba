// SPDX-License-Identifier: MIT
// The dump of a parameter buffer as one text, for plugins and the voice application.
#include "message.h"

#include <stdio.h> // snprintf

#include "../vocabulary/identifier.h"
#include "libvoice_plugin.h"
#include "trace.h"

namespace {

using namespace voice;

// The caller's text with the place where the next piece goes; a piece that does not fit is cut, and nothing follows it.
class CutText {
public:
    CutText(char *text, int32_t position, int32_t size)
        : text_(text), position_(position), size_(text && position >= 0 ? size : INT32_MIN) {}

    void print(const char *piece) {
        if (!full())
            advance(snprintf(text_ + position_, static_cast<size_t>(size_ - position_), "%s", piece));
    }
    void print_value(uint32_t id, const uint8_t *value, uint32_t length) {
        if (!full())
            advance(value_text(text_ + position_, static_cast<size_t>(size_ - position_), id, value, length));
    }

private:
    bool full() const { return position_ >= size_; }
    void advance(int count) {
        const int32_t room = size_ - position_;
        position_ = count >= 0 && count < room ? position_ + count : size_;
    }

    char *text_;
    int32_t position_;
    int32_t size_;
};

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
        const char *const beginning[] = {word, " ", libvoice_param_str(id), " "};
        for (const char *piece : beginning)
            out.print(piece);
        if (type == ValueType::none)
            continue;
        out.print_value(id, value, value_length);
        out.print(" ");
    }
}
