// SPDX-License-Identifier: MIT
// A plugin starts, connects and registers, and does so again; the application listens.
#include "register_fixture.h"

#include <cstdlib>

namespace voice_test {
namespace {

const char *const kDefaultUri = "kex://ipc:[/var/run/voip_ipc_sock]";

int32_t on_init(const char *) {
    return 0;
}
int32_t on_destroy_ctx(uint32_t) {
    return 0;
}

libvoice_callbacks_t some_callbacks() {
    libvoice_callbacks_t callbacks{};
    callbacks.voice_plugin_init = on_init;
    callbacks.voice_plugin_destroy_ctx = on_destroy_ctx;
    return callbacks;
}

class Socket : public Register {};

TEST_F(Socket, TheAddressesHaveTheirDefaults) {
    EXPECT_STREQ(libvoice_get_ipc_socket_uri(), kDefaultUri);
    EXPECT_STREQ(libvoice_get_ipc_socket(), "/var/run/voip_ipc_sock");
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Socket, EachVariableOverridesItsOwnFormAtEveryCall) {
    setenv("ZIL_VOIP_IPC_SOCKET", "/tmp/other", 1);
    EXPECT_STREQ(libvoice_get_ipc_socket(), "/tmp/other");
    EXPECT_STREQ(libvoice_get_ipc_socket_uri(), kDefaultUri);
    setenv("ZIL_VOIP_IPC_SOCKET_URI", "kex://ipc:[/tmp/uri]", 1);
    EXPECT_STREQ(libvoice_get_ipc_socket_uri(), "kex://ipc:[/tmp/uri]");
    EXPECT_STREQ(libvoice_get_ipc_socket(), "/tmp/other");
    setenv("ZIL_VOIP_IPC_SOCKET", "/tmp/third", 1);
    EXPECT_STREQ(libvoice_get_ipc_socket(), "/tmp/third") << "nothing is cached";
    unsetenv("ZIL_VOIP_IPC_SOCKET");
    EXPECT_STREQ(libvoice_get_ipc_socket(), "/var/run/voip_ipc_sock");
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(Socket, AnEmptyVariableWins) {
    setenv("ZIL_VOIP_IPC_SOCKET_URI", "", 1);
    setenv("ZIL_VOIP_IPC_SOCKET", "", 1);
    EXPECT_STREQ(libvoice_get_ipc_socket_uri(), "");
    EXPECT_STREQ(libvoice_get_ipc_socket(), "");
}

class AppConnect : public Register {};

TEST_F(AppConnect, TheApplicationListens) {
    EXPECT_EQ(libvoice_app_connect(bus().connection(), "/tmp/sock"), bus().peer("listener"));
    EXPECT_LOG("> libvoice_app_connect@register", said("i", "libvoice_app_connect", "Creating IPC socket /tmp/sock"),
               "connection_listenOnIPC(connection, \"/tmp/sock\") = listener", "< libvoice_app_connect@register");
}

TEST_F(AppConnect, ANullOrEmptyPathDoesNothing) {
    for (const char *path : {static_cast<const char *>(nullptr), ""}) {
        bus().clear_log();
        EXPECT_EQ(libvoice_app_connect(bus().connection(), path), nullptr);
        EXPECT_LOG("> libvoice_app_connect@register", "< libvoice_app_connect@register");
    }
}

TEST_F(AppConnect, AFailureIsTraced) {
    bus().fail("connection_listenOnIPC");
    EXPECT_EQ(libvoice_app_connect(bus().connection(), "/tmp/sock"), nullptr);
    EXPECT_LOG("> libvoice_app_connect@register", said("i", "libvoice_app_connect", "Creating IPC socket /tmp/sock"),
               "connection_listenOnIPC(connection, \"/tmp/sock\") = null",
               said("x", "libvoice_app_connect", "Error creating IPC socket /tmp/sock"),
               "< libvoice_app_connect@register");
}

class PluginConnect : public Register {};

TEST_F(PluginConnect, ThePeerIsReturnedAndNotStored) {
    EXPECT_EQ(libvoice_plugin_connect(), bus().peer("application"));
    EXPECT_EQ(libvoice_get_kex_peer_handler(), nullptr);
    EXPECT_LOG_OF("libvoice_plugin_connect", "> libvoice_plugin_connect@register",
                  text("kex_client_connect(bus, \"%s\") = application", kDefaultUri),
                  "< libvoice_plugin_connect@register");
    bus().connect_gives(nullptr);
    EXPECT_EQ(libvoice_plugin_connect(), nullptr);
}

TEST_F(PluginConnect, TheUriOfTheEnvironmentIsUsed) {
    setenv("ZIL_VOIP_IPC_SOCKET_URI", "kex://ipc:[/tmp/uri]", 1);
    setenv("ZIL_VOIP_IPC_SOCKET", "/tmp/other", 1);
    libvoice_plugin_connect();
    EXPECT_THAT(bus().acts(), ElementsAre("kex_client_connect(bus, \"kex://ipc:[/tmp/uri]\") = application"));
}

// ------------------------------------------------------------------------------------------------------------ cycle

const char *const kAttempt = "libvoice_datamodel_ready_cb";

class Cycle : public Register {
protected:
    const std::string enter_ = text("> %s@register", kAttempt), leave_ = text("< %s@register", kAttempt);
    const std::string trying_ = said("i", kAttempt, "Trying to registering plugin FXS");
    const std::string made_ =
                          text("r1 = request_create_executeFunction(\"%s\", \"register_plugin\", 0x0001)", kService),
                      added_ = "request_addParameter(r1, \"plugin_name\", \"FXS\")";

    void start() {
        libvoice_register_datamodel_cb();
        bus().clear_log();
    }
};

TEST_F(Cycle, StartingMakesATimerForTheNextTurn) {
    libvoice_register_datamodel_cb();
    EXPECT_LOG("> libvoice_register_datamodel_cb@register", "kex_timer_create() = timer1",
               "kex_timer_setHandler(timer1, handler)", "kex_timer_start(timer1, 0) = 1",
               "< libvoice_register_datamodel_cb@register");
    EXPECT_EQ(bus().timers_armed(), 1u);
}

TEST_F(Cycle, WithoutATimerNothingIsAttempted) {
    bus().fail("kex_timer_create");
    libvoice_register_datamodel_cb();
    bus().advance(60000);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), nullptr);
    EXPECT_EQ(bus().timers_armed(), 0u);
}

TEST_F(Cycle, OneAttemptConnectsRegistersAndEnds) {
    start();
    bus().advance(0);
    EXPECT_LOG_OF(kAttempt, enter_, text("kex_client_connect(bus, \"%s\") = application", kDefaultUri),
                  "peer_setEventHandler(application, 6, null, handler) = 1", trying_, made_, added_,
                  "kex_sendRequest(bus, application, r1) = 1", "kex_waitForReply(bus, r1, no limit) = 1",
                  "request_destroy(r1)", "kex_timer_destroy(timer1)", leave_);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), bus().peer("application"));
    EXPECT_EQ(bus().live().timers, 0u);
}

