/* SPDX-License-Identifier: MIT */
/**
 * @file plugin_main.h
 * The main() of a plugin: options, commands and status, the same for all kinds of lines.
 *
 * What does it do?
 *   It reads the options that every plugin has (--name, --stem, --lines, and those of host.h) and the program's own,
 *   starts the bus, publishes the plugin, runs it, and leaves in order. On the console it knows status, help and quit; all
 *   other commands come from the program's table and are given a line's number: "1 dial 201".
 *
 * How does it work?
 *   A program fills plugin_program_t and calls plugin_main(). `begin` is called when the bus is there and adds the lines
 *   (line_plugin.h). --help and the console's help are written from the tables.
 *
 * C11 and C++17.
 */
#ifndef PLUGIN_MAIN_H
#define PLUGIN_MAIN_H

#include "libvoice_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An option of the program's own; a value always follows it. */
typedef struct plugin_option {
    const char *name;                       /**< without "--" */
    const char *value;                      /**< what --help calls its value: "LIST" */
    const char *help;                       /**< one line */
    const char *(*take)(const char *value); /**< the value lives as long as the process. @return null, or what it
                                                 should be, as in "--tone 7: 300 to 1500 Hz" */
} plugin_option_t;

/** What can be done with one line. */
typedef struct plugin_command {
    const char *verb;
    const char *arguments;                      /**< what help calls the words behind it: "DIGITS"; "" none */
    const char *(*run)(int number, char *rest); /**< `rest` is for next_word(). @return null, or why not */
} plugin_command_t;

/** A plugin. Tables end with an entry without a name. */
typedef struct plugin_program {
    const char *program;              /**< of the process: "fxs_plugin" */
    const char *about;                /**< one sentence for --help */
    const char *name;                 /**< of the plugin, unless --name is given */
    const char *stem;                 /**< of the endpoints, unless --stem is given */
    const char *line_word;            /**< what one line is called: "telephone" */
    const char *lines_word;           /**< the same for several */
    const char *acting_word;          /**< who carries the commands out: "telephone", "exchange" */
    const char *acting;               /**< behind "Commands, one per line" in --help: ", as the exchange"; or "" */
    int lines;                        /**< unless --lines is given */
    int most_lines;                   /**< the same as `lines`: there is no --lines; 0: there are no endpoints */
    const plugin_option_t *options;   /**< null: none */
    const plugin_command_t *commands; /**< null: none */
    /** Bus and plugin are there: adds `lines` lines. It ends the process with host_fail() if it cannot. */
    void (*begin)(int lines);
    void (*status)(int lines);               /**< answers the lines of the status command behind the first one */
    libvoice_callbacks_t (*callbacks)(void); /**< null: line_plugin_callbacks() */
    void (*lost)(void);                      /**< the connection has closed; null: line_plugin_application_lost() */
} plugin_program_t;

/** Runs a plugin. @return the exit status. */
int plugin_main(const plugin_program_t *program, int count, char **words);

/** Its name, as from --name. */
const char *plugin_name(void);
/** The name of a line's endpoint, from --stem and the line's number: "FXS1". Valid until the next call. */
const char *plugin_endpoint(int number);

#ifdef __cplusplus
}
#endif

#endif
