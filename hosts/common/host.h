// SPDX-License-Identifier: MIT
/**
 * @file host.h
 * Start-up and leaving, the same in every host. Behind it stand host_options.cpp and host.cpp; the second is the only
 * file that a host on another bus replaces.
 */
#pragma once

#include <getopt.h>

#include "kex.h"

/** Options that every host has; values from 256 on, so that a host's own never meet them. */
enum host_option_code {
    HOST_OPTION_CONTROL = 256,
    HOST_OPTION_NO_STDIN,
    HOST_OPTION_SOCKET,
    HOST_OPTION_CONVERT_MEDIA,
    HOST_OPTION_HELP,
    HOST_OPTION_VERSION,
};

/** Their rows in a host's table for getopt_long(3), and their lines in its help. */
#define HOST_OPTIONS                                                                                                \
    {"control", required_argument, nullptr, HOST_OPTION_CONTROL},                                                   \
        {"no-stdin", no_argument, nullptr, HOST_OPTION_NO_STDIN},                                                   \
        {"socket", required_argument, nullptr, HOST_OPTION_SOCKET},                                                 \
        {"convert-media", no_argument, nullptr, HOST_OPTION_CONVERT_MEDIA},                                         \
        {"help", no_argument, nullptr, HOST_OPTION_HELP}, {"version", no_argument, nullptr, HOST_OPTION_VERSION}, { \
        nullptr, 0, nullptr, 0                                                                                      \
    }
#define HOST_OPTIONS_HELP                                                                             \
    "  --control PATH     also take commands on a local socket; the end of input then ends nothing\n" \
    "  --no-stdin         take no commands on standard input\n"                                       \
    "  --socket PATH      the bus socket (else $ZIL_VOIP_IPC_SOCKET and $ZIL_VOIP_IPC_SOCKET_URI)\n"  \
    "  --convert-media    addresses travel instead of descriptors; both sides must agree\n"           \
    "  --help, --version\n"

/** Exit statuses. */
constexpr int kExitFailure = 1; // could not do its work
constexpr int kExitUsage = 2;   // was asked for something that makes no sense

/** Ends the process when the value of an option, as getopt_long() has found it, is empty, too long or no text. */
void host_validate_option(int code, const char *name, const char *value);
/** Takes one of HOST_OPTIONS, or what getopt_long() makes of an unknown one. `help` is printed for --help. */
void host_option(int code, const char *value, const char *help);
/** What host_option() took; paths are null unless they were given. */
const char *host_control_path();
const char *host_socket_path();
bool host_reads_stdin();
bool host_converts_media();

/** Ends the process, which has nothing to give back yet; with kExitUsage it says where to find help. */
[[noreturn]] void host_exit(int status);
/** "error: ..." and where to find help, exit status 2. */
[[noreturn, gnu::format(printf, 1, 2)]] void host_usage_error(const char *format, ...);
/** "error: ...", exit status 1. */
[[noreturn, gnu::format(printf, 1, 2)]] void host_fail(const char *format, ...);

/** Makes the bus, and hands it to the library; voice_start.h does the rest of a start. From here on SIGTERM and SIGINT
 *  do not end the process but wait for host_run(): nothing is registered yet that such an end would leave behind. Ends
 *  the process when it cannot. */
kex_t *host_start(const char *process_name);
/** The bus of host_start(). */
kex_t *host_bus();
/** Runs the loop until host_stop(). SIGTERM and SIGINT, also those since host_start(), call `terminate` from the loop;
 *  1 s after the signal the process leaves anyway.
 *  @return the exit status. */
int host_run(void (*terminate)());
/** As if SIGTERM had come. */
void host_terminate();
/** Ends the loop. */
void host_stop();
/** After the loop: sends what is queued and gives the bus back. Signals do nothing from here on. */
void host_end();
