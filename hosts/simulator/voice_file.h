// SPDX-License-Identifier: MIT
/**
 * @file voice_file.h
 * A WAV file that a line says in place of its voice, once, from its begin to its end, or until the line is hung up.
 */
#pragma once

#include "telephone.h"
#include "wav_reader.h"

struct voice_file {
    telephone *line; // null: nothing is said
    wav_reader sound;
    char path[512];
};

/** Begins to say a file, instead of what is being said. @return null, or why not, a command error */
const char *voice_file_begin(voice_file *one, telephone *line, const char *path);
/** Ends it before its time. Without a file it does nothing. */
void voice_file_end(voice_file *one);
