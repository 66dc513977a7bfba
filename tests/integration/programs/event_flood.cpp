// SPDX-License-Identifier: MIT
// event_flood NAME COUNT BYTES: a plugin that sends COUNT events, each with BYTES of parameters, as fast as it can,
// once it reads a line on standard input. It says how many the bus took and how many it refused, and tells the
// application the first.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

#include "flood.h"
#include "kex_host.h"
#include "libvoice_plugin.h"

namespace {

const char *plugin_name;
uint32_t event_count;
uint32_t parameter_bytes;
int32_t endpoint = -1;
uint32_t accepted;

bool send(uint32_t place, uint32_t word, uint32_t bytes) {
    std::vector<uint32_t> message((sizeof(libvoice_event_t) + bytes) / sizeof(uint32_t) + 1);
    auto *event = reinterpret_cast<libvoice_event_t *>(message.data());
    event->endpoint = endpoint;
    event->carried[0] = place;
    event->carried[1] = word;
    event->length = bytes;
    return libvoice_send_event(event) == LIBVOICE_OK;
}

// The number of those that arrive must itself arrive: it is offered until it is taken.
void send_last(kex_timer_t *timer) {
    if (send(kLastPlace, accepted, 0))
        kex_timer_destroy(timer);
    else
        kex_timer_start(timer, 1);
}

void flood(int, void *bus) {
    char line[16];
    kex_unwatch(static_cast<kex_t *>(bus), STDIN_FILENO);
    if (read(STDIN_FILENO, line, sizeof line) <= 0)
        return;
    for (uint32_t place = 1; place <= event_count; ++place)
        accepted += send(place, 0, parameter_bytes) ? 1 : 0;
    printf("accepted=%u refused=%u\n", accepted, event_count - accepted);
    kex_timer_t *timer = kex_timer_create();
    kex_timer_setHandler(timer, send_last);
    kex_timer_start(timer, 0);
}

int32_t init(const char *) {
    const void *no_codecs = nullptr;
    if (libvoice_register_endpoint(1, plugin_name, nullptr, &no_codecs, &endpoint) == LIBVOICE_OK)
        printf("ready\n");
    return 0;
}

} // namespace

int main(int count, char **words) {
    if (count != 4)
        return 2;
    plugin_name = words[1];
    event_count = static_cast<uint32_t>(strtoul(words[2], nullptr, 10));
    parameter_bytes = static_cast<uint32_t>(strtoul(words[3], nullptr, 10));
    setvbuf(stdout, nullptr, _IOLBF, 0);
    kex_t *bus = kex_create("event_flood");
    if (bus == nullptr ||
        !kex_declareFunctions(bus, libvoice_bus_functions(), LIBVOICE_BUS_FUNCTIONS, LIBVOICE_BUS_FUNCTION_COLUMNS))
        return EXIT_FAILURE;
    char path[64];
    snprintf(path, sizeof path, "%s.EndPoint", plugin_name);
    kex_declareObject(bus, plugin_name, nullptr);
    kex_declareTemplate(bus, path, "EndPoint");
    libvoice_set_kex_handler(bus);
    libvoice_set_pluginname(plugin_name);
    libvoice_set_ep_suffix("EP");
    libvoice_callbacks_t callbacks{};
    callbacks.voice_plugin_init = init;
    libvoice_init(callbacks);
    kex_watch(bus, STDIN_FILENO, bus, flood);
    kex_run(bus);
    kex_destroy(bus);
    return EXIT_SUCCESS;
}
