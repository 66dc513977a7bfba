// SPDX-License-Identifier: MIT
// Words and numbers of a line of text.
#include "command_words.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

char *word_next(char **rest) {
    char *word = *rest + strspn(*rest, " \t");
    if (*word == 0) {
        *rest = word;
        return nullptr;
    }
    bool quoted = *word == '"';
    if (quoted)
        word++;
    char *end = word + strcspn(word, quoted ? "\"" : " \t");
    *rest = *end == 0 ? end : end + 1;
    *end = 0;
    return word;
}

bool word_to_number(const char *text, long low, long high, long *value) {
    if (text == nullptr || *text == 0)
        return false;
    char *end;
    errno = 0;
    long number = strtol(text, &end, 10);
    if (errno != 0 || *end != 0 || number < low || number > high)
        return false;
    *value = number;
    return true;
}
