// SPDX-License-Identifier: MIT
/**
 * @file plugin_help.h
 * What a plugin says about itself, from its tables. Texts are valid until the next call of the same function.
 */
#pragma once

#include "plugin_main.h"

/** Of --help. */
const char *plugin_help_text(const plugin_program_t *plugin);
/** "off, on, dial, flash" */
const char *plugin_verbs_text(const plugin_program_t *plugin);
/** "off | on | dial DIGITS | flash"; empty for a plugin without commands. */
const char *plugin_commands_text(const plugin_program_t *plugin);
/** What one line is called: "telephone". */
const char *plugin_line_word(const plugin_program_t *plugin);
