// SPDX-License-Identifier: MIT
// The voice application starts and stops a plugin: who destroys the request, with and without a callback for its reply.
#include "kex_api_calls_fixture.h"

namespace voice_test {
namespace {

const char *const kInit = "libvoice_kex_init_plugin";
const char *const kExit = "libvoice_kex_exit_plugin";
const char *const kSearched = "i libvoice_plugin_get_entry@plugin_table: getting plugin entry for plugin FXS";
const char *const kFound = "i libvoice_plugin_get_entry@plugin_table: voice_plugin_table[1] matches plugin name FXS";

class InitPlugin : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kInit), leave_ = text("< %s@kex_api_calls", kInit);
    const std::string made_ = made("FXS", "init", 1), added_ = added("country", Value::chars("AT"));
};

TEST_F(InitPlugin, WithoutACallbackTheRequestIsDestroyedAfterTheMarker) {
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 1);
    EXPECT_LOG_OF(kInit, enter_, made_, added_, kSearched, kFound, sent("fxs"), leave_, kDestroyed);
}

TEST_F(InitPlugin, WithACallbackTheRequestIsTheHandlers) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 1);
    EXPECT_LOG_OF(kInit, enter_, made_, added_, "request_setReplyHandler(r1, voice_app_init_reply)", kSearched, kFound,
                  sent("fxs"), leave_);
    bus().leaves_requests(1, "the reply handler owns it");
}

TEST_F(InitPlugin, TheExitCallbackDoesNotCount) {
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 1);
    EXPECT_EQ(bus().acts().back(), kDestroyed);
}

TEST_F(InitPlugin, AFailedSendWithACallbackLeavesTheRequest) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 0);
    EXPECT_EQ(log_of(kInit).back(), leave_);
    EXPECT_THAT(bus().complaints(), IsEmpty());
    bus().leaves_requests(1, "left to a handler that never runs");
}

TEST_F(InitPlugin, AFailedSendWithoutACallbackDestroysTheRequest) {
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 0);
    EXPECT_LOG_OF(kInit, enter_, made_, added_, kSearched, kFound, sent("fxs", 0), leave_, kDestroyed);
}

TEST_F(InitPlugin, BadArgumentsStillDestroyNothing) {
    const struct {
        const char *name, *country, *said;
    } rows[] = {{nullptr, "AT", "Entry parameter error, plugin_name == NULL"},
                {nullptr, nullptr, "Entry parameter error, plugin_name == NULL"},
                {"FXS", nullptr, "Country Code can't be NULL."}};
    for (const auto &row : rows)
        for (const bool set : {false, true}) {
            again();
            if (set)
                libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
            EXPECT_EQ(libvoice_kex_init_plugin(row.name, row.country), 0);
            std::vector<std::string> expected = {enter_, said("x", kInit, row.said), leave_};
            if (!set)
                expected.push_back("request_destroy(null)");
            EXPECT_EQ(fake::difference(expected, log_of(kInit)), "");
            expect_settled(row.said);
        }
}

TEST_F(InitPlugin, ARequestThatCannotBeMadeIsSaidAndNotSent) {
    for (const bool set : {false, true}) {
        again();
        if (set)
            libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
        bus().fail("request_create_executeFunction");
        EXPECT_EQ(libvoice_kex_init_plugin("FXS", "AT"), 0);
        std::vector<std::string> expected = {enter_, not_made("FXS", "init", 1),
                                             said("x", kInit, "Can't create request to send init."), leave_};
        if (!set)
            expected.push_back("request_destroy(null)");
        EXPECT_EQ(fake::difference(expected, log_of(kInit)), "");
        expect_settled("not made");
    }
}

TEST_F(InitPlugin, AnUnknownPluginIsSentToNobody) {
    EXPECT_EQ(libvoice_kex_init_plugin("DECT", "AT"), 0);
    EXPECT_THAT(bus().acts(), testing::Contains(sent("null", 0)));
}

class ExitPlugin : public Requests {
protected:
    const std::string enter_ = text("> %s@kex_api_calls", kExit), leave_ = text("< %s@kex_api_calls", kExit);
    const std::string made_ = made("FXS", "exit", 1);
};

TEST_F(ExitPlugin, TheReasonTravels) {
    for (const uint32_t reason : {0u, 32u, 0xFFFFFFFFu}) {
        again();
        EXPECT_EQ(libvoice_kex_exit_plugin("FXS", reason), 1);
        EXPECT_LOG_OF(kExit, enter_, made_, added("reason", Value::u32(reason)), kSearched, kFound, sent("fxs"), leave_,
                      kDestroyed);
        expect_settled("exit");
    }
}

TEST_F(ExitPlugin, WithACallbackTheRequestIsTheHandlers) {
    libvoice_app_registered_callbacks.voice_app_init_reply = on_init_reply;
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    EXPECT_EQ(libvoice_kex_exit_plugin("FXS", 32), 1);
    EXPECT_LOG_OF(kExit, enter_, made_, added("reason", Value::u32(32)),
                  "request_setReplyHandler(r1, voice_app_exit_reply)", kSearched, kFound, sent("fxs"), leave_);
    bus().leaves_requests(1, "the reply handler owns it");
}

TEST_F(ExitPlugin, AFailedSendWithACallbackLeavesTheRequest) {
    libvoice_app_registered_callbacks.voice_app_exit_reply = on_exit_reply;
    bus().fail("kex_sendRequest");
    EXPECT_EQ(libvoice_kex_exit_plugin("FXS", 32), 0);
    bus().leaves_requests(1, "left to a handler that never runs");
}

TEST_F(ExitPlugin, BadArgumentsAndARequestThatCannotBeMadeStillDestroyNothing) {
    EXPECT_EQ(libvoice_kex_exit_plugin(nullptr, 1), 0);
    EXPECT_LOG_OF(kExit, enter_, said("x", kExit, "Entry parameter error, plugin_name == NULL"), leave_,
                  "request_destroy(null)");
    again();
    bus().fail("request_create_executeFunction");
    EXPECT_EQ(libvoice_kex_exit_plugin("FXS", 1), 0);
    EXPECT_LOG_OF(kExit, enter_, not_made("FXS", "exit", 1), said("x", kExit, "Can't create request to send exit."),
                  leave_, "request_destroy(null)");
}

} // namespace
} // namespace voice_test
