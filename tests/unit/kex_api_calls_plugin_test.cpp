// SPDX-License-Identifier: MIT
// What a plugin asks of the voice application and tells it: registration, which waits, and events, which do not.
#include "kex_api_calls_fixture.h"

namespace voice_test {
namespace {

const char *const kRegister = "libvoice_kex_register_plugin";

class KexRegisterPlugin : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kRegister), leave_ = text("< %s@kex_api_calls", kRegister);
    const std::string made_ = made(kService, "register_plugin", 1), added_ = added("plugin_name", Value::chars("FXS"));
};

TEST_F(KexRegisterPlugin, TheAnswerIsTheResult) {
    const struct {
        Value value;
        int result;
    } rows[] = {{Value::boolean(true), 1}, {Value::boolean(false), 0}, {Value::u32(2), 1},
                {Value::i16(0), 0},        {Value::chars("true"), 0},  {Value(), 0}};
    for (const auto &row : rows) {
        again();
        bus().answer("register_plugin", Reply().value(row.value));
        EXPECT_EQ(libvoice_kex_register_plugin("FXS"), row.result) << row.value.str();
        EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), kWaited, kDestroyed, leave_);
        expect_settled(row.value.str());
    }
}

TEST_F(KexRegisterPlugin, AReplyWithoutAValueIsFalse) {
    bus().answer("register_plugin", Reply());
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(KexRegisterPlugin, EachFailureHasItsTraceMessage) {
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    const std::vector<std::string> log = log_of(kRegister);
    ASSERT_GE(log.size(), 3u);
    EXPECT_LINES(std::vector<std::string>(log.begin(), log.begin() + 3), enter_,
                 not_made(kService, "register_plugin", 1),
                 said("x", kRegister, "Failed to create request 'register_plugin'"));

    again();
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application", 0),
                  said("x", kRegister, "Failed to send 'register_plugin' request."), kDestroyed, leave_);
    expect_settled("send");

    again();
    bus().fail("kex_waitForReply");
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), "kex_waitForReply(bus, r1, no limit) = 0",
                  said("x", kRegister, "Communication failed."), kDestroyed, leave_);
    expect_settled("wait");

    again();
    bus().answer("register_plugin", Reply::none());
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), kWaited,
                  said("x", kRegister, "No reply available."), kDestroyed, leave_);
    expect_settled("no reply");

    again();
    bus().answer("register_plugin", Reply().error(7, "no", "way").value(Value::boolean(true)));
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("application"), kWaited,
                  said("x", "_reply_ok", "Function call error (7) - no - way"),
                  said("x", kRegister, "Function call error."), kDestroyed, leave_);
    expect_settled("error item");
}

TEST_F(KexRegisterPlugin, WithoutAPeerTheRequestIsMadeAndRefused) {
    libvoice_set_kex_peer_handler(nullptr);
    bus().clear_log();
    EXPECT_EQ(libvoice_kex_register_plugin("FXS"), 0);
    EXPECT_LOG_OF(kRegister, enter_, made_, added_, sent("null", 0),
                  said("x", kRegister, "Failed to send 'register_plugin' request."), kDestroyed, leave_);
}

// ------------------------------------------------------------------------------------------------------ send event

const char *const kEvent = "libvoice_send_event";

class SendEvent : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kEvent), leave_ = text("< %s@kex_api_calls", kEvent);
    const std::string made_ = made(kService, "event", 1), named_ = added("plugin_name", Value::chars("FXS"));
};

TEST_F(SendEvent, TheWholeMessageTravelsAsItStands) {
    for (const size_t length : {0u, 1u, 8u, 200u}) {
        again();
        const std::string bytes = event_bytes(5, std::string(length, 'p'), 0x12345678);
        Block<libvoice_event_t> event(bytes);
        EXPECT_EQ(libvoice_send_event(event.get()), 0u);
        EXPECT_LOG_OF(kEvent, enter_, made_, named_, added("event", Value::bytes(bytes)), sent("application"),
                      kDestroyed, leave_);
        EXPECT_EQ(bus().record(1).parameter("event").data, bytes) << "the pointer word goes out as it stands";
        expect_settled(text("%zu parameter bytes", length));
    }
}

TEST_F(SendEvent, TheMessageMayStandAtAnyAddress) {
    for (const size_t at : {1u, 2u, 3u}) {
        const std::string bytes = event_bytes(5, "params");
        Block<libvoice_event_t> event(bytes, at);
        EXPECT_EQ(libvoice_send_event(event.get()), 0u);
        EXPECT_EQ(bus().record(static_cast<unsigned>(at)).parameter("event").data, bytes) << at;
    }
}

TEST_F(SendEvent, BeforeInitialisationNothingElseIsLookedAt) {
    _PLUGIN_NAME[0] = '\0';
    Block<libvoice_event_t> event(event_bytes(5, ""));
    for (libvoice_event_t *message : {static_cast<libvoice_event_t *>(nullptr), event.get()}) {
        bus().clear_log();
        EXPECT_EQ(libvoice_send_event(message), 1u);
        EXPECT_LOG_OF(kEvent, enter_,
                      said("x", kEvent, "libvoiceplugin has not been initialized, please call libvoice_kex_init"),
                      leave_);
    }
}

TEST_F(SendEvent, NullEventIsSaidAndNothingIsMade) {
    EXPECT_EQ(libvoice_send_event(nullptr), 1u);
    EXPECT_LOG_OF(kEvent, enter_, said("x", kEvent, "Event can't be NULL."), leave_);
}

TEST_F(SendEvent, ARequestThatCannotBeMadeIsNotConnected) {
    bus().fail("request_create_executeFunction");
    Block<libvoice_event_t> event(event_bytes(5, ""));
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_LOG_OF(kEvent, enter_, not_made(kService, "event", 1),
                  said("x", kEvent, "Can't create request to send event."), leave_);
}

TEST_F(SendEvent, AFailedSendLeavesTheRequestAsItIs) {
    bus().fail("kex_sendRequest");
    const std::string bytes = event_bytes(5, "");
    Block<libvoice_event_t> event(bytes);
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_LOG_OF(kEvent, enter_, made_, named_, added("event", Value::bytes(bytes)), sent("application", 0),
                  said("x", kEvent, "Error sending kex request"), leave_);
    bus().leaves_requests(1, "an event that was not sent is left as it is");
}

TEST_F(SendEvent, WithoutAPeerTheRequestIsMadeAndRefused) {
    libvoice_set_kex_peer_handler(nullptr);
    Block<libvoice_event_t> event(event_bytes(5, ""));
    EXPECT_EQ(libvoice_send_event(event.get()), 1u);
    EXPECT_THAT(bus().acts(), testing::Contains(sent("null", 0)));
    bus().leaves_requests(1, "an event that was not sent is left as it is");
}

} // namespace
} // namespace voice_test
