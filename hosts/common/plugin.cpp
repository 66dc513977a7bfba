// SPDX-License-Identifier: MIT
// Leaving of a plugin host.
#include "plugin.h"

#include "host.h"
#include "voice_start.h"

bool plugin_is_connected() {
    return libvoice_get_kex_peer_handler() != nullptr;
}

void plugin_leave() {
    if (!voice_plugin_leave())
        host_stop();
}
