// SPDX-License-Identifier: MIT
/**
 * @file plugins.h
 * Which plugins are connected: said when one comes, leaves or is lost.
 */
#pragma once

#include "libvoice_plugin.h"

/** Looks soon for a plugin that the library has recorded: when the call that runs now is over. */
void plugins_look_soon();
/** Says which plugins have come since the last look. */
void plugins_say_new();
/** Whether the plugin whose "register_plugin" runs cannot be taken: another process holds its name, or the table would
 *  cut it. Says why. */
bool plugins_reject_current();
/** For kex_onCall(): whether the call that runs may. Only the connection that holds a name takes leave under it. */
int plugins_may_call(kex_t *bus, void *userdata);
/** An endpoint of a plugin has come, whether it is taken or not. */
void plugins_endpoint_came(const voice_plugin_entry_t *entry);
/** For kex_onPeerClosed(): a connection has closed. */
void plugins_peer_closed(kex_t *bus, peer_t *peer, void *userdata);
/** Gives back what is kept. */
void plugins_end();
