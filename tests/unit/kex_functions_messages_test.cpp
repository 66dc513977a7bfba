// SPDX-License-Identifier: MIT
// Signals and events that arrive, in a plugin and in the voice application: where the record's parameters are, whose
// endpoint's it is, and records that are broken.
#include "kex_functions_fixture.h"

namespace voice_test {
namespace {

const char *const kSignal = "__EndPoint_signal";

class EndPointSignal : public Handlers {};

TEST_F(EndPointSignal, TheMessageReachesThePluginAtItsOwnParameters) {
    const std::string message = signal_bytes(5, item(kId, "abcd"), 0x12345678);
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("signal", Value::bytes(message)).run(__EndPoint_signal), 0);
    EXPECT_LOG(enter(kSignal), read("ByteArray", "signal", Value::bytes(message)), "voice_plugin_signal()", kTrue,
               kDestroyed, leave(kSignal));
    std::string seen = message;
    seen.replace(20, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(Value::bytes(host.bytes).str(), Value::bytes(seen).str()) << "only the pointer word is rewritten";
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointSignal, AnEmptyMessageKeepsItsPointer) {
    const std::string message = signal_bytes(5, "", 0x12345678);
    EXPECT_EQ(Call().with("signal", Value::bytes(message)).run(__EndPoint_signal), 0);
    EXPECT_EQ(host.pointer_word, 0x12345678u);
    EXPECT_EQ(host.bytes, message);
}

TEST_F(EndPointSignal, TheEndpointIsNotLookedUp) {
    EXPECT_EQ(Call().on(nullptr).with("signal", Value::bytes(signal_bytes(99, ""))).run(__EndPoint_signal), 0);
}

TEST_F(EndPointSignal, BytesBehindTheLengthAreAccepted) {
    const std::string message = signal_bytes(5, item(kId, "abcd")) + "trailing";
    EXPECT_EQ(Call().with("signal", Value::bytes(message)).run(__EndPoint_signal), 0);
    EXPECT_EQ(host.bytes.size(), 40u);
}

TEST_F(EndPointSignal, MissingSignalFailsWithItsEntry) {
    Call call;
    EXPECT_EQ(call.run(__EndPoint_signal), 2);
    EXPECT_LOG(enter(kSignal), missing("ByteArray", "signal"), said("x", kSignal, "Missing argument 'signal'"),
               entry("signal"), kFalse, kDestroyed, leave(kSignal));
}

TEST_F(EndPointSignal, AFailingCallbackAnswersFalseWithoutATrace) {
    host.result = 17;
    Call call;
    EXPECT_EQ(call.with("signal", Value::bytes(signal_bytes(5, ""))).run(__EndPoint_signal), 2);
    EXPECT_LOG(enter(kSignal), read("ByteArray", "signal", Value::bytes(signal_bytes(5, ""))), "voice_plugin_signal()",
               kFalse, kDestroyed, leave(kSignal));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(EndPointSignal, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        const Value bytes = broken.make(28);
        Call call;
        EXPECT_EQ(call.with("signal", bytes).run(__EndPoint_signal), 2) << broken.name;
        SCOPED_TRACE(broken.name);
        EXPECT_LOG(enter(kSignal), read("ByteArray", "signal", bytes), said("x", kSignal, "<any>"), kFalse, kDestroyed,
                   leave(kSignal));
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

const char *const kEvent = "__EndPoint_event";

class EndPointEvent : public Handlers {
protected:
    std::string message_ = event_bytes(77, item(kId, "abcd"), 0x12345678);
};

TEST_F(EndPointEvent, TheMessageCarriesTheLocalEndpoint) {
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", Value::bytes(message_)),
                  read("UInt32", "channel_id", Value::u32(2)), "voice_plugin_event(endpoint 5, channel 2)", kTrue,
                  kDestroyed, leave(kEvent), kTrue);
    std::string seen = message_;
    seen.replace(0, 4, word(5));
    seen.replace(12, 4, word(pointer_word_of(host.params)));
    EXPECT_EQ(host.bytes, seen);
}

TEST_F(EndPointEvent, AnEmptyMessageKeepsItsPointer) {
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(event_bytes(77, "", 9))).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_EQ(host.pointer_word, 9u);
}

TEST_F(EndPointEvent, AnUnknownEndpointFailsSilentlyAndAnswersTrue) {
    for (const OtherObject &other : kOtherObjects) {
        again();
        SCOPED_TRACE(other.what);
        Call call;
        call.on(other.get()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
        EXPECT_EQ(call.run(__EndPoint_event), 0);
        EXPECT_LOG_OF(kEvent, enter(kEvent), kFalse, kDestroyed, leave(kEvent), kTrue);
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(other.what);
    }
}

TEST_F(EndPointEvent, OnlyANegativeNumberIsNoEndpoint) {
    for (const int32_t number : {0, -7}) {
        again();
        have_endpoint(3, "FXS1", number);
        Call call;
        call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
        EXPECT_EQ(call.run(__EndPoint_event), 0);
        const auto reached = testing::Contains("voice_plugin_event(endpoint 0, channel 2)");
        if (number == 0) {
            EXPECT_THAT(bus().acts(), reached);
        } else {
            EXPECT_LOG_OF(kEvent, enter(kEvent), kFalse, kDestroyed, leave(kEvent), kTrue);
        }
        expect_settled(text("number %d", number));
    }
}

TEST_F(EndPointEvent, MissingEventAnswersTrueToo) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("channel_id", Value::u32(2)).run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), missing("ByteArray", "event"), said("x", kEvent, "Missing argument 'event'"),
                  entry("event"), kFalse, kDestroyed, leave(kEvent), kTrue);
}

