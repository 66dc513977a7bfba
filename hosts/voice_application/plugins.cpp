// SPDX-License-Identifier: MIT
// Plugins that come and go.
#include "plugins.h"

#include "console.h"
#include "host.h"
#include "kex_host.h"
#include "lines.h"
#include "timer.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr uint32_t kFirstEndpointLimit = 2000; // ms from a plugin's registration to its first endpoint

// What was said of an entry of the library's table.
struct known_plugin {
    char name[LIBVOICE_PLUGIN_NAME_BYTES]; // empty: nothing
    const peer_t *peer;                    // whose name it is, only to be compared
    kex_timer_t *timer;                    // until its first endpoint comes
};

kex_timer_t *plugin_timer; // runs out as soon as a registration is through
known_plugin known_plugins[LIBVOICE_PLUGINS];

void plugin_forget(known_plugin *known) {
    known->name[0] = 0;
    known->peer = nullptr;
    timer_stop(&known->timer);
}

// Mostly its objects are not named like it, or have no functions: then "init" has found nothing to run.
void endpoint_missing(kex_timer_t *timer) {
    for (known_plugin &known : known_plugins) {
        if (known.timer != timer)
            continue;
        timer_stop(&known.timer);
        say("plugin %s registered, but no endpoint came (right for a DSP plugin only)", known.name);
        return;
    }
}

// The name in the call that runs, as the library reads it: up to a zero byte. False: there is none.
bool current_name_read(char *name, size_t size) {
    kex_text_t text;
    if (!kex_currentText(host_bus(), "plugin_name", &text))
        return false;
    snprintf(name, size, "%.*s", static_cast<int>(text.length), text.bytes);
    return true;
}

// The entry of a name that another connection holds than the one whose call runs, or null.
const voice_plugin_entry_t *entry_of_another(const char *name, peer_t *caller) {
    for (const voice_plugin_entry_t &entry : voice_plugin_table)
        if (entry.used && entry.peer != caller && strcmp(entry.plugin_name, name) == 0)
            return &entry;
    return nullptr;
}

} // namespace

bool plugins_reject_current() {
    kex_call_t call;
    char name[128];
    if (!kex_currentCall(host_bus(), &call) || !current_name_read(name, sizeof name))
        return false;
    if (strlen(name) >= LIBVOICE_PLUGIN_NAME_BYTES) {
        say("plugin %s rejected: name too long: %u characters at most", name, LIBVOICE_PLUGIN_NAME_BYTES - 1);
        return true;
    }
    const voice_plugin_entry_t *holder = entry_of_another(name, call.peer);
    if (holder == nullptr)
        return false;
    say("plugin %s rejected: %s (process %d) wants the name of %s (process %d)", name, peer_processName(call.peer),
        peer_processId(call.peer), peer_processName(holder->peer), peer_processId(holder->peer));
    return true;
}

int plugins_may_call(kex_t *bus, void *) {
    constexpr char kLeave[] = "deregister_plugin";
    kex_call_t call;
    char name[128];
    if (!kex_currentCall(bus, &call) || call.function.length != strlen(kLeave) ||
        memcmp(call.function.bytes, kLeave, call.function.length) != 0 || !current_name_read(name, sizeof name))
        return 1;
    plugins_say_new(); // one that takes leave in the turn after it came, too
    const voice_plugin_entry_t *holder = entry_of_another(name, call.peer);
    if (holder == nullptr)
        return 1;
    say("plugin %s stays: %s (process %d) cannot deregister what %s (process %d) registered", name,
        peer_processName(call.peer), peer_processId(call.peer), peer_processName(holder->peer),
        peer_processId(holder->peer));
    return 0;
}

void plugins_endpoint_came(const voice_plugin_entry_t *entry) {
    timer_stop(&known_plugins[entry - voice_plugin_table].timer);
}

void plugins_look_soon() {
    timer_start(
        &plugin_timer, [](kex_timer_t *) { plugins_say_new(); }, 0);
}

// The library records a plugin without asking us: compare its table with what was said last.
void plugins_say_new() {
    for (uint32_t i = 0; i < LIBVOICE_PLUGINS; i++) {
        const voice_plugin_entry_t *entry = &voice_plugin_table[i];
        known_plugin *known = &known_plugins[i];
        if (!entry->used || (known->peer == entry->peer && strcmp(known->name, entry->plugin_name) == 0))
            continue;
        if (known->name[0] != 0) // it has left, and its connection is still to close
            say("plugin %s left", known->name);
        memcpy(known->name, entry->plugin_name, sizeof known->name);
        known->peer = entry->peer;
        say("plugin %s registered", entry->plugin_name);
        timer_start(&known->timer, endpoint_missing, kFirstEndpointLimit);
    }
}

// A connection has closed. The entry may be free already, when the plugin had taken its leave.
void plugins_peer_closed(kex_t *, peer_t *peer, void *) {
    plugins_say_new(); // one that came and went at once is told of too
    for (uint32_t i = 0; i < LIBVOICE_PLUGINS; i++) {
        if (voice_plugin_table[i].peer != peer)
            continue;
        if (!voice_plugin_table[i].used) {
            if (known_plugins[i].name[0] != 0)
                say("plugin %s left", known_plugins[i].name);
            plugin_forget(&known_plugins[i]);
            continue;
        }
        say("plugin %s lost", voice_plugin_table[i].plugin_name);
        // Its lines go one by one; none of them must be sent anything on behalf of the others.
        for (line &who : lines)
            if (who.used && endpt_table[who.endpoint].plugin_table == &voice_plugin_table[i])
                who.reachable = false;
        libvoice_plugin_deregister_by_peer(peer);
        plugin_forget(&known_plugins[i]);
    }
}

void plugins_end() {
    timer_stop(&plugin_timer);
    for (known_plugin &known : known_plugins)
        plugin_forget(&known);
}
