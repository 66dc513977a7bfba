// SPDX-License-Identifier: MIT
/**
 * @file printable.h
 * Texts from outside that are printed: none of them breaks a line in two or steers a terminal.
 */
#pragma once

#include <string.h>

#include "character.h"

/** Makes a dot of each byte that is no UTF-8 and of each byte of a character that steers a terminal (character.h). */
inline void line_make_printable(char *text) {
    for (size_t left = strlen(text); left > 0;) {
        const character read = character_read(text, left);
        const size_t bytes = read.bytes == 0 ? 1 : read.bytes;
        if (read.bytes == 0 || character_steers_terminal(read.code))
            memset(text, '.', bytes);
        text += bytes;
        left -= bytes;
    }
}
/** The same, and of each double quote: for a text that is printed between two of them. */
inline void text_make_printable(char *text) {
    line_make_printable(text);
    for (; *text != 0; text++)
        if (*text == '"')
            *text = '.';
}
