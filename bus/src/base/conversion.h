// SPDX-License-Identifier: MIT
// The conversions of a printf format, one by one, and the arguments that each of them takes.
#ifndef KEX_CONVERSION_H
#define KEX_CONVERSION_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

namespace bus {

// A conversion whose letters are as many or more is unknown.
constexpr size_t kMaxSpecification = 32;

enum class ConversionKind : uint8_t { text, literal, errno_text, integer, number, pointer, unknown };
enum class ArgumentWidth : uint8_t { usual, is_long, is_long_long, is_max, is_size, is_difference, is_long_double };

// One conversion, from its % to its letter.
struct Conversion {
    const char *begin;
    size_t length;
    ConversionKind kind;
    ArgumentWidth width;
    bool left;      // flag -
    int stars;      // how many arguments give width and precision
    bool precision; // is there
    int numbers[2]; // width and precision that the format gives, -1: none or a star
};

// In a structure a list of arguments can be handed on by address on every target.
struct Arguments {
    va_list list;
};

// Takes the next argument, which is of this type.
template <typename Type>
Type argument_take(Arguments &arguments) {
    return va_arg(arguments.list, Type);
}

// Width and precision as this conversion has them, those from arguments included; -1: none.
struct Measures {
    int width;
    int precision;
    bool left;
};

// The one that begins at this %.
Conversion conversion_read(const char *begin);
// Takes the arguments in front of the value.
Measures measures_take(const Conversion &conversion, Arguments &arguments);
// Takes an integer of any width and sign.
uint64_t integer_take(ArgumentWidth width, Arguments &arguments);

} // namespace bus

#endif
