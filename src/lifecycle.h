// SPDX-License-Identifier: MIT
// What the files of a plugin's life share: presetting its endpoints, and its connection coming and going.
#ifndef VOICE_LIFECYCLE_H
#define VOICE_LIFECYCLE_H

#include "kex.h"

namespace voice {

// Plugin side: every entry free, without number and user data, under its default name "<stem><index + 1>". (generic)
void plugin_endpoints_preset();

// Requests that need the connection find none until a new one is stored. (kex_api_calls)
void peer_forget();

// Peer event handler: the voice application has gone; start over. (kex_functions)
int libvoice_peer_event_handler(peer_t *peer, int event, void *userdata);

} // namespace voice

#endif
