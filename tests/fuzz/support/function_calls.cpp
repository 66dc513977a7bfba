// SPDX-License-Identifier: MIT
// Calls of bus functions on the fake bus.
#include "function_calls.h"

#include "require.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace fuzz {

using fake::bus;
using fake::Call;
using fake::Value;

namespace {

void argument_add(Input &in, Call &call, const Argument &argument) {
    const uint8_t how = in.byte();
    if (how < 176)
        call.with(argument.name, value_of(in, argument.kind));
    else if (how < 192)
        return; // missing
    else if (how < 208)
        call.with(argument.name, Value::without_value(value_of(in, argument.kind).type));
    else if (how < 240)
        call.with(argument.name, any_value(in));
    else
        call.with(argument.name, value_of(in, argument.kind)).with(argument.name, any_value(in));
}

// What holds of every reply, whatever was asked.
void reply_check(const Call &call, int status) {
    require(status == KEX_FUNCTION_DONE || status == KEX_FUNCTION_FAILED, "a status is 0 or 2");
    if (!bus().failed().empty())
        return; // a bus that fails may lose a value or an error
    const Value &value = call.returned();
    if (value.type == VARIANT_BOOL)
        require((value.number != 0) == (status == KEX_FUNCTION_DONE), "true goes with status 0, false with 2");
    else
        require(value.type == VARIANT_NONE || status == KEX_FUNCTION_DONE, "a failed call gives false or nothing");
    require(call.errors().size() <= 1, "a call stops at its first error");
    for (const std::string &error : call.errors()) {
        require(error.compare(0, 6, "196638") == 0 || error.compare(0, 6, "196640") == 0, "an error has a known code");
        const bool is_event = value.type == VARIANT_BOOL && value.number != 0; // which never shows its failures
        require(status == KEX_FUNCTION_FAILED || is_event, "an error goes with status 2");
    }
}

template <size_t size>
void text_check(const char (&text)[size]) {
    require(memchr(text, 0, size) != nullptr, "a text in a table is terminated");
}

} // namespace

void one_call(Input &in, const Function &function, object_t *object, peer_t *peer) {
    Call call;
    call.on(object).from(peer);
    for (const Argument &argument : function.arguments)
        argument_add(in, call, argument);
    const int status = call.run(function.run);
    reply_check(call, status);
    tables_check();
}

void tables_check() {
    for (const voice_plugin_entry_t &plugin : voice_plugin_table) {
        require(plugin.used <= 1, "a plugin's entry is used or free");
        text_check(plugin.plugin_name);
        for (const voice_plugin_entry_t &other : voice_plugin_table)
            require(&plugin == &other || !plugin.used || !other.used || plugin.peer != other.peer,
                    "a connection has one entry");
    }
    for (const libvoice_endpoint_t &endpoint : endpt_table) {
        require(endpoint.used <= 1, "an endpoint's entry is used or free");
        require(endpoint.num_of_codecs <= LIBVOICE_ENDPOINT_CODECS, "an entry holds sixteen codecs at most");
        text_check(endpoint.name);
        text_check(endpoint.endpoint_path);
        const voice_plugin_entry_t *plugin = endpoint.plugin_table;
        require(!plugin || (plugin >= voice_plugin_table && plugin < voice_plugin_table + LIBVOICE_PLUGINS),
                "an endpoint's plugin is in the table");
        require(!endpoint.used || !plugin || plugin->used == 1, "an endpoint goes with its plugin");
    }
}

void params_read(const uint8_t *buffer, uint32_t length) {
    auto *cursor = const_cast<uint8_t *>(buffer);
    for (uint32_t remaining = length; remaining != 0;) {
        uint32_t id = 0, size = 0;
        uint8_t *value = nullptr;
        if (libvoice_get_current_param(&id, &size, &value, &cursor, &remaining) != LIBVOICE_OK || !value)
            return;
        volatile unsigned sum = 0;
        for (uint32_t i = 0; i < size; ++i)
            sum = sum + value[i];
    }
}

void descriptors_take(int32_t *all) {
    for (int i = 0; i < LIBVOICE_DESCRIPTORS; ++i) {
        require(all[i] == -1 || fcntl(all[i], F_GETFD) >= 0, "a callback's descriptor is open");
        require(all[i] == -1 || std::count(all, all + LIBVOICE_DESCRIPTORS, all[i]) == 1,
                "a callback's descriptors are different");
    }
    for (int i = 0; i < LIBVOICE_DESCRIPTORS; ++i)
        if (all[i] >= 0)
            close(all[i]);
}

uint8_t decision;

void library_reset() {
    decision = 0;
    file(0);
    bus().reset();
    std::fill(std::begin(endpt_table), std::end(endpt_table), libvoice_endpoint_t());
    std::fill(std::begin(voice_plugin_table), std::end(voice_plugin_table), voice_plugin_entry_t());
    libvoice_set_pluginname("");
    libvoice_set_ep_suffix("");
    libvoice_registered_callbacks = {};
    libvoice_app_registered_callbacks = {};
    libvoice_dsp_registered_callbacks = {};
    libvoice_set_convert_media(0);
    libvoice_set_kex_handler(bus().handle());
    libvoice_set_kex_peer_handler(nullptr);
}

void library_settle(Input &in) {
    unsigned kept = 0;
    for (unsigned id = 1; id <= bus().requests_made(); ++id) {
        const fake::RequestRecord &request = bus().record(id);
        if (!request.alive)
            continue;
        if (request.sent)
            bus().complete(bus().request(id), reply(in));
        else // left alive by contract after a send that failed
            kept += request.function == "init" || request.function == "exit" || request.function == "event";
    }
    bus().leaves_requests(kept, "a failed send");
    for (const std::string &wrong : bus().check())
        fail(wrong);
}

} // namespace fuzz
