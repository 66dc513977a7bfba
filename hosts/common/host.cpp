// SPDX-License-Identifier: MIT
// Start-up and leaving of a host on the bundled bus.
#include "host.h"

#include "kex_host.h"
#include "libvoice_plugin.h"
#include "printable.h"
#include "watchdog.h"

#include <errno.h>
#include <fcntl.h>
#include <initializer_list>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

kex_t *bus;
int termination = -1; // an eventfd: a signal handler may write it, the loop reads it
void (*on_terminate)();

void signal_handler(int) {
    int saved = errno;
    uint64_t one = 1;
    (void)!write(termination, &one, sizeof one);
    alarm(1); // whatever keeps us, even a registration that is never answered, ends then
    errno = saved;
}

void alarm_handler(int) {
    kex_stop(bus);
}

void terminate_from_loop(int fd, void *) {
    uint64_t count;
    (void)!read(fd, &count, sizeof count);
    on_terminate();
}

void signals_handle(void (*on_termination)(int), void (*on_alarm)(int)) {
    struct sigaction action = {};
    action.sa_flags = SA_RESTART;
    action.sa_handler = on_alarm;
    sigaction(SIGALRM, &action, nullptr);
    action.sa_handler = on_termination;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

// A signal that comes before the loop runs waits in the eventfd for its first turn.
void signals_begin() {
    termination = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (termination < 0 || !kex_watch(bus, termination, nullptr, terminate_from_loop))
        host_fail("cannot wait for signals: %s", strerror(errno));
    signals_handle(signal_handler, alarm_handler);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN); // a file that may not grow is told by write()
}

// The process is leaving: a second signal changes nothing, and none must touch a bus that is being given back.
void signals_end() {
    signals_handle(SIG_IGN, SIG_IGN);
    alarm(0);
    kex_unwatch(bus, termination);
    close(termination);
    termination = -1;
}

// A value that was given may be of any length: an error stays one that can be read.
void error_print(const char *format, va_list arguments) {
    char text[400];
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers start the list
    int length = vsnprintf(text, sizeof text, format, arguments);
    const bool is_cut = length >= static_cast<int>(sizeof text);
    line_make_printable(text); // also a last character of which a part is left
    fprintf(stderr, "error: %s%s\n", text, is_cut ? "..." : "");
}

// The bus would be given the number of a standard stream that is closed: what is printed would go to a peer, and what a
// peer sends would be read as commands. Reading what takes its place fails, unless the end of input ends nothing.
void standard_streams_fill() {
    const bool may_end = host_control_path() != nullptr || !host_reads_stdin();
    for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", fd == STDIN_FILENO && !may_end ? O_WRONLY : O_RDWR) != fd)
            exit(kExitFailure); // nobody could be told
}

// The library reads its two variables at each connection, and one does not follow from the other.
void socket_path_publish() {
    const char *path = host_socket_path();
    if (path == nullptr)
        return;
    char uri[sizeof(sockaddr_un::sun_path) + 16];
    snprintf(uri, sizeof uri, "kex://ipc:[%s]", path);
    setenv("ZIL_VOIP_IPC_SOCKET", path, 1);
    setenv("ZIL_VOIP_IPC_SOCKET_URI", uri, 1);
}

} // namespace

void host_exit(int status) {
    if (status == kExitUsage)
        fputs("Try --help.\n", stderr);
    exit(status);
}

void host_usage_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    error_print(format, arguments);
    va_end(arguments);
    host_exit(kExitUsage);
}

void host_fail(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    error_print(format, arguments);
    va_end(arguments);
    exit(kExitFailure);
}

kex_t *host_start(const char *process_name) {
    standard_streams_fill();
    socket_path_publish();
    bus = kex_create(process_name);
    if (bus == nullptr)
        host_fail("no message bus: %s", strerror(errno));
    signals_begin();
    libvoice_set_kex_handler(bus); // where drivers look for it, also before the start
    libvoice_set_convert_media(host_converts_media());
    return bus;
}

kex_t *host_bus() {
    return bus;
}

int host_run(void (*terminate)()) {
    on_terminate = terminate;
    watchdog_start();
    int status = kex_run(bus);
    int error = errno;
    watchdog_stop();
    if (status != 0)
        host_fail("the bus loop failed: %s", strerror(error));
    return 0;
}

void host_terminate() {
    signal_handler(SIGTERM);
}

void host_stop() {
    kex_stop(bus);
}

void host_end() {
    signals_end();
    kex_destroy(bus);
    bus = nullptr;
}
