// SPDX-License-Identifier: MIT
// Options, commands and the life of a plugin process.
#include "plugin_main.h"

#include "console.h"
#include "host.h"
#include "kex_host.h"
#include "line.h"
#include "line_plugin.h"
#include "plugin.h"
#include "voice_start.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr int kOwnOptions = 16; // that a program may add
enum { OPTION_NAME = 1, OPTION_STEM, OPTION_LINES, OPTION_OWN };

const plugin_program_t *plugin;
const char *name;
const char *stem;
int lines;
int lines_added;

// ------------------------------------------------------------------------------------------------------------- Help

// A text that grows; what does not fit is left out.
struct long_text {
    char text[4096];
    size_t used;
    size_t row; // where the last row begins
};

[[gnu::format(printf, 2, 3)]] void text_add(long_text *text, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(text->text + text->used, sizeof text->text - text->used, format, arguments);
    va_end(arguments);
    if (length > 0 && text->used + static_cast<size_t>(length) < sizeof text->text)
        text->used += static_cast<size_t>(length);
}

void text_add_option(long_text *text, const char *option, const char *value, const char *help) {
    char both[40];
    snprintf(both, sizeof both, "--%s %s", option, value);
    text_add(text, "  %-18s %s\n", both, help);
}

// One item of the list of commands, on a new row when this one is full.
void text_add_command(long_text *text, const char *item, bool is_last) {
    constexpr size_t kRow = 104;
    if (text->used - text->row + strlen(item) + 3 > kRow) {
        text->text[text->used - 1] = '\n';
        text->row = text->used;
    }
    text_add(text, is_last ? "%s\n" : "%s | ", item);
}

void command_text(const plugin_command_t *command, const char *before, char *text, size_t size) {
    snprintf(text, size, "%s%s%s%s", before, command->verb, *command->arguments == 0 ? "" : " ", command->arguments);
}

const char *line_word() {
    return plugin->line_word != nullptr ? plugin->line_word : "line";
}

const char *endpoints_text() {
    if (plugin->most_lines > plugin->lines)
        return "STEM1, STEM2, ...";
    return plugin->lines == 1 ? "STEM1" : plugin->lines == 2 ? "STEM1 and STEM2" : "STEM1, STEM2, ...";
}

const char *help_text() {
    static long_text help;
    char text[160];
    help = {};
    text_add(&help, "usage: %s [options]\n%s\n\n", plugin->program, plugin->about);
    snprintf(text, sizeof text, "plugin name, at most 19 characters (%s)", plugin->name);
    text_add_option(&help, "name", "NAME", text);
    if (plugin->lines > 0) {
        snprintf(text, sizeof text, "endpoints are %s, at most 15 characters each (%s)", endpoints_text(),
                 plugin->stem);
        text_add_option(&help, "stem", "STEM", text);
    }
    if (plugin->most_lines > plugin->lines) {
        snprintf(text, sizeof text, "%ss, 1 to %d (%d)", line_word(), plugin->most_lines, plugin->lines);
        text_add_option(&help, "lines", "N", text);
    }
    for (const plugin_option_t *own = plugin->options; own != nullptr && own->name != nullptr; own++)
        text_add_option(&help, own->name, own->value, own->help);
    text_add(&help, "%s\n", HOST_OPTIONS_HELP);
    help.row = help.used;
    text_add(&help, "Commands, one per line%s: ", plugin->acting_text != nullptr ? plugin->acting_text : "");
    for (const plugin_command_t *command = plugin->commands; command != nullptr && command->verb != nullptr;
         command++) {
        command_text(command, "N ", text, sizeof text);
        text_add_command(&help, text, false);
    }
    text_add_command(&help, "status", false);
    text_add_command(&help, "help", false);
    text_add_command(&help, "quit", true);
    return help.text;
}

// "off, on, dial, flash"
const char *verbs() {
    static long_text list;
    list = {};
    for (const plugin_command_t *command = plugin->commands; command->verb != nullptr; command++)
        text_add(&list, "%s%s", list.used == 0 ? "" : ", ", command->verb);
    return list.text;
}

// --------------------------------------------------------------------------------------------------------- Commands

const char *answer_status() {
    answer("%s %s", name, plugin_is_connected() ? "connected" : "without application");
    if (plugin->status != nullptr) {
        plugin->status(lines);
        return nullptr;
    }
    for (uint32_t i = 0; i < line_count(); i++)
        answer("%u %s", i + 1, line_is_registered(line_at(i)) ? "registered" : "not registered");
    return nullptr;
}

