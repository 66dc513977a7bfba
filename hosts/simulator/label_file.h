// SPDX-License-Identifier: MIT
/**
 * @file label_file.h
 * What happens, by its time in a recording: a text file that Audacity reads as a label track. A row is begin, end and
 * text with tabs between them, in seconds: `00012.345000	00013.100000	rings`.
 *
 * Each row is written at once. The end of what goes on is written over, so that the file is right at any moment.
 */
#pragma once

#include <stdint.h>

constexpr uint64_t kLabelMostBytes = 16 << 20; // some 250000 labels

struct label_file {
    bool open;
    int fd;
    uint64_t most;  // bytes that it may hold
    uint64_t bytes; // of whole rows
};

/** Opens a file that is to be written: a new one, or one that is empty or has labels, and that nobody writes to. It stays
 *  as it is until label_file_begin(). @return null, or why not, a sentence without its name that is valid until the next
 *  call */
const char *label_file_open(label_file *labels, const char *path);
/** Empties it. @return null, or why not; it is closed */
const char *label_file_begin(label_file *labels);
/** Writes a row for what begins, or happens, at a time in samples. @return its place in the file, for
 *  label_file_extend(); 0: it could not be written, or there is no room (EFBIG); errno tells */
uint64_t label_file_add(label_file *labels, uint64_t at, const char *text);
/** Moves the end of a row. @return whether it could be written; errno tells */
bool label_file_extend(label_file *labels, uint64_t place, uint64_t end);
/** Ends a file that is open. */
void label_file_close(label_file *labels);
