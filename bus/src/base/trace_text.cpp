// SPDX-License-Identifier: MIT
// Implements trace_text.h.
#include "base/trace_text.h"
#include "base/conversion.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace bus {

namespace {

// ----------------------------------------------------------------------------------------- Texts

// Bytes of the character that stands here when it may be shown, else 0.
size_t shown_length(const uint8_t *text, size_t left) {
    const uint8_t first = text[0];
    if (first < 0x80)
        return first >= ' ' && first != 0x7F;
    const size_t length = first >= 0xF0 && first < 0xF5 ? 4 : first >= 0xE0 ? 3 : 2;
    bool is_character = first >= 0xC2 && first < 0xF5 && length <= left;
    for (size_t i = 1; is_character && i < length; i++)
        is_character = (text[i] & 0xC0) == 0x80;
    if (!is_character)
        return first >= 0xA0; // alone it is a letter of an older character set, or nothing
    const bool is_control = first == 0xC2 && text[1] < 0xA0;
    return is_control ? 0 : length;
}

bool text_is_shown(const char *text, size_t length) {
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(text);
    for (size_t at = 0; at < length;) {
        const size_t shown = shown_length(bytes + at, length - at);
        if (shown == 0)
            return false;
        at += shown;
    }
    return true;
}

// Where a message is written, as far as there is room; all of it is counted.
struct Output {
    char *to;
    size_t size;
    size_t length;
};

void output_put(Output &output, const char *bytes, size_t length) {
    const size_t room = output.length < output.size ? output.size - output.length : 0;
    if (room > 0)
        memcpy(output.to + output.length, bytes, length < room ? length : room);
    output.length += length;
}

void output_pad(Output &output, size_t count) {
    for (; count > 0; count--)
        output_put(output, " ", 1);
}

void output_put_escaped(Output &output, const char *text, size_t length) {
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(text);
    for (size_t at = 0; at < length;) {
        const size_t shown = shown_length(bytes + at, length - at);
        char number[8];
        const uint8_t byte = bytes[at];
        const char *name = byte == '\n' ? "\\n" : byte == '\r' ? "\\r" : byte == '\t' ? "\\t" : number;
        snprintf(number, sizeof number, "\\x%02x", byte);
        output_put(output, shown > 0 ? text + at : name, shown > 0 ? shown : strlen(name));
        at += shown > 0 ? shown : 1;
    }
}

// ----------------------------------------------------------------------------------------- Pieces

size_t text_length(const char *text, int precision) {
    return precision >= 0 ? strnlen(text, static_cast<size_t>(precision)) : strlen(text);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

// With the measures in place of stars: they have been taken already.
template <class Value>
void value_put(Output &output, const Conversion &conversion, const Measures &measures, Value value) {
    char format[2 * kMaxSpecification];
    size_t used = 0;
    const char *end = conversion.begin + conversion.length;
    bool is_width = true;
    for (const char *at = conversion.begin; at < end && used < sizeof format - 16; at++) {
        if (*at == '*')
            used +=
                static_cast<size_t>(snprintf(format + used, 16, "%d", is_width ? measures.width : measures.precision));
        else
            format[used++] = *at;
        if (is_width && measures.left && !conversion.left && at == conversion.begin)
            format[used++] = '-';
        is_width &= *at != '.';
    }
    format[used] = '\0';
    char piece[512];
    const int length = snprintf(piece, sizeof piece, format, value);
    if (length > 0)
        output_put(output, piece,
                   static_cast<size_t>(length) < sizeof piece ? static_cast<size_t>(length) : sizeof piece - 1);
}

#pragma GCC diagnostic pop

void integer_put(Output &output, const Conversion &conversion, const Measures &measures, Arguments &arguments) {
    const uint64_t value = integer_take(conversion.width, arguments);
    switch (conversion.width) {
    case ArgumentWidth::is_long:
        return value_put(output, conversion, measures, static_cast<long>(value));
    case ArgumentWidth::is_long_long:
        return value_put(output, conversion, measures, static_cast<long long>(value));
    case ArgumentWidth::is_max:
        return value_put(output, conversion, measures, static_cast<intmax_t>(value));
    case ArgumentWidth::is_size:
        return value_put(output, conversion, measures, static_cast<size_t>(value));
    case ArgumentWidth::is_difference:
        return value_put(output, conversion, measures, static_cast<ptrdiff_t>(value));
    default:
        return value_put(output, conversion, measures, static_cast<int>(value));
    }
}

void text_put(Output &output, const Conversion &conversion, const Measures &measures, const char *text) {
    if (text == nullptr)
        return value_put(output, conversion, measures, text); // in the words of the C library
    Output counted = {nullptr, 0, 0};
    const size_t length = text_length(text, measures.precision);
    output_put_escaped(counted, text, length);
    const size_t width = measures.width > 0 ? static_cast<size_t>(measures.width) : 0;
    const size_t padding = width > counted.length ? width - counted.length : 0;
    output_pad(output, measures.left ? 0 : padding);
    output_put_escaped(output, text, length);
    output_pad(output, measures.left ? padding : 0);
}

void conversion_put(Output &output, const Conversion &conversion, Arguments &arguments, int error) {
    if (conversion.kind == ConversionKind::literal)
        return output_put(output, "%", 1);
    const Measures measures = measures_take(conversion, arguments);
    errno = error;
    switch (conversion.kind) {
    case ConversionKind::text:
        return text_put(output, conversion, measures, argument_take<const char *>(arguments));
    case ConversionKind::integer:
        return integer_put(output, conversion, measures, arguments);
    case ConversionKind::pointer:
        return value_put(output, conversion, measures, argument_take<const void *>(arguments));
    case ConversionKind::number:
        if (conversion.width == ArgumentWidth::is_long_double)
            return value_put(output, conversion, measures, argument_take<long double>(arguments));
        return value_put(output, conversion, measures, argument_take<double>(arguments));
    default:
        return value_put(output, conversion, measures, 0); // %m takes none
    }
}

enum class Finding : uint8_t { nothing, controls, unknown };

// Whether any text among the arguments has to be treated.
Finding arguments_look(const char *format, Arguments &arguments) {
    Finding finding = Finding::nothing;
    for (const char *at = strchr(format, '%'); at != nullptr; at = strchr(at, '%')) {
        const Conversion conversion = conversion_read(at);
        at += conversion.length;
        if (conversion.kind == ConversionKind::unknown)
            return Finding::unknown;
        if (conversion.kind == ConversionKind::literal)
            continue;
        const Measures measures = measures_take(conversion, arguments);
        if (conversion.kind == ConversionKind::text) {
            const char *text = argument_take<const char *>(arguments);
            if (text != nullptr && !text_is_shown(text, text_length(text, measures.precision)))
                finding = Finding::controls;
        } else if (conversion.kind == ConversionKind::integer) {
            integer_take(conversion.width, arguments);
        } else if (conversion.kind == ConversionKind::pointer) {
            argument_take<const void *>(arguments);
        } else if (conversion.kind == ConversionKind::number && conversion.width == ArgumentWidth::is_long_double) {
            argument_take<long double>(arguments);
        } else if (conversion.kind == ConversionKind::number) {
            argument_take<double>(arguments);
        }
    }
    return finding;
}

void pieces_put(Output &output, const char *format, Arguments &arguments, int error) {
    const char *at = format;
    while (const char *next = strchr(at, '%')) {
        output_put(output, at, static_cast<size_t>(next - at));
        const Conversion conversion = conversion_read(next);
        conversion_put(output, conversion, arguments, error);
        at = next + conversion.length;
    }
    output_put(output, at, strlen(at));
}

void whole_put(Output &output, const char *format, va_list arguments) ZIL_PRINTF(2, 0);

void whole_put(Output &output, const char *format, va_list arguments) {
    char whole[1024];
    const int length = vsnprintf(whole, sizeof whole, format, arguments);
    if (length > 0)
        output_put_escaped(output, whole, strlen(whole));
}

} // namespace

int trace_text_format(char *to, size_t size, const char *format, va_list arguments) {
    const int error = errno;
    Arguments copy;
    va_copy(copy.list, arguments);
    const Finding finding = arguments_look(format, copy);
    va_end(copy.list);
    errno = error;
    if (finding == Finding::nothing)
        return vsnprintf(to, size, format, arguments);
    Output output = {to, size > 0 ? size - 1 : 0, 0};
    va_copy(copy.list, arguments);
    if (finding == Finding::controls)
        pieces_put(output, format, copy, error);
    else
        whole_put(output, format, copy.list);
    va_end(copy.list);
    if (size > 0)
        to[output.length < size ? output.length : size - 1] = '\0';
    return static_cast<int>(output.length);
}

} // namespace bus
