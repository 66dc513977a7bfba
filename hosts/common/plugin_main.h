/* SPDX-License-Identifier: MIT */
/**
 * @file plugin_main.h
 * The main() of a plugin: options, commands and status, the same for all kinds of lines.
 *
 * What does it do?
 *   It reads the options that every plugin has (--name, --stem, --lines, and those of host.h) and the program's own,
 *   starts the bus, publishes the plugin, runs it, and leaves in order. On the console it knows status, help and quit;
 *   all other commands come from the program's table and are given a line's number: "1 dial 201".
 *
 * How does it work?
 *   A program fills plugin_program_t and calls plugin_main(). `begin` is called when the bus is there and adds the
 *   lines. --help and the console's help are written from the tables.
 *
 * C11 and C++17.
 */
#ifndef PLUGIN_MAIN_H
#define PLUGIN_MAIN_H

#include "libvoice_plugin.h"
#include "line_driver.h"

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
    const char *(*run)(int number, char *rest); /**< `rest` is for word_next(). @return null, or why not */
} plugin_command_t;

/** A plugin. Tables end with an entry without a name. What is not set is null or 0. */
typedef struct plugin_program {
    const char *program;     /**< of the process: "fxs_plugin" */
    const char *about;       /**< one sentence for --help */
    const char *name;        /**< of the plugin, unless --name is given */
    const char *stem;        /**< of the endpoints, unless --stem is given */
    const char *line_word;   /**< what one line is called: "telephone"; null: "line". Several have an "s" behind it */
    const char *acting_word; /**< who carries the commands out: "exchange"; null: line_word */
    const char *acting_text; /**< behind "Commands, one per line" in --help: ", as the exchange"; null: nothing */
    int lines;               /**< unless --lines is given */
    int most_lines;          /**< with --lines; not more than `lines`: there is no --lines. Both 0: no endpoints */
    int places; /**< what commands count up to instead of lines, where there are no endpoints: channels. 0: lines */
    const plugin_option_t *options;
    const plugin_command_t *commands;
    /** The bus is there, the plugin not yet on it: adds `lines` lines. It ends the process if it cannot: with
     *  host_fail() in C++, with a line on standard error and exit(1) in C. */
    void (*begin)(int lines);
    void (*status)(int lines); /**< answers the status command behind its first line; null: "1 registered" */
    libvoice_callbacks_t (*callbacks)(void); /**< null: line_plugin_callbacks() */
    const libvoice_dsp_callbacks_t *dsp; /**< of a DSP plugin, which has its objects then; copied. Null: it is none */
    void (*end)(void);                   /**< the process leaves: what is open is ended; null: nothing is */
    void (*lost)(void);                  /**< the connection has closed; null: line_plugin_application_lost() */
} plugin_program_t;

/** Runs a plugin. @return the exit status. */
int plugin_main(const plugin_program_t *program, int count, char **words);

/** Its name, as from --name. */
const char *plugin_name(void);
/** For `begin`: adds the next line, whose endpoint is named by --stem and its number (FXS1), as line_add() does. Ends
 *  the process when it cannot. */
line_t *plugin_add_line(const line_driver_t *driver, void *userdata, int32_t type, const char *codecs);

#ifdef __cplusplus
}
#endif

#endif
