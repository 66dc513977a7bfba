// SPDX-License-Identifier: MIT
// Plugins that come and go.
#include "plugins.h"

#include "console.h"
#include "lines.h"
#include "timer.h"

#include <string.h>

namespace {

kex_timer_t *plugin_timer; // runs out as soon as a registration is through
char known_plugins[LIBVOICE_PLUGINS][LIBVOICE_PLUGIN_NAME_BYTES];

} // namespace

void plugins_look_soon() {
    timer_start(
        &plugin_timer, [](kex_timer_t *) { plugins_say_new(); }, 0);
}

// The library records a plugin without asking us: compare its table with what was said last.
void plugins_say_new() {
    for (uint32_t i = 0; i < LIBVOICE_PLUGINS; i++) {
        const voice_plugin_entry_t *entry = &voice_plugin_table[i];
        if (entry->used && strcmp(known_plugins[i], entry->plugin_name) != 0) {
            memcpy(known_plugins[i], entry->plugin_name, sizeof known_plugins[i]);
            say("plugin %s registered", entry->plugin_name);
        }
    }
}

// A connection has closed. The entry may be free already, when the plugin had taken its leave.
void plugins_peer_closed(kex_t *, peer_t *peer, void *) {
    plugins_say_new(); // one that came and went at once is told of too
    for (uint32_t i = 0; i < LIBVOICE_PLUGINS; i++) {
        if (voice_plugin_table[i].peer != peer)
            continue;
        if (!voice_plugin_table[i].used) {
            if (known_plugins[i][0] != 0)
                say("plugin %s left", known_plugins[i]);
            known_plugins[i][0] = 0;
            continue;
        }
        say("plugin %s lost", voice_plugin_table[i].plugin_name);
        // Its lines go one by one; none of them must be sent anything on behalf of the others.
        for (line &who : lines)
            if (who.used && endpt_table[who.endpoint].plugin_table == &voice_plugin_table[i])
                who.reachable = false;
        libvoice_plugin_deregister_by_peer(peer);
        known_plugins[i][0] = 0;
    }
}

void plugins_end() {
    timer_stop(&plugin_timer);
}
