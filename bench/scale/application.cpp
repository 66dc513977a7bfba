// SPDX-License-Identifier: MIT
// The application of a measured world: carries out orders, and counts the events that answer it.
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "../support/measure.h"
#include "../support/program.h"
#include "record.h"
#include "voice_start.h"
#include "world.h"

namespace {

Place place;
Order order;
uint32_t came; // events of this order
int announced; // endpoints that have said that they are there
bool is_announced[LIBVOICE_ENDPOINTS];
Record<libvoice_signal_t> to_endpoint[LIBVOICE_ENDPOINTS];

void word_give() {
    if (write(place.words, "w", 1) != 1)
        die("write");
}

int32_t country_get(char *country, uint32_t size) {
    snprintf(country, size, "DE");
    return 0;
}

int32_t endpoint_accept(libvoice_endpoint_t *) {
    return 0; // its number is that of its entry
}

void signal_send(int32_t endpoint, uint32_t count, uint32_t a_second) {
    record_fill(to_endpoint[endpoint], endpoint, {static_cast<uint32_t>(order.work), count, a_second});
    libvoice_send_signal(&to_endpoint[endpoint].head);
}

void endpoint_announced(int32_t endpoint) {
    if (is_announced[endpoint])
        return;
    is_announced[endpoint] = true;
    if (++announced < place.endpoints)
        return;
    place.notes->complete = now_ns();
    for (int32_t i = 0; i < place.endpoints; ++i)
        record_fill(to_endpoint[i], i, {static_cast<uint32_t>(Work::exchange), 0, 0});
    word_give();
}

void lateness_note(libvoice_event_t *event) {
    uint32_t words[kWords] = {};
    words_read(libvoice_event_params(event), event->length, words);
    const uint64_t due = static_cast<uint64_t>(words[1]) | static_cast<uint64_t>(words[2]) << 32;
    Notes &notes = *place.notes;
    if (notes.measured < kMaxMeasured)
        notes.late[notes.measured++] = static_cast<float>(now_ns() - static_cast<double>(due));
}

int32_t event_take(libvoice_event_t *event) {
    if (announced < place.endpoints) {
        endpoint_announced(event->endpoint);
        return 0;
    }
    if (order.work == Work::pace)
        lateness_note(event);
    if (++came == order.count)
        word_give();
    else if (order.work == Work::exchange)
        libvoice_send_signal(&to_endpoint[came % static_cast<uint32_t>(place.endpoints)].head);
    return 0;
}

// Each plugin has as many endpoints as every other one, one behind the other or not.
void pace_begin() {
    uint32_t plugins = 0;
    for (const voice_plugin_entry_t &plugin : voice_plugin_table)
        plugins += plugin.used != 0;
    for (const voice_plugin_entry_t &plugin : voice_plugin_table) {
        for (int32_t i = 0; plugin.used && i < place.endpoints; ++i) {
            if (endpt_table[i].plugin_table != &plugin)
                continue;
            signal_send(i, order.count / plugins, order.a_second / plugins);
            break;
        }
    }
}

void order_came(int, void *) {
    if (read(place.orders, &order, sizeof order) != sizeof order)
        _exit(0);
    came = 0;
    place.notes->measured = 0;
    if (order.work == Work::exchange)
        libvoice_send_signal(&to_endpoint[0].head);
    else if (order.work == Work::stream)
        signal_send(0, order.count, 0);
    else
        pace_begin();
}

} // namespace

void application_serve(const Place &its_place) {
    place = its_place;
    setenv("ZIL_VOIP_IPC_SOCKET", place.socket.c_str(), 1);
    kex_t *bus = kex_create("bench_application");
    libvoice_app_callbacks_t callbacks = {};
    callbacks.voice_app_get_country = country_get;
    callbacks.voice_app_event = event_take;
    callbacks.voice_app_register_endpoint = endpoint_accept;
    if (voice_application_start(bus, &callbacks) || !kex_watch(bus, place.orders, nullptr, order_came))
        die("the application does not start");
    kex_run(bus);
    _exit(0);
}
