// SPDX-License-Identifier: MIT
// The text interface of a host: lines in, lines out.
#include "console.h"

#include "control_socket.h"
#include "kex_host.h"
#include "printable.h"

#include <errno.h>
#ifdef __GLIBC__
#include <malloc.h> // mallinfo2
#endif
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kClients = 8;
constexpr size_t kLineBytes = 512;

// A source of commands. Standard input is one of them; its answers go to standard output.
struct source {
    int in = -1;
    bool watches;
    bool too_long; // the rest of an over-long line is passed over
    size_t used;
    char text[kLineBytes];
};

kex_t *console_bus;
console_command_t *run_command;
void (*input_ended)();
bool input_may_end;
bool input_has_failed;
source standard_input;
source clients[kClients];
source *asking; // whose command runs now

void forget(source *who) {
    kex_unwatch(console_bus, who->in);
    if (who != &standard_input)
        close(who->in);
    who->in = -1;
}

// A client that does not read its answers is closed rather than waited for.
void write_to_client(source *client, const char *line, size_t length) {
    if (send(client->in, line, length, MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(length))
        shutdown(client->in, SHUT_RDWR);
}

size_t format_line(char *line, size_t size, const char *format, va_list arguments) {
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers start the list
    int length = vsnprintf(line, size - 1, format, arguments);
    if (length < 0)
        length = 0;
    if (static_cast<size_t>(length) > size - 2)
        length = static_cast<int>(size - 2);
    line_make_printable(line);
    line[length] = '\n';
    line[length + 1] = 0;
    return static_cast<size_t>(length) + 1;
}

// For those who look for leaks: what is allocated must not grow from call to call.
const char *print_memory() {
#ifdef __GLIBC__
    answer("memory heap=%zu", mallinfo2().uordblks);
    return nullptr;
#else
    return "this C library does not tell";
#endif
}

// Whoever reads standard output misses a line that a full disk has taken: once it is said why.
void print(const char *line) {
    static bool has_said;
    if (fputs(line, stdout) != EOF || has_said)
        return;
    has_said = true;
    fprintf(stderr, "error: standard output cannot be written: %s\n", strerror(errno));
}

void run_line(source *who) {
    // A zero byte ends the text as well; a line without a word is no command.
    who->text[who->used] = 0;
    size_t length = strlen(who->text);
    while (length > 0 && strchr(" \t\r", who->text[length - 1]) != nullptr)
        who->text[--length] = 0;
    if (length == 0)
        return;
    asking = who;
    const char *why = nullptr;
    if (strcmp(who->text, "watch") == 0)
        who->watches = true;
    else if (strcmp(who->text, "memory") == 0)
        why = print_memory();
    else
        why = run_command(who->text);
    if (why == nullptr)
        answer("ok");
    else
        answer("error: %s", why);
    asking = nullptr;
}

void take_text(source *who, const char *text, size_t length) {
    for (size_t i = 0; i < length && who->in >= 0; i++) {
        if (text[i] != '\n') {
            if (who->used < kLineBytes - 1)
                who->text[who->used++] = text[i];
            else
                who->too_long = true;
            continue;
        }
        if (who->too_long) {
            asking = who;
            answer("error: a command has at most %zu characters", kLineBytes - 1);
            asking = nullptr;
        } else {
            run_line(who);
        }
        who->too_long = false;
        who->used = 0;
    }
}

void readable(int fd, void *userdata) {
    source *who = static_cast<source *>(userdata);
    char text[1024];
    ssize_t got = read(fd, text, sizeof text);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (got > 0) {
        take_text(who, text, static_cast<size_t>(got));
        return;
    }
    if (got < 0 && who == &standard_input) {
        input_has_failed = true;
        fprintf(stderr, "error: standard input cannot be read: %s\n", strerror(errno));
    }
    forget(who);
    if (who == &standard_input && !input_may_end)
        input_ended();
}

void client_take(int client) {
    for (source &entry : clients) {
        if (entry.in >= 0)
            continue;
        entry = source();
        entry.in = client;
        if (!kex_watch(console_bus, client, &entry, readable))
            forget(&entry);
        return;
    }
    static const char full[] = "error: too many control connections\n";
    (void)!send(client, full, sizeof full - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    close(client);
}

} // namespace

bool console_start(kex_t *bus, bool use_stdin, const char *path, bool keep_going, console_command_t *command,
                   void (*ended)()) {
    console_bus = bus;
    run_command = command;
    input_ended = ended;
    input_may_end = keep_going;
    input_has_failed = false;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    for (source &client : clients)
        client.in = -1;
    if (path != nullptr && !control_socket_open(bus, path, client_take)) {
        fprintf(stderr, "error: cannot listen on %s: %s\n", path, strerror(errno));
        return false;
    }
    if (!use_stdin)
        return true;
    standard_input.in = STDIN_FILENO;
    if (kex_watch(bus, STDIN_FILENO, &standard_input, readable))
        return true;
    standard_input.in = -1;
    if (keep_going)
        return true;
    fprintf(stderr, "error: standard input cannot be waited for (closed): use a pipe, --control or --no-stdin\n");
    return false;
}

bool console_stop() {
    for (source &client : clients)
        if (client.in >= 0)
            forget(&client);
    control_socket_close();
    return !input_has_failed;
}

void say(const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    size_t length = format_line(line, sizeof line, format, arguments);
    va_end(arguments);
    print(line);
    for (source &client : clients)
        if (client.in >= 0 && client.watches)
            write_to_client(&client, line, length);
}

void answer(const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    size_t length = format_line(line, sizeof line, format, arguments);
    va_end(arguments);
    if (asking == nullptr || asking == &standard_input)
        print(line);
    else
        write_to_client(asking, line, length);
}

const char *command_error(const char *format, ...) {
    static char why[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(why, sizeof why, format, arguments); // NOLINT(clang-analyzer-valist.Uninitialized): started above
    va_end(arguments);
    return why;
}
