// SPDX-License-Identifier: MIT
/**
 * @file names.h
 * What may be a name of a plugin or an endpoint: it stands in paths, in lines of output and in commands.
 */
#pragma once

#include "libvoice_plugin.h"

#include <string.h>

/** The longest names that the application's tables keep; a longer one would be cut there. */
constexpr uint32_t kPluginNameLength = LIBVOICE_PLUGIN_NAME_BYTES - 1;
constexpr uint32_t kEndpointNameLength = LIBVOICE_ENDPOINT_NAME_BYTES - 1;

/** Whether a name is not empty and has plain characters only: printable ASCII without dots, blanks and quotes. */
inline bool name_is_plain(const char *name) {
    if (*name == 0)
        return false;
    for (; *name != 0; name++)
        if (*name <= ' ' || *name > '~' || *name == '.' || *name == '"')
            return false;
    return true;
}

/** Whether a name is plain and has at most `longest` characters: kPluginNameLength or kEndpointNameLength. */
inline bool name_is_valid(const char *name, uint32_t longest) {
    return name_is_plain(name) && strlen(name) <= longest;
}
