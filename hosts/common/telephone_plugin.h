// SPDX-License-Identifier: MIT
/**
 * @file telephone_media.h
 * The media and parameter callbacks of a plugin whose endpoints are simulated telephones: they go straight into the
 * table.
 */
#pragma once

#include "telephone.h"

/** Registers a telephone that is not registered yet, which then starts from an idle line. Only for voice_plugin_init.
 *  @return whether it is registered now. @param is_new  out: it was not before */
bool telephone_register(telephone *phone, int32_t type, const char *name, const voice_codec_t *codecs, uint32_t count,
                        bool *is_new);
/** The table of callbacks with all that telephones share; the host adds its own voice_plugin_init and
 * voice_plugin_signal. */
libvoice_callbacks_t telephone_callbacks();
/** For kex_onPeerClosed(): silences all lines and closes their media. The library connects again by itself. */
void telephones_application_lost(kex_t *bus, peer_t *peer, void *userdata);

/** Closes media that is open, without a word to the application: it is gone, or starts anew. */
void telephone_media_drop(telephone *phone);
