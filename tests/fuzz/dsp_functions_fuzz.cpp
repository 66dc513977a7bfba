// SPDX-License-Identifier: MIT
// The bus functions of a DSP plugin: DSPs and channels made with any names, and calls of channels in any order with any
// arguments, on a bus that fails.
#include "function_calls.h"
#include "require.h"

#include "kex_host.h"

using fake::bus;
using fuzz::decision;
using fuzz::Input;
using fuzz::Kind;
using fuzz::require;

namespace {

const fuzz::Function kMakers[] = {
    {__DSPPlugin_createDsp, {{"name", Kind::text}}},
    {__DSP_createDspChannel, {{"name", Kind::text}}},
};

const fuzz::Function kFunctions[] = {
    {__DSP_CHANNEL_signal, {{"signal", Kind::signal}}},
    {__DSP_CHANNEL_create,
     {{"cnx_info", Kind::cnx_info},
      {"filedesc", Kind::descriptors},
      {"endpoint_path", Kind::text},
      {"ep_line_id", Kind::u32}}},
    {__DSP_CHANNEL_modify, fuzz::kMediaArguments},
    {__DSP_CHANNEL_destroy, {{"ep_line_id", Kind::u32}}},
};

int32_t on_signal(const char *channel, libvoice_signal_t *message) {
    require(channel != nullptr, "a channel has a name");
    fuzz::params_read(libvoice_signal_params(message), message->length);
    return decision;
}
int32_t on_create(const char *channel, uint32_t, void *cnx_info, int32_t **descriptors, const char *endpoint_path) {
    require(channel && cnx_info && endpoint_path, "what a channel is made with is there");
    fuzz::descriptors_take(*descriptors);
    return decision;
}
int32_t on_modify(const char *channel, uint32_t, void *cnx_info, int32_t **descriptors) {
    require(channel && cnx_info, "what a channel is changed to is there");
    fuzz::descriptors_take(*descriptors);
    return decision;
}
int32_t on_destroy(const char *channel, uint32_t) {
    require(channel != nullptr, "a channel has a name");
    return decision;
}

object_t *some_object(Input &in) {
    static const char *const kPaths[] = {"dsp1", "dsp1.DSP.fxs1", "dsp1.DSP.fxs1.DSP_CHANNEL.fxs2",
                                         "dsp1.DSP.channel1.DSP_CHANNEL.channel1"};
    const uint32_t which = in.below(8);
    if (which < std::size(kPaths))
        return bus().object(kPaths[which]);
    return which == 7 ? nullptr : bus().nameless_object();
}

void step(Input &in) {
    switch (in.below(8)) {
    case 0:
    case 1:
        fuzz::function_call(in, kMakers, some_object(in), bus().peer("application"));
        return;
    case 2:
        decision = in.byte();
        return;
    case 3:
        return bus().fail_call(1 + in.below(8));
    default:
        fuzz::function_call(in, kFunctions, some_object(in), bus().peer("application"));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    Input in(bytes, size);
    fuzz::library_reset();
    kex_declareObject(bus().handle(), "dsp1", "DSPPlugin");
    kex_declareTemplate(bus().handle(), "dsp1.DSP", "DSP");
    kex_declareTemplate(bus().handle(), "dsp1.DSP.DSP_CHANNEL", "DSP_CHANNEL");
    const uint8_t unset = in.byte();
    libvoice_dsp_init({unset & 1 ? nullptr : on_signal, unset & 2 ? nullptr : on_create,
                       unset & 4 ? nullptr : on_modify, unset & 8 ? nullptr : on_destroy});
    fuzz::steps_run(in, step);
    return 0;
}