TEST_F(Cycle, ARefusedConnectionIsTriedAgainInTenSeconds) {
    bus().connect_gives(nullptr);
    start();
    bus().advance(0);
    EXPECT_LOG_OF(kAttempt, enter_, text("kex_client_connect(bus, \"%s\") = null", kDefaultUri),
                  said("x", kAttempt, text("Can't connect to %s retrying in 10s", kDefaultUri)),
                  "kex_timer_start(timer1, 10000) = 1", leave_);
}

TEST_F(Cycle, TheUriShownIsTheOneTried) {
    setenv("ZIL_VOIP_IPC_SOCKET_URI", "kex://ipc:[/tmp/uri]", 1);
    bus().connect_gives(nullptr);
    start();
    bus().advance(0);
    EXPECT_THAT(bus().complaints(),
                ElementsAre(said("x", kAttempt, "Can't connect to kex://ipc:[/tmp/uri] retrying in 10s")));
}

TEST_F(Cycle, AnApplicationThatStartsAfterTwentyFiveSecondsIsReachedOnTheFourthAttempt) {
    bus().connect_gives(nullptr);
    start();
    bus().advance(25000);
    EXPECT_EQ(bus().complaints().size(), 3u) << "at 0, 10 and 20 s";
    bus().connect_gives(bus().peer("application"));
    bus().advance(4999);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), nullptr);
    bus().advance(1);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), bus().peer("application"));
    EXPECT_EQ(bus().complaints().size(), 3u);
    EXPECT_EQ(bus().live().timers, 0u);
    bus().advance(100000);
    EXPECT_EQ(bus().requests_made(), 1u) << "the cycle has ended";
}

TEST_F(Cycle, ARefusedRegistrationIsRetriedWithoutANewConnect) {
    bus().answer("register_plugin", Reply().value(Value::boolean(false)));
    start();
    bus().advance(0);
    EXPECT_END_OF_LOG_OF(kAttempt, "request_destroy(r1)",
                         said("x", kAttempt, "Plugin registration failed. Trying again in 10s."),
                         "kex_timer_start(timer1, 10000) = 1", leave_);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), bus().peer("application")) << "the peer is kept";
    bus().answer("register_plugin", Reply().value(Value::boolean(true)));
    bus().clear_log();
    bus().advance(10000);
    EXPECT_LOG_OF(kAttempt, enter_, trying_,
                  text("r2 = request_create_executeFunction(\"%s\", \"register_plugin\", 0x0001)", kService),
                  "request_addParameter(r2, \"plugin_name\", \"FXS\")", "kex_sendRequest(bus, application, r2) = 1",
                  "kex_waitForReply(bus, r2, no limit) = 1", "request_destroy(r2)", "kex_timer_destroy(timer1)",
                  leave_);
}

