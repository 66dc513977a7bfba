// SPDX-License-Identifier: MIT
// The tone giver without a plugin and without a network: the fake bus calls it as a plugin does, and logs what it sends.
#include "voice_fake/gtest.h"
#include "voice_records.h"

#include "kex_host.h"

extern "C" int tone_giver_main(void); // main() of tone_giver.c, which is compiled with -Dmain=tone_giver_main

namespace {

using fake::bus;
using fake::Call;
using fake::Value;

class ToneGiver : public fake::BusTest {
protected:
    static peer_t *plugin() { return bus().peer("tel"); }
    static object_t *application() { return bus().object(LIBVOICE_APPLICATION_PATH); }

    // What a plugin does first. The numbers of its endpoints are those that the application gives.
    static void register_plugin() {
        Call call;
        call.on(application()).from(plugin()).with("plugin_name", Value::chars("tel"));
        ASSERT_EQ(call.run(__VoiceService_register_plugin), KEX_FUNCTION_DONE);
        EXPECT_EQ(bus().record(1).function, "init");
        EXPECT_EQ(bus().record(1).parameter("country").str(), "\"DE\"");
    }
    static int32_t register_endpoint(const std::string &name) {
        const voice_codec_t pcma = VOICE_CODEC_PCMA;
        Call call;
        call.on(application()).from(plugin()).with("plugin_name", Value::chars("tel"));
        call.with("endpoint_name", Value::chars(name)).with("endpoint_path", Value::chars("tel.EndPoint." + name));
        call.with("type", Value::u16(VOICE_ENDPOINT_FXS)).with("codeclist", Value::bytes(&pcma, sizeof pcma));
        EXPECT_EQ(call.run(__VoiceService_register_endpoint), KEX_FUNCTION_DONE);
        return static_cast<int32_t>(call.returned().number);
    }
    static int report(int32_t endpoint, uint32_t event) {
        const voice_event_t head = {endpoint, event, 0, 0, 0};
        Call call;
        call.on(application()).from(plugin()).with("plugin_name", Value::chars("tel"));
        return call.with("event", Value::bytes(&head, sizeof head)).run(__VoiceService_event);
    }
    // The signal that left last, and to which endpoint.
    static voice_signal_t last_signal() {
        voice_signal_t head = {};
        const std::string bytes = bus().record(bus().requests_made()).parameter("signal").data;
        if (bytes.size() >= sizeof head)
            memcpy(&head, bytes.data(), sizeof head);
        return head;
    }
    // The whole program; what happens meanwhile was said before, by at().
    static void run_until(uint64_t milliseconds) {
        bus().at(milliseconds, [] { kex_stop(bus().handle()); });
        EXPECT_EQ(tone_giver_main(), 0);
    }
};

TEST_F(ToneGiver, LiftedReceiverHearsADialToneUntilItIsHungUp) {
    bus().at(10, [] {
        register_plugin();
        const int32_t first = register_endpoint("TEL1"), second = register_endpoint("TEL2");
        EXPECT_NE(first, second);
        report(second, LIBVOICE_EVENT_al_of);
        EXPECT_EQ(bus().record(bus().requests_made()).path, "tel.EndPoint.TEL2");
        EXPECT_EQ(last_signal().signal, LIBVOICE_SIGNAL_cg_dt);
        EXPECT_EQ(last_signal().endpoint, second);
        EXPECT_EQ(last_signal().flags, 0u);
        report(second, LIBVOICE_EVENT_al_on);
        EXPECT_EQ(last_signal().signal, LIBVOICE_SIGNAL_cg_dt);
        EXPECT_EQ(last_signal().flags, VOICE_SIGNAL_STOP);
    });
    run_until(20);
}

TEST_F(ToneGiver, PluginThatIsLostTakesItsEndpointsAlong) {
    bus().at(10, [] {
        register_plugin();
        register_endpoint("TEL1");
    });
    bus().at(20, [] {
        EXPECT_TRUE(is_valid_endpoint(0));
        bus().close(plugin());
        EXPECT_FALSE(is_valid_endpoint(0));
    });
    run_until(30);
}

} // namespace
