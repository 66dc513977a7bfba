/* SPDX-License-Identifier: MIT */
/**
 * @file command_words.h
 * What commands, options and settings are made of: words and numbers. C11 and C++.
 */
#ifndef COMMAND_WORDS_H
#define COMMAND_WORDS_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Cuts the next word off; one in double quotes may hold blanks. Null: none left. */
char *word_next(char **rest);
/** Reads a whole decimal number within limits. */
bool word_to_number(const char *text, long low, long high, long *value);

#ifdef __cplusplus
}
#endif

#endif