TEST_F(Cycle, TheTwoEndsShowTheirOwnLines) {
    bus().answer("register_plugin", Reply().value(Value::boolean(false)));
    start();
    bus().advance(0);
    bus().answer("register_plugin", Reply().value(Value::boolean(true)));
    bus().advance(10000);
    std::vector<int> lines;
    for (const fake::TraceLine &line : bus().traces())
        if (line.marker && !line.enter && line.function == kAttempt)
            lines.push_back(line.line);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0], lines[1]);
}

TEST_F(Cycle, APeerThatClosesStartsOver) {
    start();
    bus().advance(0);
    have_endpoint(3, "mine", 5);
    endpt_table[3].userdata = this;
    endpt_table[3].type = 9;
    bus().clear_log();
    EXPECT_EQ(bus().close(bus().peer("application")), 1);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), nullptr);
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(endpt_table[i].used, 0u);
        EXPECT_EQ(endpt_table[i].endpoint, -1);
        EXPECT_EQ(endpt_table[i].userdata, nullptr);
        EXPECT_EQ(std::string(endpt_table[i].name), text("FXS%d", i + 1));
    }
    EXPECT_EQ(endpt_table[3].type, 9) << "the other fields are left";
    EXPECT_LINES(bus().acts(), "kex_timer_create() = timer2", "kex_timer_setHandler(timer2, handler)",
                 "kex_timer_start(timer2, 0) = 1");
    bus().connect_gives(bus().peer("application again"));
    bus().advance(0);
    EXPECT_EQ(libvoice_get_kex_peer_handler(), bus().peer("application again"));
}

TEST_F(Cycle, EveryFailureOnTheWayIsRetried) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 30u);
        again();
        start();
        bus().fail_call(n);
        bus().advance(0);
        const std::string failed = bus().failed();
        SCOPED_TRACE(text("call %u, %s, failed", n, failed.c_str()));
        const bool done = failed.empty() || failed == "peer_setEventHandler" || failed == "variant_setChar" ||
                          failed == "request_addParameter";
        EXPECT_EQ(bus().live().timers, done ? 0u : 1u);
        EXPECT_EQ(bus().timers_armed(), done ? 0u : 1u);
        bus().advance(10000);
        EXPECT_EQ(bus().live().timers, 0u) << "the second attempt works";
        expect_settled(failed);
        if (failed.empty())
            break;
    }
}

// ------------------------------------------------------------------------------------------------------- libvoice_init

class PluginStart : public Register {};

TEST_F(PluginStart, TheTableIsPresetTheCallbacksKeptAndNothingWaits) {
    have_endpoint(0, "old", 0);
    endpt_table[0].userdata = this;
    const libvoice_callbacks_t callbacks = some_callbacks();
    libvoice_init(callbacks);
    EXPECT_LOG_WITHOUT_MARKERS("i libvoice_init@generic: init is called", "kex_timer_create() = timer1",
                               "kex_timer_setHandler(timer1, handler)", "kex_timer_start(timer1, 0) = 1");
    EXPECT_EQ(memcmp(&libvoice_registered_callbacks, &callbacks, sizeof(callbacks)), 0);
    EXPECT_EQ(sizeof(callbacks), 14 * sizeof(void *));
    EXPECT_STREQ(libvoice_get_next_free_endpoint_name(), "FXS1");
    EXPECT_EQ(endpt_table[0].userdata, nullptr);
    for (const int32_t number : {-1, 0, 1, 31})
        EXPECT_EQ(is_valid_endpoint(number), 0);
    EXPECT_EQ(bus().requests_made(), 0u);
}

TEST_F(PluginStart, ASecondCallOverwritesTheCallbacksAndStartsASecondCycle) {
    libvoice_init(some_callbacks());
    libvoice_init(libvoice_callbacks_t());
    EXPECT_EQ(libvoice_registered_callbacks.voice_plugin_init, nullptr);
    EXPECT_EQ(bus().timers_armed(), 2u);
}

TEST_F(PluginStart, AnEmptyStemNamesByNumber) {
    ep_suffix[0] = '\0';
    libvoice_init(some_callbacks());
    EXPECT_STREQ(endpt_table[0].name, "1");
    EXPECT_STREQ(endpt_table[31].name, "32");
}

TEST_F(PluginStart, TheLongestStemFillsAName) {
    libvoice_set_ep_suffix("1234567890abcdef");
    libvoice_init(some_callbacks());
    EXPECT_STREQ(endpt_table[0].name, "1234567890abc1");
    EXPECT_STREQ(endpt_table[31].name, "1234567890abc32");
    EXPECT_EQ(strlen(endpt_table[31].name), 15u);
}

} // namespace
} // namespace voice_test
