// SPDX-License-Identifier: MIT
// Senders and handlers of signals and events, on a platform that does next to nothing. The peer makes the same platform calls
// by itself: what the library takes beyond that is its own cost.
#include <cstdlib>
#include <cstring>

#include "../support/measure.h"
#include "paths.h"
#include "peers.h"
#include "quiet_platform.h"

extern "C" {
kex_function_t __EndPoint_signal;
kex_function_t __VoiceService_event;
}

namespace {

constexpr uint32_t kParams = 36; // three words
constexpr int32_t kEndpoint = 5;
constexpr int kPlace = 15; // in the middle of the endpoint table

struct SignalRecord {
    libvoice_signal_t head;
    uint8_t params[kParams];
} signal_record;

struct EventRecord {
    libvoice_event_t head;
    uint8_t params[kParams];
} event_record;

voice_plugin_entry_t plugin;
uint64_t taken;

int32_t take_signal(libvoice_signal_t *message) {
    taken += message->length;
    return 0;
}
int32_t take_event(libvoice_event_t *message) {
    taken += message->length;
    return 0;
}

void make_records() {
    signal_record.head.endpoint = kEndpoint;
    signal_record.head.length = kParams;
    event_record.head.endpoint = kEndpoint;
    event_record.head.length = kParams;
    libvoice_set_pluginname("fxs1");
    libvoice_endpoint_t &entry = endpt_table[kPlace];
    entry.used = 1;
    entry.endpoint = kEndpoint;
    strcpy(entry.name, "FXS1");
    strcpy(entry.endpoint_path, "fxs1.EndPoint.FXS1");
    plugin.peer = quiet_peer;
    entry.plugin_table = &plugin;
    libvoice_registered_callbacks.voice_plugin_signal = take_signal;
    libvoice_app_registered_callbacks.voice_app_event = take_event;
}

void arrive(const void *record, uint32_t length) {
    memcpy(quiet_arrived, record, length);
    quiet_arrived_length = length;
}

template <auto work>
uint64_t counted() {
    taken = 0;
    work();
    keep(quiet_copy[0]);
    return taken;
}

void library_signal() {
    libvoice_send_signal(&signal_record.head);
}

void library_event() {
    libvoice_send_event(&event_record.head);
}

void bare_send(const char *path, const char *function, const char *plugin_name, const char *name, const void *record,
               uint32_t length) {
    variant_t v;
    request_t *r = request_create_executeFunction(path, function, 0);
    if (plugin_name) {
        variant_initialize(&v, VARIANT_TEXT);
        variant_setChar(&v, plugin_name);
        request_addParameter(r, "plugin_name", &v);
        variant_cleanup(&v);
    }
    variant_initialize(&v, VARIANT_BYTES);
    variant_setByteArray(&v, record, length);
    request_addParameter(r, name, &v);
    variant_cleanup(&v);
    kex_sendRequest(nullptr, quiet_peer, r);
    request_destroy(r);
}

void bare_signal() {
    bare_send("fxs1.EndPoint.FXS1", "signal", nullptr, "signal", &signal_record, sizeof signal_record);
}

void bare_event() {
    bare_send("VoiceService.VoiceApplication", "event", "fxs1", "event", &event_record, sizeof event_record);
}

void library_signal_arrives() {
    arrive(&signal_record, sizeof signal_record);
    variant_t result = {};
    __EndPoint_signal(quiet_call, quiet_arguments, &result);
}

void library_event_arrives() {
    arrive(&event_record, sizeof event_record);
    variant_t result = {};
    __VoiceService_event(quiet_call, quiet_arguments, &result);
}

void bare_signal_arrives() {
    arrive(&signal_record, sizeof signal_record);
    variant_t result = {};
    void *data = nullptr;
    uint32_t length = 0;
    argument_getByteArray(quiet_arguments, "signal", request_attributes(fcall_request(quiet_call)), &data, &length);
    libvoice_registered_callbacks.voice_plugin_signal(static_cast<libvoice_signal_t *>(data));
    free(data);
    variant_setBool(&result, 1);
    fcall_destroy(quiet_call);
}

void bare_event_arrives() {
    arrive(&event_record, sizeof event_record);
    char *name = nullptr;
    void *data = nullptr;
    uint32_t length = 0;
    const uint32_t attributes = request_attributes(fcall_request(quiet_call));
    argument_getChar(quiet_arguments, "plugin_name", attributes, &name);
    argument_getByteArray(quiet_arguments, "event", attributes, &data, &length);
    libvoice_app_registered_callbacks.voice_app_event(static_cast<libvoice_event_t *>(data));
    free(data);
    free(name);
    fcall_destroy(quiet_call);
}

} // namespace

void add_call_paths(std::vector<Variant> &variants) {
    make_records();
    variants.push_back({"signal sender", kLibrary, counted<library_signal>, 1});
    variants.push_back({"signal sender", "the bare calls", counted<bare_signal>, 1});
    variants.push_back({"event sender", kLibrary, counted<library_event>, 1});
    variants.push_back({"event sender", "the bare calls", counted<bare_event>, 1});
    variants.push_back({"signal handler", kLibrary, counted<library_signal_arrives>, 1});
    variants.push_back({"signal handler", "the bare calls", counted<bare_signal_arrives>, 1});
    variants.push_back({"event handler", kLibrary, counted<library_event_arrives>, 1});
    variants.push_back({"event handler", "the bare calls", counted<bare_event_arrives>, 1});
}
