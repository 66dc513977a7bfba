// SPDX-License-Identifier: MIT
// Implements conversion.h.
#include "base/conversion.h"

#include <string.h>

namespace bus {

namespace {

ConversionKind kind_of(char letter, ArgumentWidth width) {
    if (letter == '%')
        return ConversionKind::literal;
    if (letter == 'm')
        return ConversionKind::errno_text;
    if (letter == 'p')
        return ConversionKind::pointer;
    if (letter == 's' || letter == 'c')
        return width != ArgumentWidth::usual ? ConversionKind::unknown
               : letter == 's'               ? ConversionKind::text
                                             : ConversionKind::integer;
    if (strchr("diouxX", letter) != nullptr)
        return width != ArgumentWidth::is_long_double ? ConversionKind::integer : ConversionKind::unknown;
    if (strchr("aAeEfFgG", letter) != nullptr)
        return ConversionKind::number;
    return ConversionKind::unknown;
}

ArgumentWidth width_read(const char *&at) {
    if (at[0] == 'h') {
        at += at[1] == 'h' ? 2 : 1;
        return ArgumentWidth::usual; // passed as int
    }
    if (at[0] == 'l' && at[1] == 'l') {
        at += 2;
        return ArgumentWidth::is_long_long;
    }
    const char letter = *at;
    at += letter != '\0' && strchr("ljztL", letter) != nullptr;
    return letter == 'l'   ? ArgumentWidth::is_long
           : letter == 'j' ? ArgumentWidth::is_max
           : letter == 'z' ? ArgumentWidth::is_size
           : letter == 't' ? ArgumentWidth::is_difference
           : letter == 'L' ? ArgumentWidth::is_long_double
                           : ArgumentWidth::usual;
}

// A number or a star. -1: a star, or nothing.
int number_read(const char *&at, int &stars) {
    if (*at == '*') {
        stars++;
        at++;
        return -1;
    }
    int number = *at >= '0' && *at <= '9' ? 0 : -1;
    for (; *at >= '0' && *at <= '9'; at++)
        number = number < 100000 ? number * 10 + (*at - '0') : number;
    return number;
}

} // namespace

Conversion conversion_read(const char *begin) {
    Conversion conversion = {};
    const char *at = begin + 1;
    for (; *at != '\0' && strchr("-+ #0'I", *at) != nullptr; at++)
        conversion.left |= *at == '-';
    conversion.begin = begin;
    conversion.numbers[0] = number_read(at, conversion.stars);
    conversion.numbers[1] = -1;
    conversion.precision = *at == '.';
    if (conversion.precision) {
        at++;
        const int stars = conversion.stars;
        conversion.numbers[1] = number_read(at, conversion.stars);
        if (conversion.numbers[1] < 0 && conversion.stars == stars)
            conversion.numbers[1] = 0; // a point alone
    }
    conversion.width = width_read(at);
    conversion.kind = *at != '\0' ? kind_of(*at, conversion.width) : ConversionKind::unknown;
    conversion.length = static_cast<size_t>(at + (*at != '\0') - begin);
    if (conversion.length >= kMaxSpecification)
        conversion.kind = ConversionKind::unknown;
    return conversion;
}

Measures measures_take(const Conversion &conversion, Arguments &arguments) {
    Measures measures = {conversion.numbers[0], conversion.numbers[1], conversion.left};
    const bool precision_is_star = conversion.precision && conversion.numbers[1] < 0;
    if (conversion.stars > (precision_is_star ? 1 : 0))
        measures.width = argument_take<int>(arguments);
    if (precision_is_star)
        measures.precision = argument_take<int>(arguments);
    if (measures.width < -1) { // as the flag and a positive one
        measures.left = true;
        measures.width = -measures.width;
    }
    return measures;
}

uint64_t integer_take(ArgumentWidth width, Arguments &arguments) {
    switch (width) {
    case ArgumentWidth::is_long:
        return static_cast<uint64_t>(argument_take<long>(arguments));
    case ArgumentWidth::is_long_long:
        return static_cast<uint64_t>(argument_take<long long>(arguments));
    case ArgumentWidth::is_max:
        return static_cast<uint64_t>(argument_take<intmax_t>(arguments));
    case ArgumentWidth::is_size:
        return static_cast<uint64_t>(argument_take<size_t>(arguments));
    case ArgumentWidth::is_difference:
        return static_cast<uint64_t>(argument_take<ptrdiff_t>(arguments));
    default:
        return static_cast<uint64_t>(argument_take<int>(arguments));
    }
}

} // namespace bus
