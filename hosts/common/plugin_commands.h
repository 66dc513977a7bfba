// SPDX-License-Identifier: MIT
/**
 * @file plugin_commands.h
 * Commands of a plugin, for its console.
 */
#pragma once

#include "plugin_options.h"

/** Whose commands, and how many lines there are. */
void plugin_commands_begin(const plugin_program_t *program, const plugin_options *read);
/** A console_command_t. */
const char *plugin_command_run(char *text);
