// SPDX-License-Identifier: MIT
/**
 * @file sound_commands.h
 * Commands to listen to lines and to speak on them, for the console of a plugin with simulated lines:
 *
 *     1 say FILE            says a WAV file in place of its voice; `1 say off` ends it
 *     1 record FILE         records the line; `1 record off` ends it
 *     1 listen FILE         hands what is heard to a player, as samples; `1 listen off` ends it
 *     1 expect WHAT TIME    waits until it is heard: busy-tone 3s
 */
#pragma once

#include "telephone.h"

/** Rows for a plugin's table of commands. */
#define SOUND_COMMANDS                                                                                            \
    {"say", "FILE|off", sound_say}, {"record", "FILE|off", sound_record}, {"listen", "FILE|off", sound_listen}, { \
        "expect", "WHAT TIME", sound_expect                                                                       \
    }

/** Hands over the lines that commands are for, in their order. */
void sound_commands_begin(telephone *lines);
/** Ends all recordings and all else, for plugin_program_t. */
void sound_commands_end();

const char *sound_say(int number, char *rest);
const char *sound_record(int number, char *rest);
const char *sound_listen(int number, char *rest);
const char *sound_expect(int number, char *rest);
