// SPDX-License-Identifier: MIT
/**
 * @file identifiers.h
 * Parameters by their short names ("tdmc_gain"), and which of them are numbers.
 */
#pragma once

#include "voice_records.h"

constexpr uint32_t kUnknownIdentifier = 0xFFFFFFFF; // what libvoice_str_to_param() answers to a name that is none

/** Whether its value is one signed word of 32 bits. */
inline bool identifier_is_number(uint32_t id) {
    return voice_id_value_type(id) == VOICE_VALUE_INTEGER || voice_id_value_type(id) == VOICE_VALUE_BOOLEAN;
}

/** A parameter's name without "LIBVOICE_PARAM_". Other names stay whole. */
const char *identifier_name(uint32_t id);
/** The parameter of a name with or without "LIBVOICE_PARAM_", or kUnknownIdentifier, also for null. */
uint32_t identifier_of_name(const char *name);
