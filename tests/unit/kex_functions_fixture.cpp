// SPDX-License-Identifier: MIT
#include "kex_functions_fixture.h"

namespace voice_test {

Host host;

namespace {

int32_t on_init(const char *country) {
    bus().note(text("voice_plugin_init(%s)", country));
    return host.result;
}
int32_t on_exit_call(uint32_t reason) {
    bus().note(text("voice_plugin_exit(%u)", reason));
    return host.result;
}
int32_t on_signal(libvoice_signal_t *message) {
    bus().note("voice_plugin_signal()");
    host.bytes.assign(reinterpret_cast<char *>(message), 28 + message->length);
    host.pointer_word = message->params;
    host.params = libvoice_signal_params(message);
    return host.result;
}
int32_t on_event(libvoice_event_t *message, uint32_t channel) {
    bus().note(text("voice_plugin_event(endpoint %d, channel %u)", message->endpoint, channel));
    host.bytes.assign(reinterpret_cast<char *>(message), 20 + message->length);
    host.pointer_word = message->params;
    host.params = libvoice_event_params(message);
    return host.result;
}
void take_media(void *cnx_info, int32_t **descriptors) {
    EXPECT_EQ(bus().live().lists, 0u) << "the list is released before the callback";
    host.bytes.assign(static_cast<char *>(cnx_info), host.cnx_bytes);
    host.descriptors.assign(*descriptors, *descriptors + 10);
}
int32_t on_create(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    bus().note(text("voice_plugin_create(%d, %u)", endpoint, line));
    take_media(cnx_info, descriptors);
    return host.result;
}
int32_t on_modify(int32_t endpoint, uint32_t line, void *cnx_info, int32_t **descriptors) {
    bus().note(text("voice_plugin_modify(%d, %u)", endpoint, line));
    take_media(cnx_info, descriptors);
    return host.result;
}
int32_t on_destroy(int32_t endpoint, uint32_t line) {
    bus().note(text("voice_plugin_destroy(%d, %u)", endpoint, line));
    return host.result;
}
int32_t on_get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t reserved) {
    bus().note(text("voice_plugin_get(result %s, %d)", *result ? "set" : "empty", reserved));
    host.bytes.assign(reinterpret_cast<char *>(request), 8 + request->length);
    host.pointer_word = request->params;
    host.params = libvoice_set_params_of(request);
    if (host.result_given) {
        void *block = malloc(host.result_set.size());
        memcpy(block, host.result_set.data(), host.result_set.size());
        *result = static_cast<libvoice_param_set_t *>(block);
    }
    return host.result;
}
int32_t on_set(libvoice_param_set_t *set) {
    bus().note("voice_plugin_set()");
    host.bytes.assign(reinterpret_cast<char *>(set), 8 + set->length);
    host.pointer_word = set->params;
    host.params = libvoice_set_params_of(set);
    return host.result;
}
int32_t on_create_ctx(uint32_t context) {
    bus().note(text("voice_plugin_create_ctx(%u)", context));
    return host.result;
}
int32_t on_add_stream(uint32_t context, void *stream_info, int32_t **descriptors, int32_t endpoint, uint32_t line) {
    bus().note(text("voice_plugin_add_stream(%u, endpoint %d, line %u)", context, endpoint, line));
    EXPECT_EQ(bus().live().lists, 0u) << "the list is released before the callback";
    host.bytes.assign(static_cast<char *>(stream_info), host.cnx_bytes);
    host.descriptors.assign(*descriptors, *descriptors + host.descriptors.size());
    free(stream_info);
    return host.result;
}
int32_t on_modify_stream(uint32_t context, void *stream_info) {
    bus().note(text("voice_plugin_modify_stream(%u)", context));
    host.bytes.assign(static_cast<char *>(stream_info), host.cnx_bytes);
    free(stream_info);
    return host.result;
}
int32_t on_remove_stream(uint32_t context, uint32_t stream) {
    bus().note(text("voice_plugin_remove_stream(%u, %u)", context, stream));
    return host.result;
}
int32_t on_destroy_ctx(uint32_t context) {
    bus().note(text("voice_plugin_destroy_ctx(%u)", context));
    return host.result;
}

int32_t on_get_country(char *country, uint32_t size) {
    bus().note(text("voice_app_get_country(%02x %02x %02x, %u)", country[0], country[1], country[2], size));
    if (host.country)
        strcpy(country, host.country);
    return host.result;
}
int32_t on_app_event(libvoice_event_t *message) {
    bus().note(text("voice_app_event(endpoint %d)", message->endpoint));
    host.bytes.assign(reinterpret_cast<char *>(message), 20 + message->length);
    host.pointer_word = message->params;
    host.params = libvoice_event_params(message);
    return host.result;
}
int32_t on_register_endpoint(libvoice_endpoint_t *entry) {
    bus().note(text("voice_app_register_endpoint(endpt_table[%d])", static_cast<int>(entry - endpt_table)));
    host.entry = *entry;
    if (host.release_endpoint)
        entry->used = 0;
    entry->endpoint = host.endpoint;
    return host.result;
}

} // namespace

void on_endpoint_deleted(libvoice_endpoint_t *entry) {
    bus().note(text("voice_app_endpoint_deleted(endpt_table[%d], used %u)", static_cast<int>(entry - endpt_table),
                    entry->used));
}

void Handlers::prepare() {
    host = Host();
    have_endpoint(3, "FXS1", 5);
    libvoice_registered_callbacks = {on_init,       on_exit_call,     on_signal,        on_event,      on_create,
                                     on_modify,     on_destroy,       on_get,           on_set,        on_create_ctx,
                                     on_add_stream, on_modify_stream, on_remove_stream, on_destroy_ctx};
    libvoice_app_registered_callbacks = {on_get_country, on_app_event, on_register_endpoint, nullptr, nullptr,
                                         nullptr,        nullptr};
    bus().clear_log();
}

} // namespace voice_test
