// SPDX-License-Identifier: MIT
// Commands of a plugin: those that every plugin has, and those of its table behind a line's number.
#include "plugin_commands.h"

#include "console.h"
#include "host.h"
#include "line.h"
#include "line_plugin.h"
#include "plugin.h"
#include "plugin_help.h"

#include <string.h>

namespace {

const plugin_program_t *plugin;
plugin_options options;

const char *answer_status() {
    answer("%s %s", options.name, plugin_is_connected() ? "connected" : "without application");
    if (plugin->status != nullptr) {
        plugin->status(options.lines);
        return nullptr;
    }
    for (uint32_t i = 0; i < line_count(); i++)
        answer("%u %s", i + 1, line_is_registered(line_at(i)) ? "registered" : "not registered");
    return nullptr;
}

// How far commands count.
int places() {
    return plugin->places > 0 ? plugin->places : options.lines;
}

const char *answer_help() {
    if (plugin->commands != nullptr)
        answer("1..%d %s; status; help; quit; watch", places(), plugin_commands_text(plugin));
    else
        answer("status; help; quit; watch");
    return nullptr;
}

const char *line_command(int number, const char *verb, char *rest) {
    if (verb == nullptr)
        return command_error("%d what? %s", number, plugin_verbs_text(plugin));
    for (const plugin_command_t *command = plugin->commands; command->verb != nullptr; command++)
        if (strcmp(command->verb, verb) == 0)
            return command->run(number, rest);
    const char *who = plugin->acting_word != nullptr ? plugin->acting_word : plugin_line_word(plugin);
    return command_error("%s %s cannot '%s': %s", strchr("aeiou", *who) != nullptr ? "an" : "a", who, verb,
                         plugin_verbs_text(plugin));
}

} // namespace

void plugin_commands_begin(const plugin_program_t *program, const plugin_options *read) {
    plugin = program;
    options = *read;
}

const char *plugin_command_run(char *text) {
    char *rest = text;
    const char *first = word_next(&rest);
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
    if (!word_to_number(first, 1, places(), &number))
        return command_error("'%s' is neither a command nor a %s from 1 to %d", first, plugin_line_word(plugin),
                             places());
    const char *verb = word_next(&rest);
    return line_command(static_cast<int>(number), verb, rest);
}
