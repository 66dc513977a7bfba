// SPDX-License-Identifier: MIT
/**
 * @file printable.h
 * Texts from outside that are printed inside quotes.
 */
#pragma once

/** Makes a dot of each character that could break a line of output: control characters and double quotes. */
inline void text_make_printable(char *text) {
    for (; *text != 0; text++)
        if (static_cast<unsigned char>(*text) < ' ' || *text == '"' || *text == 0x7F)
            *text = '.';
}
