// SPDX-License-Identifier: MIT
// Short names of parameters.
#include "identifiers.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr char kPrefix[] = "LIBVOICE_PARAM_";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;

} // namespace

const char *identifier_name(uint32_t id) {
    const char *name = libvoice_param_str(id);
    return strncmp(name, kPrefix, kPrefixLength) == 0 ? name + kPrefixLength : name;
}

uint32_t identifier_of_name(const char *name) {
    char full[80]; // longer than any name of the vocabulary
    if (name == nullptr)
        return kUnknownIdentifier;
    snprintf(full, sizeof full, "%s%s", kPrefix, name);
    uint32_t id = libvoice_str_to_param(full);
    return id != kUnknownIdentifier ? id : libvoice_str_to_param(name);
}
