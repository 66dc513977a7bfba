// SPDX-License-Identifier: MIT
/**
 * @file plugins.h
 * Which plugins are connected: said when one comes, leaves or is lost.
 */
#pragma once

#include "kex.h"

/** Looks soon for a plugin that the library has recorded: when the call that runs now is over. */
void plugins_look_soon();
/** Says which plugins have come since the last look. */
void plugins_say_new();
/** For kex_onPeerClosed(): a connection has closed. */
void plugins_peer_closed(kex_t *bus, peer_t *peer, void *userdata);
/** Gives back what is kept. */
void plugins_end();
