// SPDX-License-Identifier: MIT
// The bus functions of a plugin, on its endpoints and for contexts: calls in any order with any arguments, endpoints
// that come and go, events that leave, an application that closes and comes back, and a bus that fails.
#include "function_calls.h"
#include "require.h"

#include <cstdlib>
#include <cstring>

using fake::bus;
using fuzz::decision;
using fuzz::Input;
using fuzz::Kind;
using fuzz::require;

namespace {

const fuzz::Function kFunctions[] = {
    {__init, {{"country", Kind::text}}},
    {__exit, {{"reason", Kind::u32}}},
    {__create_ctx, {{"ctx_id", Kind::u32}}},
    {__add_stream,
     {{"ep_id", Kind::i32},
      {"ctx_id", Kind::u32},
      {"line_id", Kind::u32},
      {"stream_info", Kind::stream_info},
      {"filedesc", Kind::descriptors}}},
    {__modify_stream, {{"ctx_id", Kind::u32}, {"stream_info", Kind::stream_info}}},
    {__remove_stream, {{"ctx_id", Kind::u32}, {"stream_id", Kind::u32}}},
    {__destroy_ctx, {{"ctx_id", Kind::u32}}},
    {__EndPoint_signal, {{"signal", Kind::signal}}},
    {__EndPoint_event, {{"event", Kind::event}, {"channel_id", Kind::u32}}},
    {__EndPoint_create, fuzz::kMediaArguments},
    {__EndPoint_modify, fuzz::kMediaArguments},
    {__EndPoint_destroy, {{"ep_line_id", Kind::u32}}},
    {__EndPoint_get, {{"param_set_request", Kind::set}}},
    {__EndPoint_set, {{"param_set_params", Kind::set}}},
};

uint32_t low_word(const void *address) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

int32_t on_init(const char *country) {
    require(country != nullptr, "a country is a text");
    return 0; // else the process ends, by contract
}
int32_t on_exit(uint32_t) {
    return decision;
}
int32_t on_signal(libvoice_signal_t *message) {
    uint8_t *params = libvoice_signal_params(message);
    require(message->length == 0 || message->params == low_word(params), "a pointer word shows its parameters");
    fuzz::params_read(params, message->length);
    return decision;
}
int32_t on_event(libvoice_event_t *message, uint32_t) {
    require(is_valid_endpoint(message->endpoint), "an event is of an endpoint of this plugin");
    fuzz::params_read(libvoice_event_params(message), message->length);
    return decision;
}
int32_t on_media(int32_t endpoint, uint32_t, void *cnx_info, int32_t **descriptors) {
    require(is_valid_endpoint(endpoint), "media is of an endpoint of this plugin");
    require(cnx_info != nullptr, "connection information is there");
    fuzz::descriptors_take(*descriptors);
    return decision;
}
int32_t on_destroy(int32_t endpoint, uint32_t) {
    require(is_valid_endpoint(endpoint), "media is of an endpoint of this plugin");
    return decision;
}
int32_t on_get(libvoice_param_set_t *request, libvoice_param_set_t **result, int32_t) {
    fuzz::params_read(libvoice_set_params_of(request), request->length);
    if (decision % 3 == 1)
        return decision;
    const uint32_t length = decision;
    *result = static_cast<libvoice_param_set_t *>(calloc(1, sizeof **result + length));
    (*result)->length = length;
    return decision % 3;
}
int32_t on_set(libvoice_param_set_t *set) {
    require(set->length != 0, "an empty set does not come here");
    fuzz::params_read(libvoice_set_params_of(set), set->length);
    return decision;
}
int32_t on_context(uint32_t) {
    return decision;
}
int32_t on_add_stream(uint32_t, void *stream_info, int32_t **descriptors, int32_t, uint32_t) {
    free(stream_info);
    fuzz::descriptors_take(*descriptors);
    return decision;
}
int32_t on_modify_stream(uint32_t, void *stream_info) {
    free(stream_info);
    return decision;
}
int32_t on_remove_stream(uint32_t, uint32_t) {
    return decision;
}

object_t *some_object(Input &in) {
    const uint32_t which = in.below(8);
    if (which == 7)
        return bus().nameless_object();
    return which == 6 ? nullptr : bus().object("fxs1.EndPoint.FXS" + std::to_string(which));
}

void endpoint_register(Input &in) {
    static const libvoice_codec_record_t codec = {};
    const void *codecs[20] = {};
    for (uint32_t left = in.below(20); left > 0; --left)
        codecs[left - 1] = &codec;
    bus().answer_next("register_endpoint", fuzz::reply(in));
    const std::string name = in.flag() ? "FXS" + std::to_string(in.below(6)) : fuzz::name(in);
    const int32_t type = in.byte();
    int32_t endpoint = -1;
    libvoice_register_endpoint(type, name.c_str(), nullptr, codecs, in.flag() ? &endpoint : nullptr);
}

void endpoint_deregister(Input &in) {
    bus().answer_next("deregister_endpoint", fuzz::reply(in));
    libvoice_deregister_endpoint(in.byte() - 4);
}

void event_send(Input &in) {
    const int32_t endpoint = in.byte();
    std::string event = fuzz::record_make<libvoice_event_t>(in, endpoint);
    libvoice_send_event(reinterpret_cast<libvoice_event_t *>(event.data()));
}

void time_pass(Input &in) {
    bus().connect_gives(in.flag() ? bus().peer("application") : nullptr);
    bus().answer_next("register_plugin", fuzz::reply(in));
    bus().advance(in.flag() ? 0 : LIBVOICE_RETRY_MS);
}

void application_close() {
    peer_t *peer = libvoice_get_kex_peer_handler();
    if (peer)
        bus().close(peer);
    require(!libvoice_get_kex_peer_handler(), "a connection that closed is forgotten");
}

void step(Input &in) {
    switch (in.below(16)) {
    case 9:
        return endpoint_register(in);
    case 10:
        return endpoint_deregister(in);
    case 11:
        return event_send(in);
    case 12:
        return application_close();
    case 13:
        return time_pass(in);
    case 14:
        decision = in.byte();
        return;
    case 15:
        return bus().fail_call(1 + in.below(8));
    default:
        fuzz::function_call(in, kFunctions, some_object(in), bus().peer("application"));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    fuzz::library_reset();
    bus().object("fxs1.EndPoint");
    libvoice_set_pluginname("fxs1");
    libvoice_set_ep_suffix("FXS");
    bus().connect_gives(bus().peer("application"));
    bus().answer_next("register_plugin", fake::Reply().value(fake::Value::boolean(true)));
    libvoice_init({on_init, on_exit, on_signal, in.flag() ? on_event : nullptr, on_media, on_media, on_destroy, on_get,
                   on_set, on_context, on_add_stream, on_modify_stream, on_remove_stream, on_context});
    bus().advance(0);
    libvoice_set_endpoint("FXS1", 1, nullptr);
    fuzz::steps_run(in, step);
    return 0;
}
