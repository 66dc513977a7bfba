// SPDX-License-Identifier: MIT
// A voice application that takes everything and counts events: for each plugin, how many came and whether in order.
//
// Each event carries its place in its plugin's own count. After the last one the plugin sends one whose place is
// kLastPlace, with the number of those that the bus took from it.
#include <cstdio>
#include <cstdlib>

#include "application_create.h"
#include "flood.h"

namespace {

struct Count {
    uint32_t received;
    uint32_t last;
    bool in_order;
};
Count counts[LIBVOICE_ENDPOINTS];

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
    kex_t *bus = application_create(
        "counting_application",
        {application_country, take_event, register_endpoint, nullptr, get_done, nullptr, nullptr}, plugin_gone);
    if (bus == nullptr)
        return EXIT_FAILURE;
    printf("ready\n");
    kex_run(bus);
    kex_destroy(bus);
    return EXIT_SUCCESS;
}
