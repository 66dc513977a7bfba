// SPDX-License-Identifier: MIT
// What a plugin says about itself, from its tables.
#include "plugin_help.h"

#include "host.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

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

const char *endpoints_text(const plugin_program_t *plugin) {
    if (plugin->most_lines > plugin->lines)
        return "STEM1, STEM2, ...";
    return plugin->lines == 1 ? "STEM1" : plugin->lines == 2 ? "STEM1 and STEM2" : "STEM1, STEM2, ...";
}

} // namespace

const char *plugin_line_word(const plugin_program_t *plugin) {
    return plugin->line_word != nullptr ? plugin->line_word : "line";
}

const char *plugin_help_text(const plugin_program_t *plugin) {
    static long_text help;
    char text[160];
    help = {};
    text_add(&help, "usage: %s [options]\n%s\n\n", plugin->program, plugin->about);
    snprintf(text, sizeof text, "plugin name, at most 19 characters (%s)", plugin->name);
    text_add_option(&help, "name", "NAME", text);
    if (plugin->lines > 0) {
        snprintf(text, sizeof text, "endpoints are %s, at most 15 characters each (%s)", endpoints_text(plugin),
                 plugin->stem);
        text_add_option(&help, "stem", "STEM", text);
    }
    if (plugin->most_lines > plugin->lines) {
        snprintf(text, sizeof text, "%ss, 1 to %d (%d)", plugin_line_word(plugin), plugin->most_lines, plugin->lines);
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

const char *plugin_verbs_text(const plugin_program_t *plugin) {
    static long_text list;
    list = {};
    for (const plugin_command_t *command = plugin->commands; command->verb != nullptr; command++)
        text_add(&list, "%s%s", list.used == 0 ? "" : ", ", command->verb);
    return list.text;
}

const char *plugin_commands_text(const plugin_program_t *plugin) {
    static long_text list;
    list = {};
    for (const plugin_command_t *command = plugin->commands; command != nullptr && command->verb != nullptr;
         command++) {
        char text[80];
        command_text(command, "", text, sizeof text);
        text_add(&list, "%s%s", list.used == 0 ? "" : " | ", text);
    }
    return list.text;
}
