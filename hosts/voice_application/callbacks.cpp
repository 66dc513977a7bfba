// SPDX-License-Identifier: MIT
// What the library calls in voice_application.
#include "callbacks.h"

#include "endpoints.h"
#include "events.h"
#include "parameters.h"
#include "plan.h"
#include "plugins.h"
#include "voice_start.h"

#include <string.h>

namespace {

int32_t country_get(char *country, uint32_t size) {
    if (size < sizeof the_plan.country || plugins_reject_current())
        return -1;
    memcpy(country, the_plan.country, sizeof the_plan.country);
    plugins_look_soon(); // the table has the plugin when this call is over
    return 0;
}

libvoice_app_callbacks_t callbacks_get() {
    libvoice_app_callbacks_t callbacks = {};
    callbacks.voice_app_get_country = country_get;
    callbacks.voice_app_event = event_arrived;
    callbacks.voice_app_register_endpoint = endpoint_registered;
    callbacks.voice_app_endpoint_deleted = endpoint_deleted;
    callbacks.voice_app_get_done = parameters_get_done;
    // voice_app_init_reply stays unset: a plugin whose init fails ends its process, which plugins_peer_closed() sees,
    // and with it set the request to a plugin for whom the table has no room would never be given back.
    return callbacks;
}

} // namespace

const char *application_start(kex_t *bus) {
    const libvoice_app_callbacks_t callbacks = callbacks_get();
    const char *wrong = voice_application_start(bus, &callbacks);
    kex_onPeerClosed(bus, plugins_peer_closed, nullptr);
    kex_onCall(bus, plugins_may_call, nullptr);
    return wrong;
}

void application_end() {
    endpoints_end();
    plugins_end();
}
