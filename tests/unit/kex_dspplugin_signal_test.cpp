// SPDX-License-Identifier: MIT
// Signals to a channel.
#include "kex_dspplugin_fixture.h"

namespace voice_test {
namespace {

class ChannelSignal : public Dsp {
protected:
    const std::string function_ = "__DSP_CHANNEL_signal";
};

TEST_F(ChannelSignal, TheBytesReachTheCallbackUntouched) {
    const std::string item_of_four = item(1, "abcd");
    for (const std::string &bytes :
         {signal_bytes(5, item_of_four, 0x12345678), signal_bytes(5, "", 0x12345678),
          signal_bytes(5, item_of_four, 0x12345678) + "trailing", signal_bytes(5, "", 0x12345678) + "t"}) {
        again();
        host.take = bytes.size();
        Call call;
        EXPECT_EQ(call.attributes(0).on(channel()).with("signal", Value::bytes(bytes)).run(__DSP_CHANNEL_signal), 0);
        expect_end({enter(function_), plain("ByteArray", "signal", Value::bytes(bytes)), "dsp_plugin_signal(ch3)"},
                   kTrue, function_);
        EXPECT_EQ(host.bytes, bytes) << "the pointer word is not rewritten";
        expect_settled(text("%zu bytes", bytes.size()));
    }
}

TEST_F(ChannelSignal, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        const Value bytes = broken.make(28);
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        EXPECT_EQ(call.attributes(0).on(channel()).with("signal", bytes).run(__DSP_CHANNEL_signal), 2);
        expect_end({enter(function_), plain("ByteArray", "signal", bytes), said("x", function_, "<any>")}, kFalse,
                   function_);
        EXPECT_THAT(bus().complaints(), testing::Not(testing::Contains(HasSubstr("dsp_plugin_signal"))))
            << "the callback did not fail";
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

TEST_F(ChannelSignal, EveryFailureOnTheWayEndsAsPromised) {
    expect_failures(__DSP_CHANNEL_signal, "signal", Value::bytes(signal_bytes(5, "")));
}

TEST_F(ChannelSignal, AnUnsetCallbackIsToldBeforeTheRecordIsMeasured) {
    libvoice_dsp_registered_callbacks.dsp_plugin_signal = nullptr;
    Call call;
    EXPECT_EQ(call.on(channel()).with("signal", Value::bytes("short")).run(__DSP_CHANNEL_signal), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function_, "Call back dsp_plugin_signal is not set")));
}

TEST_F(ChannelSignal, AMissingSignalIsReportedAsConnectionInformation) {
    Call call;
    EXPECT_EQ(call.attributes(0).on(channel()).run(__DSP_CHANNEL_signal), 2);
    expect_end({enter(function_), absent("ByteArray", "signal"), said("x", function_, "Missing argument cnx_info"),
                entry("cnx_info")},
               kFalse, function_);
}

TEST_F(ChannelSignal, AnUnsetCallback) {
    libvoice_dsp_registered_callbacks.dsp_plugin_signal = nullptr;
    Call call;
    EXPECT_EQ(call.on(channel()).with("signal", Value::bytes(signal_bytes(5, ""))).run(__DSP_CHANNEL_signal), 2);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", function_, "Call back dsp_plugin_signal is not set")));
    EXPECT_THAT(call.errors(), IsEmpty());
    EXPECT_EQ(call.returned().str(), "bool false");
}

TEST_F(ChannelSignal, AFailingCallbackIsTracedWithChannelAndBytes) {
    static const void *seen;
    for (const int32_t result : {-1, 1}) {
        again();
        host.result = result;
        libvoice_dsp_registered_callbacks.dsp_plugin_signal = [](const char *, libvoice_signal_t *message) {
            seen = message;
            return host.result;
        };
        Call call;
        EXPECT_EQ(call.on(channel()).with("signal", Value::bytes(signal_bytes(5, ""))).run(__DSP_CHANNEL_signal), 2);
        EXPECT_THAT(bus().complaints(),
                    ElementsAre(said("x", function_, text("Error running dsp_plugin_signal(ch3, %p)", seen))));
        expect_settled(text("callback answers %d", result));
    }
}

} // namespace
} // namespace voice_test
