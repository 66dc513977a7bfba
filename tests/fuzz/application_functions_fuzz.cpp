// SPDX-License-Identifier: MIT
// The bus functions of the voice application: calls of several plugins in any order with any arguments, connections
// that close, requests of the application in between, and a bus that fails.
#include "function_calls.h"
#include "require.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>

using fake::bus;
using fuzz::decision;
using fuzz::Input;
using fuzz::Kind;
using fuzz::require;

namespace {

const fuzz::Function kFunctions[] = {
    {__VoiceService_register_plugin, {{"plugin_name", Kind::text}}},
    {__VoiceService_deregister_plugin, {{"plugin_name", Kind::text}}},
    {__VoiceService_register_endpoint,
     {{"plugin_name", Kind::text},
      {"endpoint_name", Kind::text},
      {"endpoint_path", Kind::text},
      {"type", Kind::u16},
      {"codeclist", Kind::codecs}}},
    {__VoiceService_deregister_endpoint, {{"endpoint", Kind::u16}}},
    {__VoiceService_event, {{"plugin_name", Kind::text}, {"event", Kind::event}}},
};

// The entries that it believes in use.
std::set<const libvoice_endpoint_t *> believed;

int32_t on_get_country(char *country, uint32_t size) {
    require(size == 3, "a country has room for two letters and a zero");
    memcpy(country, decision % 3 == 0 ? "DEU" : "FR", size); // without a terminator too
    return decision % 7 == 6 ? -1 : 0;
}

int32_t on_event(libvoice_event_t *message) {
    fuzz::params_read(libvoice_event_params(message), message->length);
    return decision;
}

int32_t on_register_endpoint(libvoice_endpoint_t *entry) {
    require(entry->used == 1 && entry->plugin_table != nullptr, "a new entry is filled in");
    believed.insert(entry);
    entry->endpoint = decision < 128 ? static_cast<int32_t>(entry - endpt_table) : decision - 140;
    if (decision % 5 != 4)
        return 0;
    if (decision % 2 == 0) {
        entry->used = 0;
        believed.erase(entry);
    }
    return 1;
}

void on_endpoint_deleted(libvoice_endpoint_t *entry) {
    require(entry->used == 0, "a deleted entry is free when the application hears of it");
    believed.erase(entry);
}

void on_get_done(request_t *request) {
    free(request_data(request));
    request_destroy(request);
}

void on_reply(request_t *request, reply_item_t *item) {
    if (!item)
        request_destroy(request);
}

peer_t *some_peer(Input &in) {
    return bus().peer("peer" + std::to_string(in.below(10)));
}

void peer_close(Input &in) {
    peer_t *peer = some_peer(in);
    bus().close(peer);
    libvoice_plugin_deregister_by_peer(peer);
    require(!libvoice_plugin_get_entry_by_peer(peer), "a closed connection has no entry");
}

void signal_send(Input &in) {
    const int32_t endpoint = in.byte() - 4;
    std::string signal = fuzz::record_make<libvoice_signal_t>(in, endpoint);
    libvoice_send_signal(reinterpret_cast<libvoice_signal_t *>(signal.data()));
}

// The set of a number without an endpoint is left alive by contract; here only those are set that exist.
void parameter_set(Input &in) {
    constexpr uint32_t kMostValue = 236;
    const int32_t endpoint = in.byte() - 4;
    const std::string value = in.text();
    if (libvoice_get_endpoint_path(endpoint))
        libvoice_set_params(endpoint, in.word(), value.data(),
                            std::min(static_cast<uint32_t>(value.size()), kMostValue));
}

void request_make(Input &in) {
    static char info[LIBVOICE_CNX_INFO_SOCKET_BYTES];
    const int32_t fds[3] = {in.flag() ? 0 : -1, in.flag() ? 1 : 9999, -1};
    const int32_t endpoint = in.byte() - 4;
    const uint32_t line = in.byte(), context = in.byte();
    const std::string plugin = fuzz::name(in);
    switch (in.below(12)) {
    case 0:
        return signal_send(in);
    case 1:
        libvoice_create_media(endpoint, line, info, fds[0], fds[1], fds[2]);
        return;
    case 2:
        libvoice_modify_media(endpoint, line, in.flag() ? info : nullptr, fds[0], fds[1], fds[2]);
        return;
    case 3:
        return libvoice_destroy_media(endpoint, line);
    case 4:
        return parameter_set(in);
    case 5:
        libvoice_get_params(endpoint, in.word(), context);
        return;
    case 6:
        libvoice_create_ctx(plugin.c_str(), context);
        return;
    case 7:
        libvoice_add_stream(plugin.c_str(), endpoint, context, info, fds, line);
        return;
    case 8:
        libvoice_remove_stream(plugin.c_str(), context, in.byte());
        return;
    case 9:
        libvoice_destroy_ctx(plugin.c_str(), context);
        return;
    case 10:
        libvoice_kex_exit_plugin(plugin.c_str(), in.word());
        return;
    default:
        libvoice_print_endpoints(in.flag());
        libvoice_plugin_print_table(in.flag());
    }
}

void request_answer(Input &in) {
    for (unsigned id = 1; id <= bus().requests_made(); ++id)
        if (bus().record(id).alive && bus().record(id).sent)
            return bus().complete(bus().request(id), fuzz::reply(in));
}

void believed_check() {
    for (const libvoice_endpoint_t &entry : endpt_table)
        require((entry.used == 1) == (believed.count(&entry) == 1),
                "the application hears of every endpoint that goes");
}

void step(Input &in) {
    const uint32_t what = in.below(16);
    if (what < 9)
        fuzz::function_call(in, kFunctions, bus().object(LIBVOICE_APPLICATION_PATH), some_peer(in));
    else if (what == 9)
        peer_close(in);
    else if (what == 10)
        request_answer(in);
    else if (what == 11)
        libvoice_set_convert_media(in.flag());
    else if (what == 12)
        bus().fail_call(1 + in.below(8));
    else if (what == 13)
        decision = in.byte();
    else
        request_make(in);
    believed_check();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    fuzz::library_reset();
    believed.clear();
    decision = in.byte();
    libvoice_app_init({on_get_country, on_event, on_register_endpoint, on_endpoint_deleted, on_get_done,
                       in.flag() ? on_reply : nullptr, in.flag() ? on_reply : nullptr});
    fuzz::steps_run(in, step);
    return 0;
}
