// SPDX-License-Identifier: MIT
/**
 * @file options.h
 * The command line of the voice application.
 */
#pragma once

/** Reads the words behind the program's name; what belongs to every host goes to host_option(). Ends the process when
 *  something is wrong, or for --help and --version. @return the file of settings, or null */
const char *application_options_read(int count, char **words);
