// SPDX-License-Identifier: MIT
// A test of a driver's callback without a bus: the fake bus calls it, and logs what it does.
#include "libvoice_plugin.h"
#include "voice_fake/gtest.h"
#include "voice_records.h"

namespace {

using fake::bus;
using fake::Call;
using fake::Value;

// The callback under test: a handset that cannot ring says so.
int32_t play(libvoice_signal_t *message) {
    const auto *signal = reinterpret_cast<const voice_signal_t *>(message);
    if (signal->signal != LIBVOICE_SIGNAL_al_ri)
        return 0;
    voice_event_t event = {signal->endpoint, LIBVOICE_EVENT_g_cause, signal->line, 0, 0};
    libvoice_send_event(reinterpret_cast<libvoice_event_t *>(&event));
    return -1;
}

using CallbacksTest = fake::BusTest;

TEST_F(CallbacksTest, RingingIsRejectedWithACause) {
    libvoice_set_kex_handler(bus().handle());
    libvoice_set_kex_peer_handler(bus().peer("application"));
    libvoice_set_pluginname("dect");
    libvoice_registered_callbacks.voice_plugin_signal = play;
    const voice_signal_t ring = {7, LIBVOICE_SIGNAL_al_ri, 0, 1, 0, 0, 0};
    const voice_event_t cause = {7, LIBVOICE_EVENT_g_cause, 0, 0, 0};

    Call call;
    const int status = call.on(bus().object("dect.EndPoint.DECT1"))
                           .with("signal", Value::bytes(&ring, sizeof ring))
                           .run(__EndPoint_signal);

    EXPECT_EQ(status, KEX_FUNCTION_FAILED);
    EXPECT_EQ(call.returned().str(), "bool false");
    EXPECT_EQ(bus().record(1).function, "event");
    EXPECT_EQ(bus().record(1).parameter("event").str(), Value::bytes(&cause, sizeof cause).str());
    EXPECT_TRUE(bus().record(1).sent);
}

} // namespace
