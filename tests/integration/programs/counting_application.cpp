// SPDX-License-Identifier: MIT
// A voice application that takes everything and counts events: for each plugin, how many came and whether in order.
//
// Each event carries its place in its plugin's own count. After the last one the plugin sends one whose place is
// kLastPlace, with the number of those that the bus took from it.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "flood.h"
#include "kex_host.h"
#include "libvoice_plugin.h"

namespace {

struct Count {
    uint32_t received;
    uint32_t last;
    bool in_order;
};
Count counts[LIBVOICE_ENDPOINTS];

int32_t get_country(char *country, uint32_t size) {
    snprintf(country, size, "DE");
    return 0;
}

int32_t take_event(libvoice_event_t *event) {
    if (!is_valid_endpoint(event->endpoint))
        return 1;
    Count &count = counts[event->endpoint];
    const uint32_t place = event->carried[0];
    if (place == kLastPlace) {
        printf("%s received=%u accepted=%u order=%s\n", libvoice_get_name_by_endpoint(event->endpoint), count.received,
               event->carried[1], count.in_order ? "kept" : "broken");
        return 0;
    }
    count.in_order = count.in_order && place > count.last;
    count.last = place;
    ++count.received;
    return 0;
}

int32_t register_endpoint(libvoice_endpoint_t *entry) {
    entry->endpoint = static_cast<int32_t>(entry - endpt_table);
    counts[entry->endpoint] = {0, 0, true};
    return 0;
}

void get_done(request_t *request) {
    free(request_data(request));
    request_destroy(request);
}

void plugin_gone(kex_t *, peer_t *peer, void *) {
    if (libvoice_plugin_get_index_by_peer(peer) >= 0)
        libvoice_plugin_deregister_by_peer(peer);
}

} // namespace

int main() {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    kex_t *bus = kex_create("counting_application");
    if (bus == nullptr ||
        !kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS) ||
        kex_declareObject(bus, LIBVOICE_APPLICATION_PATH, LIBVOICE_APPLICATION_CLASS) == nullptr)
        return EXIT_FAILURE;
    libvoice_set_kex_handler(bus);
    libvoice_app_init({get_country, take_event, register_endpoint, nullptr, get_done, nullptr, nullptr});
    libvoice_plugin_init_table();
    kex_onPeerClosed(bus, plugin_gone, nullptr);
    if (libvoice_app_connect(kex_connection(bus), libvoice_get_ipc_socket()) == nullptr)
        return EXIT_FAILURE;
    printf("ready\n");
    kex_run(bus);
    kex_destroy(bus);
    return EXIT_SUCCESS;
}
