// SPDX-License-Identifier: MIT
// The options that every host has.
#include "host.h"

#include "character.h"
#include "libvoice_plugin.h"

#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/un.h>

namespace {

const char *control_path;
const char *socket_path;
bool no_stdin;
bool convert_media;

constexpr const char *kEnvironmentHelp =
    "\nEnvironment, besides the two variables of --socket (see the manual page):\n"
    "  KEX_ALLOW_UIDS, KEX_ALLOW_GIDS, KEX_TIME_FACTOR, KEX_FAULTS, LISTEN_PID, LISTEN_FDS\n"
    "  NOTIFY_SOCKET, WATCHDOG_USEC, WATCHDOG_PID\n"
    "  ZIL_TRACE_LEVEL, ZIL_TRACE_ZONES, ZIL_TRACE_OUTPUT, ZIL_TRACE_TIME, ZIL_TRACE_COLOR\n";

bool is_text(const char *value) {
    for (size_t left = strlen(value); left > 0;) {
        const character read = character_read(value, left);
        if (read.bytes == 0 || character_is_control(read.code))
            return false;
        value += read.bytes;
        left -= read.bytes;
    }
    return true;
}

// A socket's address holds no more.
void validate_socket_path(const char *name, const char *path) {
    if (strlen(path) >= sizeof(sockaddr_un::sun_path))
        host_usage_error("--%s %s: a path has 1 to %zu characters", name, path, sizeof(sockaddr_un::sun_path) - 1);
}

// The process was started for what stands on its output, and for nothing else.
[[noreturn]] void answer_end() {
    if (fflush(stdout) != 0 || ferror(stdout))
        host_fail("standard output cannot be written: %s", strerror(errno));
    host_exit(0);
}

} // namespace

void host_validate_option(int code, const char *name, const char *value) {
    if (code == '?' || value == nullptr)
        return; // getopt_long has said what is wrong, or there is no value
    if (*value == 0)
        host_usage_error("--%s: the value is empty", name);
    if (strlen(value) >= PATH_MAX)
        host_usage_error("--%s: the value is too long: %d characters at most", name, PATH_MAX - 1);
    if (!is_text(value))
        host_usage_error("--%s: the value is no UTF-8 text", name);
}

void host_option(int code, const char *value, const char *help) {
    switch (code) {
    case HOST_OPTION_CONTROL:
        validate_socket_path("control", value);
        control_path = value;
        return;
    case HOST_OPTION_NO_STDIN:
        no_stdin = true;
        return;
    case HOST_OPTION_SOCKET:
        validate_socket_path("socket", value);
        socket_path = value;
        return;
    case HOST_OPTION_CONVERT_MEDIA:
        convert_media = true;
        return;
    case HOST_OPTION_HELP:
        fputs(help, stdout);
        fputs(kEnvironmentHelp, stdout);
        answer_end();
    case HOST_OPTION_VERSION:
        printf("%s %s (libvoice_plugin %s)\n", program_invocation_short_name, LIBVOICE_VERSION, libvoice_version());
        answer_end();
    default: // getopt_long has said what it does not know
        host_exit(kExitUsage);
    }
}

const char *host_control_path() {
    return control_path;
}

bool host_reads_stdin() {
    return !no_stdin;
}

const char *host_socket_path() {
    return socket_path;
}

bool host_converts_media() {
    return convert_media;
}
