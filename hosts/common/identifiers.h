// SPDX-License-Identifier: MIT
/**
 * @file identifiers.h
 * Parameters by their short names ("tdmc_gain"), and the type of value that an identifier carries.
 */
#pragma once

#include "libvoice_plugin.h"

/** Bits 24 to 27 of an identifier (see libvoice_ids.h). */
enum identifier_type : uint32_t {
    IDENTIFIER_SIGNAL_OR_EVENT = 0, // no value: it is the signal or event itself
    IDENTIFIER_INTEGER = 1,         // 32 bits, signed; enumerations too
    IDENTIFIER_STRING = 2,          // terminated text
    IDENTIFIER_HEX = 3,             // bytes, or words in host byte order
    IDENTIFIER_BOOLEAN = 4,         // 32 bits, 0 or 1
};

constexpr uint32_t kUnknownIdentifier = 0xFFFFFFFF; // what libvoice_str_to_param() answers to a name that is none

constexpr identifier_type identifier_value_type(uint32_t id) {
    return static_cast<identifier_type>(id >> 24 & 0xF);
}

/** Whether its value is one signed word of 32 bits. */
constexpr bool identifier_is_number(uint32_t id) {
    return identifier_value_type(id) == IDENTIFIER_INTEGER || identifier_value_type(id) == IDENTIFIER_BOOLEAN;
}

/** A parameter's name without "LIBVOICE_PARAM_". Other names stay whole. */
const char *identifier_name(uint32_t id);
/** The parameter of a name with or without "LIBVOICE_PARAM_", or kUnknownIdentifier, also for null. */
uint32_t identifier_of_name(const char *name);