TEST_F(EndPointEvent, MissingChannelAnswersTrueToo) {
    Call call;
    EXPECT_EQ(call.on(endpoint_object()).with("event", Value::bytes(message_)).run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", Value::bytes(message_)),
                  missing("UInt32", "channel_id"), said("x", kEvent, "Missing argument channel_id"),
                  entry("channel_id"), kFalse, kDestroyed, leave(kEvent), kTrue);
}

TEST_F(EndPointEvent, AnUnsetCallbackIsTracedAndTheCallerSeesTrue) {
    libvoice_registered_callbacks.voice_plugin_event = nullptr;
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", Value::bytes(message_)),
                  read("UInt32", "channel_id", Value::u32(2)),
                  said("x", kEvent, "No voice_plugin_event callback registered"), kFalse, kDestroyed, leave(kEvent),
                  kTrue);
    EXPECT_EQ(call.returned().str(), "bool true");
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(EndPointEvent, AFailingCallbackShowsNowhereInTheReply) {
    host.result = -4;
    Call call;
    call.on(endpoint_object()).with("event", Value::bytes(message_)).with("channel_id", Value::u32(2));
    EXPECT_EQ(call.run(__EndPoint_event), 0);
    EXPECT_END_OF_LOG_OF(kEvent, kFalse, kDestroyed, leave(kEvent), kTrue);
    EXPECT_EQ(call.returned().str(), "bool true");
}

TEST_F(EndPointEvent, BrokenRecordsNeverReachTheCallback) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        call.on(endpoint_object()).with("event", broken.make(20)).with("channel_id", Value::u32(2));
        EXPECT_EQ(call.run(__EndPoint_event), 0);
        EXPECT_LOG_OF(kEvent, enter(kEvent), read("ByteArray", "event", broken.make(20)),
                      read("UInt32", "channel_id", Value::u32(2)), said("x", kEvent, "<any>"), kFalse, kDestroyed,
                      leave(kEvent), kTrue);
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

const char *const kServiceEvent = "__VoiceService_event";

class ServiceEvent : public Handlers {
protected:
    std::string message_ = event_bytes(5, item(kId, "abcd"), 0x12345678);
};

