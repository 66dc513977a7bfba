/* SPDX-License-Identifier: MIT */
/**
 * @file console.h
 * A host's text interface: what happens goes to standard output, commands come from standard input or a local socket.
 *
 * Each command is one line of text. It is answered with any number of lines and then "ok" or "error: <why>", to whoever
 * gave it. A client of the socket that says "watch" is also sent what happens. C11 and C++.
 */
#ifndef CONSOLE_H
#define CONSOLE_H

#include <stdbool.h>
#include <stdint.h>

#include "command_words.h"
#include "kex.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Runs a command. @return null when done, else why not (see command_error()). */
typedef const char *console_command_t(char *text);

/**
 * Starts reading commands.
 * @param path        a socket to listen on, or null
 * @param keep_going  the end of standard input is no reason to leave
 * @param ended       called when standard input ends and keep_going is false
 * @return whether it could; else a line on standard error says why
 */
bool console_start(kex_t *bus, bool use_stdin, const char *path, bool keep_going, console_command_t *command,
                   void (*ended)(void));
/** Closes the socket and takes its file away. @return no: standard input could not be read to its end, which a line on
 * standard error has said */
bool console_stop(void);

/** One thing happened: a line on standard output. */
__attribute__((format(printf, 1, 2))) void say(const char *format, ...);
/** One line of the answer to the command that runs now. */
__attribute__((format(printf, 1, 2))) void answer(const char *format, ...);
/** For a command whose answer comes later: what it returns. Whoever gave it is answered by command_finish(), and what
 *  they ask next waits until then. @param ticket  written: what it is called by */
const char *command_wait(uint32_t *ticket);
/** Whether the client that gave a command that waits has left; one that only sends no more has not. Nobody is told by
 *  itself. */
bool command_is_abandoned(uint32_t ticket);
/** Answers a command that waits, if who gave it is still there. @param why  null when done, else why not */
void command_finish(uint32_t ticket, const char *why);
/** The reason why a command is not carried out, for it to return. Valid until the next call. */
__attribute__((format(printf, 1, 2))) const char *command_error(const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif
