// SPDX-License-Identifier: MIT
// An application and a plugin with one line, as hosts are written: each signal is answered by an event.
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "peer.h"
#include "voice_start.h"

namespace {

constexpr uint32_t kParams = 36; // three words

struct Signal {
    libvoice_signal_t head;
    uint8_t params[kParams];
} signal_record;

struct Event {
    libvoice_event_t head;
    uint8_t params[kParams];
} event_answer;

int32_t endpoint_number = -1;
kex_t *bus;
int wanted;
int order_end = -1; // the application's ends of the two pipes
int done_end = -1;

template <typename Record>
void fill(Record &record) {
    uint8_t *cursor = record.params;
    uint32_t remaining = sizeof record.params;
    const uint32_t word = 1;
    for (const uint32_t id : {LIBVOICE_PARAM_zil_ep_id, LIBVOICE_PARAM_zil_msg_id, LIBVOICE_PARAM_al_ri_freq})
        libvoice_add_param(id, sizeof word, &word, &cursor, &remaining);
    record.head.length = kParams;
    record.head.endpoint = endpoint_number;
}

// The plugin's callbacks.

int32_t plugin_init(const char *) {
    const voice_codec_t pcma = VOICE_CODEC_PCMA;
    if (voice_endpoint_register(VOICE_ENDPOINT_FXS, "FXS1", &pcma, 1, &endpoint_number, nullptr))
        die("registering the endpoint");
    fill(event_answer);
    libvoice_send_event(&event_answer.head); // the line is there
    return 0;
}

int32_t plugin_exit(uint32_t) {
    return 0;
}

int32_t plugin_signal(libvoice_signal_t *) {
    return static_cast<int32_t>(libvoice_send_event(&event_answer.head));
}

// The application's callbacks.

int32_t application_country(char *country, uint32_t size) {
    snprintf(country, size, "DE");
    return 0;
}

// The first event says that the plugin's line is there; all others answer a signal.
int32_t application_event(libvoice_event_t *) {
    static bool line_is_there;
    if (!line_is_there) {
        line_is_there = true;
        fill(signal_record);
        tell_ready();
    } else if (--wanted > 0) {
        libvoice_send_signal(&signal_record.head);
    } else if (write(done_end, "d", 1) != 1) {
        die("write");
    }
    return 0;
}

void order_came(int, void *) {
    if (read(order_end, &wanted, sizeof wanted) != sizeof wanted)
        _exit(0);
    libvoice_send_signal(&signal_record.head);
}

int32_t application_endpoint(libvoice_endpoint_t *entry) {
    endpoint_number = entry->endpoint;
    return 0;
}

void bus_create(const char *name) {
    const std::string path = socket_path("voice");
    setenv("ZIL_VOIP_IPC_SOCKET", path.c_str(), 1);
    setenv("ZIL_VOIP_IPC_SOCKET_URI", ("kex://ipc:[" + path + "]").c_str(), 1);
    bus = kex_create(name);
}

} // namespace

VoicePair::VoicePair() {
    if (pipe(listens_) != 0 || pipe(orders_) != 0 || pipe(done_) != 0)
        die("pipe");
}

void VoicePair::serve_plugin() {
    char byte;
    if (read(listens_[0], &byte, 1) != 1)
        die("the application is gone");
    bus_create("bench_plugin");
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    callbacks.voice_plugin_init = plugin_init;
    callbacks.voice_plugin_exit = plugin_exit;
    callbacks.voice_plugin_signal = plugin_signal;
    if (voice_plugin_start(bus, kPlugin, &callbacks))
        die("the plugin does not start");
    kex_run(bus);
    _exit(0);
}

void VoicePair::serve_application() {
    bus_create("bench_application");
    libvoice_app_callbacks_t callbacks = {};
    callbacks.voice_app_get_country = application_country;
    callbacks.voice_app_event = application_event;
    callbacks.voice_app_register_endpoint = application_endpoint;
    order_end = orders_[0];
    done_end = done_[1];
    if (voice_application_start(bus, &callbacks) || !kex_watch(bus, order_end, nullptr, order_came))
        die("the application does not start");
    if (write(listens_[1], "l", 1) != 1)
        die("write");
    kex_run(bus);
    _exit(0);
}

void VoicePair::signals(int count) {
    char byte;
    if (write(orders_[1], &count, sizeof count) != sizeof count || read(done_[0], &byte, 1) != 1)
        die("signals");
}