const char *answer_help() {
    long_text list = {};
    for (const plugin_command_t *command = plugin->commands; command != nullptr && command->verb != nullptr;
         command++) {
        char text[80];
        command_text(command, "", text, sizeof text);
        text_add(&list, "%s%s", list.used == 0 ? "" : " | ", text);
    }
    if (plugin->commands != nullptr)
        answer("1..%d %s; status; help; quit; watch", lines, list.text);
    else
        answer("status; help; quit; watch");
    return nullptr;
}

const char *line_command(int number, const char *verb, char *rest) {
    if (verb == nullptr)
        return command_error("%d what? %s", number, verbs());
    for (const plugin_command_t *command = plugin->commands; command->verb != nullptr; command++)
        if (strcmp(command->verb, verb) == 0)
            return command->run(number, rest);
    const char *who = plugin->acting_word != nullptr ? plugin->acting_word : line_word();
    return command_error("%s %s cannot '%s': %s", strchr("aeiou", *who) != nullptr ? "an" : "a", who, verb, verbs());
}

const char *run_command(char *text) {
    char *rest = text;
    const char *first = next_word(&rest);
    if (strcmp(first, "status") == 0)
        return answer_status();
    if (strcmp(first, "help") == 0)
        return answer_help();
    if (strcmp(first, "quit") == 0) {
        host_terminate();
        return nullptr;
    }
    long number;
    if (plugin->commands == nullptr)
        return command_error("unknown command '%s'; try help", first);
    if (!read_number(first, 1, lines, &number))
        return command_error("'%s' is neither a command nor a %s from 1 to %d", first, line_word(), lines);
    const char *verb = next_word(&rest);
    return line_command(static_cast<int>(number), verb, rest);
}

// ---------------------------------------------------------------------------------------------------------- Options

// "FXS1" for the first endpoint of the stem FXS.
void endpoint_name(int number, char *text, size_t size) {
    snprintf(text, size, "%s%d", stem, number);
}

void option_take(int code, const char *value) {
    long number;
    if (code == OPTION_NAME) {
        name = value;
    } else if (code == OPTION_STEM) {
        stem = value;
    } else if (code == OPTION_LINES) {
        if (!read_number(value, 1, plugin->most_lines, &number))
            host_usage_error("--lines %s: a number from 1 to %d", value, plugin->most_lines);
        lines = static_cast<int>(number);
    } else if (plugin->options != nullptr && code >= OPTION_OWN && code < OPTION_OWN + kOwnOptions) {
        const plugin_option_t *own = &plugin->options[code - OPTION_OWN];
        const char *wrong = own->take(value);
        if (wrong != nullptr)
            host_usage_error("--%s %s: %s", own->name, value, wrong);
    } else {
        host_option(code, value, help_text());
    }
}

void options_read(int count, char **words) {
    static const option of_host[] = {HOST_OPTIONS};
    option table[3 + kOwnOptions + sizeof of_host / sizeof of_host[0]];
    int used = 0;
    table[used++] = {"name", required_argument, nullptr, OPTION_NAME};
    if (plugin->lines > 0)
        table[used++] = {"stem", required_argument, nullptr, OPTION_STEM};
    if (plugin->most_lines > plugin->lines)
        table[used++] = {"lines", required_argument, nullptr, OPTION_LINES};
    for (int i = 0; plugin->options != nullptr && plugin->options[i].name != nullptr && i < kOwnOptions; i++)
        table[used++] = {plugin->options[i].name, required_argument, nullptr, OPTION_OWN + i};
    memcpy(&table[used], of_host, sizeof of_host);
    for (int code, row = 0; (code = getopt_long(count, words, "", table, &row)) != -1;) {
        host_validate_option(code, table[row].name, optarg);
        option_take(code, optarg);
    }
    if (optind < count)
        host_usage_error("'%s' is no option", words[optind]);
    if (voice_plugin_name_wrong(name) != nullptr)
        host_usage_error("plugin name '%s': 1 to %u plain characters without dots, blanks and quotes", name,
                         LIBVOICE_PLUGIN_NAME_BYTES - 1);
    if (plugin->lines == 0)
        return;
    char last[64];
    endpoint_name(lines, last, sizeof last);
    if (!voice_name_is_plain(stem))
        host_usage_error("endpoint name '%s': plain characters without dots, blanks and quotes", last);
    if (strlen(last) >= LIBVOICE_ENDPOINT_NAME_BYTES)
        host_usage_error("endpoint name '%s': name too long: %u characters at most", last,
                         LIBVOICE_ENDPOINT_NAME_BYTES - 1);
}

// ---------------------------------------------------------------------------------------------------- Being taken in

constexpr uint32_t kLook = 1000;     // ms between two looks
constexpr uint32_t kLooksToWait = 2; // until what is missing is said

