// SPDX-License-Identifier: MIT
// Endpoints that plugins register.
#include "endpoints.h"

#include "codecs.h"
#include "console.h"
#include "country.h"
#include "host.h"
#include "kex_host.h"
#include "line_events.h"
#include "plugins.h"
#include "timer.h"
#include "voice_start.h"

#include <stdio.h>
#include <string.h>

namespace {

// The entry holds what fits; the call that runs has the whole name.
bool name_is_cut() {
    kex_text_t name;
    return kex_currentText(host_bus(), "endpoint_name", &name) &&
           strnlen(name.bytes, name.length) >= LIBVOICE_ENDPOINT_NAME_BYTES;
}

// Why an endpoint is not taken, or null.
const char *endpoint_validate(const libvoice_endpoint_t *entry) {
    char path[LIBVOICE_ENDPOINT_PATH_BYTES];
    if (!voice_name_is_plain(entry->name) || !voice_name_is_plain(entry->plugin_table->plugin_name))
        return "bad name";
    if (name_is_cut())
        return command_error("name too long: %u characters at most", LIBVOICE_ENDPOINT_NAME_BYTES - 1);
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

constexpr uint32_t kNumberRest = 30000; // ms that the number of a lost line waits for its plugin to come back

// The number of a lost line. Each has a time of its own, so that no other loss makes it longer.
struct resting_number {
    char number[kNumberBytes];
    char plugin[LIBVOICE_PLUGIN_NAME_BYTES];
    char endpoint[LIBVOICE_ENDPOINT_NAME_BYTES];
    kex_timer_t *timer; // null: this place is free
};
resting_number resting_numbers[LIBVOICE_ENDPOINTS];

resting_number *number_find_resting(const char *number) {
    for (resting_number &resting : resting_numbers)
        if (resting.timer != nullptr && strcmp(resting.number, number) == 0)
            return &resting;
    return nullptr;
}

bool number_rests_for(const resting_number *resting, const line *who) {
    return strcmp(resting->plugin, who->plugin) == 0 && strcmp(resting->endpoint, endpt_table[who->endpoint].name) == 0;
}

const line *number_holder(const char *number) {
    for (const line &who : lines)
        if (who.used && strcmp(who.number, number) == 0)
            return &who;
    return nullptr;
}

// The number that a line is to have, by the settings or by default; none for exchange lines, which are reached by the
// prefix.
void number_choose(line *who, const plan_number *row, const char *name) {
    if (who->type == VOICE_ENDPOINT_FXO)
        return;
    if (row != nullptr)
        memcpy(who->wanted, row->number, sizeof who->wanted);
    else if (!plan_default_number(who->type, who->plugin, name, who->wanted))
        who->wanted[0] = 0;
}

// Null, or why it has no number: it can call then, but not be called.
const char *number_take(line *who) {
    if (who->wanted[0] == 0)
        return who->type == VOICE_ENDPOINT_FXO ? nullptr : "its name gives none, and the settings do not name it";
    if (number_is_listed(plan_emergency(&the_plan), who->wanted)) // only a name can give one
        return command_error("%s is an emergency number", who->wanted);
    const line *holder = number_holder(who->wanted);
    if (holder != nullptr)
        return command_error("%s is taken by %s.%s", holder->number, holder->plugin,
                             endpt_table[holder->endpoint].name);
    resting_number *resting = number_find_resting(who->wanted);
    if (resting != nullptr && !number_rests_for(resting, who))
        return command_error("%s waits for %s.%s, which was lost", resting->number, resting->plugin, resting->endpoint);
    if (resting != nullptr)
        timer_stop(&resting->timer);
    memcpy(who->number, who->wanted, sizeof who->number);
    static_assert(sizeof who->label >= sizeof who->number);
    memcpy(who->label, who->number, sizeof who->number);
    return nullptr;
}

void line_name(line *who, const libvoice_endpoint_t *entry) {
    const plan_number *row = plan_find(&the_plan, who->plugin, entry->name);
    snprintf(who->name, sizeof who->name, "%s", row != nullptr && row->name[0] != 0 ? row->name : entry->name);
    snprintf(who->label, sizeof who->label, "%s.%s", entry->plugin_table->plugin_name, entry->name);
    number_choose(who, row, entry->name);
}

// A number that has become free goes to a line that wants it.
void number_give(const char *number) {
    for (line &who : lines) {
        if (!who.used || who.number[0] != 0 || who.wanted[0] == 0)
            continue;
        if (strcmp(who.wanted, number) == 0 && number_take(&who) == nullptr)
            say("endpoint %d %s.%s has the number %s now", who.endpoint, who.plugin, endpt_table[who.endpoint].name,
                who.number);
    }
}

void number_rested(kex_timer_t *timer) {
    for (resting_number &resting : resting_numbers)
        if (resting.timer == timer) {
            timer_stop(&resting.timer);
            return number_give(resting.number);
        }
}

// A plugin that crashed is mostly back soon, and its telephones should be called as before. @return no: too many rest.
bool number_rest(const line *lost, const char *endpoint) {
    for (resting_number &resting : resting_numbers) {
        if (resting.timer != nullptr)
            continue;
        timer_start(&resting.timer, number_rested, kNumberRest);
        memcpy(resting.number, lost->number, sizeof resting.number);
        memcpy(resting.plugin, lost->plugin, sizeof resting.plugin);
        snprintf(resting.endpoint, sizeof resting.endpoint, "%s", endpoint);
        return resting.timer != nullptr;
    }
    return false;
}

// "PCMA,PCMU"
void codecs_list(const libvoice_endpoint_t *entry, char *text, size_t size) {
    constexpr size_t kLongestName = 20;
    size_t used = 0;
    text[0] = 0;
    for (uint32_t i = 0; i < entry->num_of_codecs && i < LIBVOICE_ENDPOINT_CODECS && used < size - kLongestName; i++) {
        voice_codec_t codec;
        memcpy(&codec, entry->codec_list[i].bytes, sizeof codec);
        used +=
            static_cast<size_t>(snprintf(text + used, size - used, "%s%s", i == 0 ? "" : ",", codec_name(codec.codec)));
    }
}

} // namespace

int32_t endpoint_registered(libvoice_endpoint_t *entry) {
    int32_t endpoint = static_cast<int32_t>(entry - endpt_table);
    entry->endpoint = endpoint;
    plugins_say_new();
    plugins_endpoint_came(entry->plugin_table);
    const char *wrong = endpoint_validate(entry);
    if (wrong != nullptr) {
        say("endpoint refused plugin=%s: %s", entry->plugin_table->plugin_name, wrong);
        return 1;
    }
    line *who = &lines[endpoint];
    memset(who, 0, sizeof *who);
    who->used = true;
    who->reachable = true;
    who->endpoint = endpoint;
    who->type = entry->type;
    snprintf(who->plugin, sizeof who->plugin, "%s", entry->plugin_table->plugin_name);
    line_name(who, entry);
    const char *why = number_take(who);

    char codecs[128];
    codecs_list(entry, codecs, sizeof codecs);
    say("endpoint %d %s.%s number=%s codecs=%s", endpoint, who->plugin, entry->name,
        who->number[0] != 0 ? who->number : "none", codecs);
    if (why != nullptr)
        say("endpoint %d %s.%s has no number: %s", endpoint, who->plugin, entry->name, why);

    // Requests sent from here wait in the plugin until it has our answer.
    libvoice_set_params(endpoint, LIBVOICE_PARAM_zil_ep_dispname, who->name,
                        static_cast<uint32_t>(strlen(who->name) + 1));
    if (who->type == VOICE_ENDPOINT_DECT)
        libvoice_get_params(endpoint, LIBVOICE_PARAM_zil_dect_pp_type, static_cast<uint32_t>(endpoint));
    return 0;
}

void endpoint_deleted(libvoice_endpoint_t *entry) {
    line *who = line_of_endpoint(static_cast<int32_t>(entry - endpt_table));
    if (who == nullptr)
        return; // one that we refused
    say("endpoint %d %s.%s gone", who->endpoint, who->plugin, entry->name);
    const bool is_lost = !who->reachable;
    line_gone(who, "is gone");
    if (who->number[0] != 0 && !(is_lost && number_rest(who, entry->name)))
        number_give(who->number);
}

void endpoints_end() {
    for (resting_number &resting : resting_numbers)
        timer_stop(&resting.timer);
}
