// SPDX-License-Identifier: MIT
/**
 * @file plugin_options.h
 * The command line of a plugin.
 */
#pragma once

#include "plugin_main.h"

#include <stddef.h>

struct plugin_options {
    const char *name; // of the plugin
    const char *stem; // of its endpoints
    int lines;
};

/** Reads the words behind the program's name; what belongs to every host goes to host_option(), the program's own
 *  options to its table. Ends the process when something is wrong, or for --help and --version. The result points into
 *  the words. */
plugin_options plugin_options_read(const plugin_program_t *program, int count, char **words);
/** "FXS1" for the first endpoint of the stem FXS. */
void plugin_endpoint_name(const plugin_options *options, int number, char *text, size_t size);
