// SPDX-License-Identifier: MIT
// What the tests of kex_dspplugin.cpp share: a host whose callbacks write themselves into the common log, keep what they
// saw and answer what the test says.
#ifndef KEX_DSPPLUGIN_FIXTURE_H
#define KEX_DSPPLUGIN_FIXTURE_H

#include "handler_test.h"

namespace voice_test {

// What the next callback answers, and what it saw.
struct Host {
    int32_t result = 0;
    std::vector<int32_t> descriptors;
    std::string bytes;
    size_t take = 0; // how many bytes of a record to copy
};
extern Host host;

extern const libvoice_dsp_callbacks_t kCallbacks; // write themselves into the common log

class Dsp : public HandlerTest {
protected:
    Dsp() { prepare(); }

    void prepare() override {
        host = Host();
        libvoice_dsp_registered_callbacks = kCallbacks;
        bus().clear_log();
    }

    object_t *channel() { return bus().object("dsp.DSPPlugin.DSP.dsp0.DSP_CHANNEL.ch3"); }
    static void close_received() { close_all(host.descriptors); }

    // In every comparison only the order of value and destruction is free: both are there, the exit marker is last.
    static void expect_end(const std::vector<std::string> &expected, const std::string &value,
                           const std::string &function);
    // A function of a channel with one argument, while each platform call on its way fails: only the argument can be missing.
    void expect_failures(kex_function_t *run, const char *argument, const Value &value);
};

} // namespace voice_test

#endif
