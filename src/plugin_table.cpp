// SPDX-License-Identifier: MIT
// The voice application's table of registered plugins: which name each gave, and over which connection it is reached.
#include <string.h> // memset

#include "libvoice_plugin.h"
#include "text.h"
#include "trace.h"

extern "C" {
voice_plugin_entry_t voice_plugin_table[LIBVOICE_PLUGINS];
}

namespace {

using Entry = voice_plugin_entry_t;

// The index of the first entry that satisfies the test, or -1.
template <typename Test>
int32_t index_find(Test test) {
    for (int32_t i = 0; i < LIBVOICE_PLUGINS; ++i)
        if (test(voice_plugin_table[i]))
            return i;
    return -1;
}

int32_t index_of_name(const char *name) {
    return index_find([name](const Entry &entry) { return entry.used && voice::same_name(entry.plugin_name, name); });
}

// The end of both ways to deregister: an endpoint goes when it points at this plugin, and no other.
void plugin_remove(Entry *plugin) {
    for (libvoice_endpoint_t &endpoint : endpt_table)
        if (endpoint.used && endpoint.plugin_table == plugin)
            libvoice_delete_endpoint_entry(&endpoint);
    libvoice_plugin_free_entry(plugin);
}

} // namespace

extern "C" {

void libvoice_plugin_init_table() {
    memset(voice_plugin_table, 0, sizeof voice_plugin_table);
}

void libvoice_plugin_print_table(int32_t only_used) {
    for (int32_t i = 0; i < LIBVOICE_PLUGINS; ++i) {
        Entry &e = voice_plugin_table[i];
        if (only_used && !e.used)
            continue;
        // clang-format off
        TRACE_INFO("voice_plugin_table[%d]                \t%p", i, static_cast<void *>(&e));
        TRACE_INFO("voice_plugin_table[%d].used           \t%d", i, static_cast<int>(e.used));
        TRACE_INFO("voice_plugin_table[%d].plugin_name    \t%s", i, e.plugin_name);
        TRACE_INFO("voice_plugin_table[%d].peer           \t%p", i, static_cast<void *>(e.peer));
        // clang-format on
    }
}

voice_plugin_entry_t *libvoice_plugin_get_entry_by_index(uint32_t index) {
    if (index >= LIBVOICE_PLUGINS) {
        TRACE_ERROR("Invalid Plugin Index %d", static_cast<int>(index));
        return nullptr;
    }
    TRACE_INFO("getting plugin entry for index %d", static_cast<int>(index));
    Entry &entry = voice_plugin_table[index];
    return entry.used ? &entry : nullptr;
}

voice_plugin_entry_t *libvoice_plugin_get_entry(const char *name) {
    if (!name) {
        TRACE_ERROR("NULL  param !!");
        return nullptr;
    }
    TRACE_INFO("getting plugin entry for plugin %s", name);
    const int32_t index = index_of_name(name);
    if (index < 0)
        return nullptr;
    TRACE_INFO("voice_plugin_table[%d] matches plugin name %s", index, name);
    return &voice_plugin_table[index];
}

peer_t *libvoice_plugin_get_peer_by_name(const char *name) {
    const Entry *entry = libvoice_plugin_get_entry(name);
    return entry ? entry->peer : nullptr;
}

int32_t libvoice_plugin_get_index(const char *name) {
    if (!name) {
        TRACE_ERROR("NULL  param !!");
        return -1;
    }
    // Kept: it only searches, whatever the trace message says.
    TRACE_INFO("getting or creating plugin entry for plugin %s", name);
    const int32_t index = index_of_name(name);
    if (index < 0)
        return -1;
    TRACE_INFO("voice_plugin_table[ plugin_table_index = %d ] matches plugin name %s", index, name);
    return index;
}

int32_t libvoice_plugin_get_next_free_index() {
    TRACE_INFO("getting plugin next free index");
    const int32_t index = index_find([](const Entry &entry) { return !entry.used; });
    if (index < 0)
        return -1;
    TRACE_INFO("voice_plugin_table[ plugin_table_index = %d ] is free", index);
    return index;
}

int32_t libvoice_plugin_get_index_by_peer(peer_t *peer) {
    if (!peer) {
        TRACE_ERROR("NULL  param !!");
        return -1;
    }
    TRACE_INFO("getting plugin entry for peer %p", static_cast<void *>(peer));
    const int32_t index = index_find([peer](const Entry &entry) { return entry.used && entry.peer == peer; });
    if (index < 0)
        return -1;
    TRACE_INFO("voice_plugin_table[ plugin_table_index = %d ] matches plugin peer %p", index,
               static_cast<void *>(peer));
    return index;
}

voice_plugin_entry_t *libvoice_plugin_get_entry_by_peer(peer_t *peer) {
    const int32_t index = libvoice_plugin_get_index_by_peer(peer);
    return index < 0 ? nullptr : libvoice_plugin_get_entry_by_index(static_cast<uint32_t>(index));
}

int32_t libvoice_plugin_set_name_by_peer(peer_t *peer, const char *name) {
    if (!peer || !name) {
        TRACE_ERROR("Plugin Name %p, Peer %p: NULL param !!", static_cast<const void *>(name),
                    static_cast<void *>(peer));
        return -1;
    }
    // A plugin that registers again over the same connection keeps its entry. No other entry is searched for the
    // name: two connections may register the same one, and look-ups then find the lower index.
    int32_t index = libvoice_plugin_get_index_by_peer(peer);
    if (index < 0) {
        index = libvoice_plugin_get_next_free_index();
        if (index < 0) {
            TRACE_ERROR("No more free slots availabe"); // Kept: "availabe".
            return -1;
        }
        voice_plugin_table[index].peer = peer;
    }
    voice_plugin_table[index].used = 1;
    voice::text_copy(voice_plugin_table[index].plugin_name, name);
    return index;
}

int32_t libvoice_plugin_add(const char *name) {
    if (!name) {
        TRACE_ERROR("NULL  param !!");
        return -1;
    }
    int32_t index = libvoice_plugin_get_index(name);
    if (index >= 0)
        return index;
    TRACE_INFO("No entry was found, trying to create a fresh entry");
    index = libvoice_plugin_get_next_free_index();
    if (index < 0) {
        TRACE_ERROR("No free entry found !!");
        return -1;
    }
    // Kept: the peer is not written; the entry shows the one that it held before.
    voice_plugin_table[index].used = 1;
    TRACE_INFO("voice_plugin_table[ %d ] is reserved for plugin name %s", index, name);
    voice::text_copy(voice_plugin_table[index].plugin_name, name);
    return index;
}

int32_t libvoice_plugin_free_entry(voice_plugin_entry_t *entry) {
    if (entry)
        entry->used = 0;
    return 0;
}

int32_t libvoice_plugin_free(const char *name) {
    // Kept: two blanks.
    TRACE_INFO("Deleting  plugin entry for plugin %s", voice::shown(name));
    const int32_t index = name ? index_of_name(name) : -1;
    if (index < 0)
        return -1;
    TRACE_INFO("voice_plugin_table[ plugin_table_index = %d ] matches plugin name %s Removing it from plugin table",
               index, name);
    libvoice_plugin_free_entry(&voice_plugin_table[index]);
    return 0;
}

int32_t libvoice_plugin_deregister(const char *name) {
    TRACE_ENTER();
    Entry *plugin = libvoice_plugin_get_entry(name);
    if (!plugin) {
        // Kept: no exit marker on this path.
        TRACE_ERROR("No plugin entry found for plugin_name %s.", voice::shown(name));
        return -1;
    }
    plugin_remove(plugin);
    TRACE_LEAVE();
    return 0;
}

int32_t libvoice_plugin_deregister_by_peer(peer_t *peer) {
    TRACE_ENTER();
    Entry *plugin = libvoice_plugin_get_entry_by_peer(peer);
    if (!plugin) {
        // Kept: no exit marker on this path.
        TRACE_ERROR("No plugin entry found for peer %p.", static_cast<void *>(peer));
        return -1;
    }
    plugin_remove(plugin);
    TRACE_LEAVE();
    return 0;
}

void libvoice_plugin_list_registered() {
    TRACE_INFO("Following plugin(s) Are currently registered to the voice application : ");
    for (int32_t i = 0; i < LIBVOICE_PLUGINS; ++i)
        if (voice_plugin_table[i].used)
            TRACE_INFO("voice_plugin_table[ plugin_table_index = %d ] having plugin name '%s'", i,
                       voice_plugin_table[i].plugin_name);
}
}