#define NO_APPLICATION                                                                                   \
    "no application at %s: start voice_application there, or say where it is by --socket PATH (else by " \
    "ZIL_VOIP_IPC_SOCKET_URI)"

int32_t (*init)(const char *country); // the plugin's own callback
bool is_leaving;
bool was_connected;    // ever
bool looked_connected; // at the last look
uint32_t looks;        // since that changed
kex_timer_t *look_timer;
kex_timer_t *input_timer;
int exit_status;

int32_t init_came(const char *country) {
    if (!is_leaving)
        return init(country);
    plugin_leave();
    return 0;
}

// The library waits for "init", or for an application, as long as it takes, and without a word on standard output.
void look(kex_timer_t *timer) {
    if (voice_plugin_is_initialised())
        return;
    const bool connected = plugin_is_connected();
    looks = connected == looked_connected ? looks + 1 : 1;
    looked_connected = connected;
    was_connected = was_connected || connected;
    if (looks == kLooksToWait && connected)
        say("no \"init\" came from the application: is another plugin named %s running? --name NAME gives this one a "
            "name of "
            "its own",
            name);
    if (looks == kLooksToWait && !was_connected)
        say(NO_APPLICATION, libvoice_get_ipc_socket_uri());
    kex_timer_start(timer, kLook);
}

void look_begin() {
    looks = 0;
    if (look_timer == nullptr)
        look_timer = kex_timer_create();
    kex_timer_setHandler(look_timer, look);
    kex_timer_start(look_timer, kLook);
}

// A young connection may be registered, with "init" on its way: that is waited for, as long as host_run() lets us.
void leave() {
    is_leaving = true;
    if (voice_plugin_is_initialised() || !plugin_is_connected() || looks >= kLooksToWait)
        plugin_leave();
}

void plugin_start(kex_t *bus) {
    libvoice_callbacks_t callbacks = plugin->callbacks != nullptr ? plugin->callbacks() : line_plugin_callbacks();
    init = callbacks.voice_plugin_init;
    callbacks.voice_plugin_init = init_came;
    libvoice_set_ep_suffix(stem);
    const char *wrong = plugin->dsp != nullptr ? voice_dsp_plugin_start(bus, name, &callbacks, plugin->dsp)
                                               : voice_plugin_start(bus, name, &callbacks);
    if (wrong != nullptr)
        host_fail("%s: %s", name, wrong);
}

void leave_without_input(kex_timer_t *) {
    if (!was_connected && !plugin_is_connected()) {
        fprintf(stderr, "error: " NO_APPLICATION "\n", libvoice_get_ipc_socket_uri());
        exit_status = kExitFailure;
    }
    host_terminate();
}

// The input may end before the first attempt to connect, which has the first turn of all timers.
void input_ended() {
    input_timer = kex_timer_create();
    kex_timer_setHandler(input_timer, leave_without_input);
    kex_timer_start(input_timer, 0);
}

void application_lost(kex_t *, peer_t *, void *) {
    was_connected = true;
    look_begin();
    if (plugin->lost != nullptr)
        plugin->lost();
    else
        line_plugin_application_lost();
    if (is_leaving)
        host_stop();
}

} // namespace

const char *plugin_name() {
    return name;
}

line_t *plugin_add_line(const line_driver_t *driver, void *userdata, int32_t type, const char *codecs) {
    char endpoint[64];
    endpoint_name(++lines_added, endpoint, sizeof endpoint);
    line_t *line = line_add(driver, userdata, type, endpoint, codecs);
    if (line == nullptr)
        host_fail("line %s with the codecs %s cannot be added", endpoint, codecs);
    return line;
}

int plugin_main(const plugin_program_t *program, int count, char **words) {
    plugin = program;
    name = program->name;
    stem = program->stem;
    lines = program->lines;
    options_read(count, words);
    kex_t *bus = host_start(program->program);
    program->begin(lines);
    plugin_start(bus);
    kex_onPeerClosed(bus, application_lost, nullptr);
    kex_onCall(bus, line_plugin_call_begins, nullptr);
    kex_onFailed(bus, line_plugin_call_failed, nullptr);
    bool keep_going = host_control_path() != nullptr || !host_reads_stdin();
    if (!console_start(bus, host_reads_stdin(), host_control_path(), keep_going, run_command, input_ended))
        return kExitFailure;
    look_begin();

    int result = host_run(leave);
    if (!console_stop())
        exit_status = kExitFailure;
    line_plugin_end();
    kex_timer_destroy(look_timer);
    kex_timer_destroy(input_timer);
    host_end();
    return result != 0 ? result : exit_status;
}