TEST_F(ServiceEvent, TheMessageReachesTheApplicationAndNoValueIsSet) {
    for (const int32_t result : {0, -1}) {
        again();
        host.result = result;
        Call call;
        call.attributes(0).with("plugin_name", Value::chars("FXS")).with("event", Value::bytes(message_));
        EXPECT_EQ(call.run(__VoiceService_event), 0) << "the callback's result is ignored";
        EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::chars("FXS")),
                      plain("ByteArray", "event", Value::bytes(message_)),
                      said("i", kServiceEvent, "plugin_name = 'FXS' voice_plugin_idx = '5'"),
                      "voice_app_event(endpoint 5)", kDestroyed, leave(kServiceEvent));
        std::string seen = message_;
        seen.replace(12, 4, word(pointer_word_of(host.params)));
        EXPECT_EQ(host.bytes, seen);
        EXPECT_EQ(call.returned().str(), "none");
        expect_settled("event");
    }
}

TEST_F(ServiceEvent, AnEmptyMessageKeepsItsPointer) {
    Call call;
    call.with("plugin_name", Value::chars("FXS")).with("event", Value::bytes(event_bytes(-3, "", 0x99)));
    EXPECT_EQ(call.run(__VoiceService_event), 0);
    EXPECT_EQ(host.pointer_word, 0x99u);
    EXPECT_THAT(bus().trace_log(),
                testing::Contains(said("i", kServiceEvent, "plugin_name = 'FXS' voice_plugin_idx = '-3'")));
}

TEST_F(ServiceEvent, MissingNameIsReportedAsName) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("event", Value::bytes(message_)).run(__VoiceService_event), 2);
    EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), absent("Char", "plugin_name"),
                  said("x", kServiceEvent, "Missing 'name' parameter."),
                  entry_with("Missing 'name' parameter.", "name"), kDestroyed, leave(kServiceEvent));
    EXPECT_EQ(call.returned().str(), "none");
}

TEST_F(ServiceEvent, ANameWithoutAValueIsInvalid) {
    Call call;
    call.attributes(0).with("plugin_name", Value::without_value(VARIANT_TEXT)).with("event", Value::bytes(message_));
    EXPECT_EQ(call.run(__VoiceService_event), 2);
    EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::without_value(VARIANT_TEXT)),
                  said("x", kServiceEvent, text("Invalid plugin name received %p", static_cast<void *>(nullptr))),
                  kDestroyed, leave(kServiceEvent));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(ServiceEvent, MissingEventFailsWithItsEntryAndNoValue) {
    Call call;
    EXPECT_EQ(call.attributes(0).with("plugin_name", Value::chars("FXS")).run(__VoiceService_event), 2);
    EXPECT_LOG_OF(kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::chars("FXS")),
                  absent("ByteArray", "event"), said("x", kServiceEvent, "Missing argument 'event'"), entry("event"),
                  kDestroyed, leave(kServiceEvent));
}

TEST_F(ServiceEvent, AnEventWithoutDataIsInvalid) {
    Call call;
    call.attributes(0).with("plugin_name", Value::chars("FXS")).with("event", Value::without_value(VARIANT_BYTES));
    EXPECT_EQ(call.run(__VoiceService_event), 2);
    EXPECT_LOG_OF(
        kServiceEvent, enter(kServiceEvent), plain("Char", "plugin_name", Value::chars("FXS")),
        plain("ByteArray", "event", Value::without_value(VARIANT_BYTES)),
        said("x", kServiceEvent, text("Invalid Event received from FXS event = %p", static_cast<void *>(nullptr))),
        kDestroyed, leave(kServiceEvent));
    EXPECT_THAT(call.errors(), IsEmpty());
}

TEST_F(ServiceEvent, BrokenRecordsEndOnTheFailurePath) {
    for (const BrokenRecord &broken : kBrokenRecords) {
        if (!broken.make(20).present)
            continue; // has an answer of its own
        again();
        SCOPED_TRACE(broken.name);
        Call call;
        call.attributes(0).with("plugin_name", Value::chars("FXS")).with("event", broken.make(20));
        EXPECT_EQ(call.run(__VoiceService_event), 2);
        EXPECT_LINES(bus().acts(), plain("Char", "plugin_name", Value::chars("FXS")),
                     plain("ByteArray", "event", broken.make(20)), kDestroyed);
        EXPECT_EQ(bus().complaints().size(), 1u);
        EXPECT_EQ(call.returned().str(), "none");
        EXPECT_THAT(call.errors(), IsEmpty());
        expect_settled(broken.name);
    }
}

} // namespace
} // namespace voice_test
