// SPDX-License-Identifier: MIT
// Endpoints that plugins register.
#include "endpoints.h"

#include "codecs.h"
#include "console.h"
#include "line_events.h"
#include "plugins.h"

#include <stdio.h>
#include <string.h>

namespace {

bool is_plain_name(const char *name) {
    if (*name == 0)
        return false;
    for (; *name != 0; name++)
        if (*name <= ' ' || *name > '~' || *name == '.' || *name == '"')
            return false;
    return true;
}

const char *refuse_endpoint(const libvoice_endpoint_t *entry) {
    char path[LIBVOICE_ENDPOINT_PATH_BYTES];
    if (!is_plain_name(entry->name) || !is_plain_name(entry->plugin_table->plugin_name))
        return "bad name";
    snprintf(path, sizeof path, "%s.EndPoint.%s", entry->plugin_table->plugin_name, entry->name);
    if (strcmp(entry->endpoint_path, path) != 0)
        return "its path is not that of its plugin";
    for (const libvoice_endpoint_t &other : endpt_table)
        if (&other != entry && other.used && strcmp(other.endpoint_path, path) == 0)
            return "registered already";
    if (entry->type < VOICE_ENDPOINT_FXS || entry->type > VOICE_ENDPOINT_FXO)
        return "unknown type";
    return nullptr;
}

void give_number(line *line, const libvoice_endpoint_t *entry) {
    const char *name = entry->name;
    const plan_number *row = plan_find(&the_plan, line->plugin, name);
    if (row != nullptr)
        memcpy(line->number, row->number, sizeof line->number);
    else if (!plan_default_number(line->type, line->plugin, name, line->number))
        line->number[0] = 0;
    for (const struct line &other : lines)
        if (&other != line && other.used && strcmp(other.number, line->number) == 0)
            line->number[0] = 0; // taken: this one can call, but not be called
    snprintf(line->name, sizeof line->name, "%s", row != nullptr && row->name[0] != 0 ? row->name : name);
    static_assert(sizeof line->label >= sizeof line->number);
    if (line->number[0] != 0)
        memcpy(line->label, line->number, sizeof line->number);
    else
        snprintf(line->label, sizeof line->label, "%s.%s", entry->plugin_table->plugin_name, name);
}

} // namespace

int32_t app_register_endpoint(libvoice_endpoint_t *entry) {
    int32_t endpoint = static_cast<int32_t>(entry - endpt_table);
    entry->endpoint = endpoint;
    say_new_plugins();
    const char *wrong = refuse_endpoint(entry);
    if (wrong != nullptr) {
        say("endpoint refused plugin=%s: %s", entry->plugin_table->plugin_name, wrong);
        return 1;
    }
    line *line = &lines[endpoint];
    memset(line, 0, sizeof *line);
    line->used = true;
    line->reachable = true;
    line->endpoint = endpoint;
    line->type = entry->type;
    snprintf(line->plugin, sizeof line->plugin, "%s", entry->plugin_table->plugin_name);
    give_number(line, entry);

    char codecs[128] = "";
    size_t used = 0;
    for (uint32_t i = 0; i < entry->num_of_codecs && i < LIBVOICE_ENDPOINT_CODECS && used < sizeof codecs - 20; i++) {
        voice_codec_t codec;
        memcpy(&codec, entry->codec_list[i].bytes, sizeof codec);
        used += static_cast<size_t>(
            snprintf(codecs + used, sizeof codecs - used, "%s%s", i == 0 ? "" : ",", codec_name(codec.codec)));
    }
    say("endpoint %d %s.%s number=%s codecs=%s", endpoint, line->plugin, entry->name,
        line->number[0] != 0 ? line->number : "none", codecs);

    // Requests sent from here wait in the plugin until it has our answer.
    libvoice_set_params(endpoint, LIBVOICE_PARAM_zil_ep_dispname, line->name,
                        static_cast<uint32_t>(strlen(line->name) + 1));
    if (line->type == VOICE_ENDPOINT_DECT)
        libvoice_get_params(endpoint, LIBVOICE_PARAM_zil_dect_pp_type, static_cast<uint32_t>(endpoint));
    return 0;
}

void app_endpoint_deleted(libvoice_endpoint_t *entry) {
    line *line = line_of_endpoint(static_cast<int32_t>(entry - endpt_table));
    if (line == nullptr)
        return; // one that we refused
    say("endpoint %d %s.%s gone", line->endpoint, line->plugin, entry->name);
    line_gone(line, "is gone");
}
