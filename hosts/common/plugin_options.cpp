// SPDX-License-Identifier: MIT
// The command line of a plugin: its own options, those of every plugin, those of every host.
#include "plugin_options.h"

#include "console.h"
#include "host.h"
#include "plugin_help.h"
#include "voice_start.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr int kOwnOptions = 16; // that a program may add
enum { OPTION_NAME = 1, OPTION_STEM, OPTION_LINES, OPTION_OWN };

const plugin_program_t *plugin;
plugin_options taken;

void option_take(int code, const char *value) {
    long number;
    if (code == OPTION_NAME) {
        taken.name = value;
    } else if (code == OPTION_STEM) {
        taken.stem = value;
    } else if (code == OPTION_LINES) {
        if (!word_to_number(value, 1, plugin->most_lines, &number))
            host_usage_error("--lines %s: a number from 1 to %d", value, plugin->most_lines);
        taken.lines = static_cast<int>(number);
    } else if (plugin->options != nullptr && code >= OPTION_OWN && code < OPTION_OWN + kOwnOptions) {
        const plugin_option_t *own = &plugin->options[code - OPTION_OWN];
        const char *wrong = own->take(value);
        if (wrong != nullptr)
            host_usage_error("--%s %s: %s", own->name, value, wrong);
    } else {
        host_option(code, value, plugin_help_text(plugin));
    }
}

// Names that the application would cut or could not take apart.
void names_validate() {
    if (voice_plugin_name_wrong(taken.name) != nullptr)
        host_usage_error("plugin name '%s': 1 to %u plain characters without dots, blanks and quotes", taken.name,
                         LIBVOICE_PLUGIN_NAME_BYTES - 1);
    if (plugin->lines == 0)
        return;
    char last[64];
    plugin_endpoint_name(&taken, taken.lines, last, sizeof last);
    if (!voice_name_is_plain(taken.stem))
        host_usage_error("endpoint name '%s': plain characters without dots, blanks and quotes", last);
    if (strlen(last) >= LIBVOICE_ENDPOINT_NAME_BYTES)
        host_usage_error("endpoint name '%s': name too long: %u characters at most", last,
                         LIBVOICE_ENDPOINT_NAME_BYTES - 1);
}

} // namespace

void plugin_endpoint_name(const plugin_options *options, int number, char *text, size_t size) {
    snprintf(text, size, "%s%d", options->stem, number);
}

plugin_options plugin_options_read(const plugin_program_t *program, int count, char **words) {
    plugin = program;
    taken = {program->name, program->stem, program->lines};
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
    names_validate();
    return taken;
}
