// SPDX-License-Identifier: MIT
// The text interface of a host: lines in, lines out.
#include "console.h"

#include "console_line.h"
#include "control_socket.h"
#include "kex_host.h"

#include <errno.h>
#ifdef __GLIBC__
#include <malloc.h> // mallinfo2
#endif
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kClients = 8;
constexpr size_t kLineBytes = 512;
constexpr size_t kReadBytes = 1024; // at once
constexpr char kWaits[] = "waits";  // what command_wait() gives is known by its address

// A source of commands. Standard input is one of them; its answers go to standard output.
struct source {
    int in = -1;
    bool watches;
    bool too_long; // the rest of an over-long line is passed over
    size_t used;
    char text[kLineBytes];
    uint32_t ticket; // of the command that is not answered yet; 0: none
    size_t later;    // bytes read behind that command, which wait for its answer
    char rest[kReadBytes];
};

kex_t *console_bus;
console_command_t *run_command;
void (*input_ended)();
bool input_may_end;
bool input_has_failed;
source standard_input;
source clients[kClients];
source *asking; // whose command runs now
uint32_t last_ticket;

void source_forget(source *who) {
    kex_unwatch(console_bus, who->in);
    if (who != &standard_input)
        close(who->in);
    who->in = -1;
}

// A client that does not read its answers is closed rather than waited for.
void client_write(source *client, const char *line, size_t length) {
    if (send(client->in, line, length, MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(length))
        shutdown(client->in, SHUT_RDWR);
}

// For those who look for leaks: what is allocated must not grow from call to call.
const char *memory_print() {
#ifdef __GLIBC__
    answer("memory heap=%zu", mallinfo2().uordblks);
    return nullptr;
#else
    return "this C library does not tell";
#endif
}

void answer_end(const char *why) {
    if (why == nullptr)
        answer("ok");
    else
        answer("error: %s", why);
}

void line_run(source *who) {
    // A zero byte ends the text as well; a line without a word is no command.
    who->text[who->used] = 0;
    size_t length = strlen(who->text);
    while (length > 0 && strchr(" \t\r", who->text[length - 1]) != nullptr)
        who->text[--length] = 0;
    if (length == 0)
        return;
    asking = who;
    const char *why = nullptr;
    char *text = who->text + strspn(who->text, " \t");
    if (strcmp(text, "watch") == 0)
        who->watches = true;
    else
        why = strcmp(text, "memory") == 0 ? memory_print() : run_command(text);
    if (why != kWaits)
        answer_end(why);
    asking = nullptr;
}

// Nothing more is read from there until the command is answered.
void text_keep(source *who, const char *text, size_t length) {
    memmove(who->rest, text, length);
    who->later = length;
}

void text_take(source *who, const char *text, size_t length) {
    for (size_t i = 0; i < length && who->in >= 0; i++) {
        if (who->ticket != 0) {
            text_keep(who, text + i, length - i);
            return;
        }
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
            line_run(who);
        }
        who->too_long = false;
        who->used = 0;
    }
}

void source_readable(int fd, void *userdata) {
    source *who = static_cast<source *>(userdata);
    char text[kReadBytes];
    ssize_t got = read(fd, text, sizeof text);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (got > 0) {
        text_take(who, text, static_cast<size_t>(got));
        if (who->ticket != 0 && who->in >= 0)
            kex_unwatch(console_bus, who->in);
        return;
    }
    if (got < 0 && who == &standard_input) {
        input_has_failed = true;
        fprintf(stderr, "error: standard input cannot be read: %s\n", strerror(errno));
    }
    source_forget(who);
    if (who == &standard_input && !input_may_end)
        input_ended();
}

// What was read meanwhile comes first, then the source itself.
void source_resume(source *who) {
    const size_t later = who->later;
    who->later = 0;
    text_take(who, who->rest, later);
    if (who->ticket == 0 && who->in >= 0 && !kex_watch(console_bus, who->in, who, source_readable))
        source_forget(who);
}

source *source_of(uint32_t ticket) {
    if (standard_input.ticket == ticket)
        return &standard_input;
    for (source &client : clients)
        if (client.in >= 0 && client.ticket == ticket)
            return &client;
    return nullptr;
}

void client_take(int client) {
    for (source &entry : clients) {
        if (entry.in >= 0)
            continue;
        entry = source();
        entry.in = client;
        if (!kex_watch(console_bus, client, &entry, source_readable))
            source_forget(&entry);
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
    standard_input = source();
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
    if (kex_watch(bus, STDIN_FILENO, &standard_input, source_readable))
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
            source_forget(&client);
    standard_input.ticket = 0; // nobody waits any more
    control_socket_close();
    return !input_has_failed;
}

void say(const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    size_t length = console_line_write(line, sizeof line, format, arguments);
    va_end(arguments);
    console_line_print(line);
    for (source &client : clients)
        if (client.in >= 0 && client.watches)
            client_write(&client, line, length);
}

void answer(const char *format, ...) {
    char line[1024];
    va_list arguments;
    va_start(arguments, format);
    size_t length = console_line_write(line, sizeof line, format, arguments);
    va_end(arguments);
    if (asking == nullptr || asking == &standard_input)
        console_line_print(line);
    else
        client_write(asking, line, length);
}

const char *command_wait(uint32_t *ticket) {
    *ticket = ++last_ticket;
    if (asking != nullptr)
        asking->ticket = *ticket;
    return kWaits;
}

bool command_is_abandoned(uint32_t ticket) {
    const source *who = ticket != 0 ? source_of(ticket) : nullptr;
    pollfd state = {who != nullptr && who != &standard_input ? who->in : -1, 0, 0}; // -1: none
    return poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
}

void command_finish(uint32_t ticket, const char *why) {
    source *who = ticket != 0 ? source_of(ticket) : nullptr;
    if (who == nullptr)
        return;
    source *const before = asking; // another one's command may cause it
    who->ticket = 0;
    asking = who;
    answer_end(why);
    asking = nullptr;
    source_resume(who);
    asking = before;
}

const char *command_error(const char *format, ...) {
    static char why[kLineBytes + 256]; // a word of the command, and the reason
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(why, sizeof why, format, arguments); // NOLINT(clang-analyzer-valist.Uninitialized): started above
    va_end(arguments);
    return why;
}
