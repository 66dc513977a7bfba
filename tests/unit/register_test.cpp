// SPDX-License-Identifier: MIT
// Start-up and connection of a plugin, the application's socket, and the registration of endpoints.
#include "voice_test.h"

#include <cstdlib>
#include <memory>

namespace voice_test {
namespace {

const char *const kService = "VoiceService.VoiceApplication";
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

class Register : public VoiceTest {
protected:
    Register() { prepare(); }
    ~Register() override { forget_environment(); }

    void prepare() override {
        forget_environment();
        strcpy(_PLUGIN_NAME, "FXS");
        strcpy(ep_suffix, "FXS");
        bus().answer("register_plugin", Reply().value(Value::boolean(true)));
        bus().clear_log();
    }

    static void forget_environment() {
        unsetenv("ZIL_VOIP_IPC_SOCKET_URI");
        unsetenv("ZIL_VOIP_IPC_SOCKET");
    }
};

// ---------------------------------------------------------------------------------------------------------- address

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

// ------------------------------------------------------------------------------------------------ register endpoint

const char *const kKex = "libvoice_kex_register_endpoint";

class RegisterEndpoint : public Register {
protected:
    RegisterEndpoint() { have(); }

    void have() {
        libvoice_set_kex_peer_handler(bus().peer("application"));
        bus().object("FXS.EndPoint");
        bus().answer("register_endpoint", Reply().value(Value::i16(7)));
        bus().answer("deregister_endpoint", Reply());
        bus().clear_log();
    }
    void start_over() {
        again();
        have();
    }

    // `count` records and the null at the end; each record a heap block of exactly its size.
    const void *const *codecs(size_t count) {
        pointers_.clear();
        blocks_.clear();
        for (size_t i = 0; i < count; ++i) {
            blocks_.emplace_back(new char[16]);
            memset(blocks_.back().get(), static_cast<int>('A' + i), 16);
            pointers_.push_back(blocks_.back().get());
        }
        pointers_.push_back(nullptr);
        return pointers_.data();
    }

    static std::string records(size_t count) {
        std::string result;
        for (size_t i = 0; i < count; ++i)
            result += std::string(16, static_cast<char>('A' + i));
        return result;
    }

    const std::string enter_ = text("> %s@register", kKex), leave_ = text("< %s@register", kKex);
    std::vector<std::string> request(const char *name, unsigned type, const std::string &list) {
        return {enter_,
                text("r1 = request_create_executeFunction(\"%s\", \"register_endpoint\", 0x0001)", kService),
                "request_addParameter(r1, \"plugin_name\", \"FXS\")",
                text("request_addParameter(r1, \"endpoint_name\", \"%s\")", name),
                text("request_addParameter(r1, \"endpoint_path\", \"FXS.EndPoint.%s\")", name),
                text("request_addParameter(r1, \"type\", u16 %u)", type),
                "request_addParameter(r1, \"codeclist\", " + Value::bytes(list).str() + ")"};
    }
    void expect_log(std::vector<std::string> expected, const std::vector<std::string> &rest) {
        expected.insert(expected.end(), rest.begin(), rest.end());
        EXPECT_EQ(fake::difference(expected, log_of(kKex)), "");
    }
    const std::string sent_ = "kex_sendRequest(bus, application, r1) = 1",
                      waited_ = "kex_waitForReply(bus, r1, no limit) = 1", destroyed_ = "request_destroy(r1)";

private:
    std::vector<const void *> pointers_;
    std::vector<std::unique_ptr<char[]>> blocks_;
};

TEST_F(RegisterEndpoint, TheRequestCarriesItsArgumentsInOrder) {
    int32_t number = 99;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(2), &number), 1);
    expect_log(request("FXS1", 3, records(2)),
               {sent_, waited_, said("i", kKex, "Got endpoint index '7'."), destroyed_, leave_});
    EXPECT_EQ(number, 7);
}

TEST_F(RegisterEndpoint, TheThirdArgumentIsIgnored) {
    int32_t number = 0;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", reinterpret_cast<void *>(1), codecs(0), &number), 1);
}

TEST_F(RegisterEndpoint, OnlyTheLowSixteenBitsOfTheTypeTravel) {
    const struct {
        int32_t type;
        unsigned travels;
    } rows[] = {{0, 0}, {65535, 65535}, {65536, 0}, {0x12345, 0x2345}, {-1, 65535}};
    for (const auto &row : rows) {
        start_over();
        int32_t number = 0;
        EXPECT_EQ(libvoice_kex_register_endpoint(row.type, "FXS1", nullptr, codecs(0), &number), 1);
        EXPECT_EQ(bus().record(1).parameter("type").str(), text("u16 %u", row.travels));
        expect_settled(text("type %d", row.type));
    }
}

TEST_F(RegisterEndpoint, TheFirstSixteenCodecsTravel) {
    for (const size_t count : {0u, 1u, 15u, 16u, 17u, 20u}) {
        start_over();
        int32_t number = 0;
        EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(count), &number), 1);
        EXPECT_EQ(bus().record(1).parameter("codeclist").data, records(std::min<size_t>(count, 16))) << count;
        EXPECT_EQ(bus().record(1).parameter("codeclist").type, static_cast<uint32_t>(VARIANT_BYTES));
        expect_settled(text("%zu codecs", count));
    }
}

TEST_F(RegisterEndpoint, AFullCodecListNeedsNoNullBehindIt) {
    int32_t number = 0;
    // Sixteen pointers in a block of exactly their size: a sanitizer sees a look at a seventeenth.
    std::unique_ptr<const void *[]> full(new const void *[16]);
    memcpy(full.get(), codecs(16), 16 * sizeof(const void *));
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, full.get(), &number), 1);
    EXPECT_EQ(bus().record(1).parameter("codeclist").data, records(16));
}

TEST_F(RegisterEndpoint, NoCodecListIsAnEmptyOne) {
    int32_t number = 0;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, nullptr, &number), 1);
    EXPECT_EQ(bus().record(1).parameter("codeclist").str(), "bytes(0)");
}

TEST_F(RegisterEndpoint, APathThatWouldOverflowIsCut) {
    memset(_PLUGIN_NAME, 'p', 255);
    int32_t number = 0;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 1);
    EXPECT_EQ(bus().record(1).parameter("endpoint_path").data, std::string(255, 'p'));
    strcpy(_PLUGIN_NAME, "FXS");
    const std::string name(1000, 'n');
    EXPECT_EQ(libvoice_kex_register_endpoint(3, name.c_str(), nullptr, codecs(0), &number), 1);
    EXPECT_EQ(bus().record(2).parameter("endpoint_path").data, ("FXS.EndPoint." + name).substr(0, 255));
    EXPECT_EQ(bus().record(2).parameter("endpoint_name").data, name) << "the name goes as given";
}

TEST_F(RegisterEndpoint, TheAnswerIsReadAsASigned16BitNumber) {
    const struct {
        Value value;
        int32_t number;
    } rows[] = {{Value::i16(0), 0},      {Value::i16(-1), -1},    {Value::u16(32767), 32767},
                {Value::u16(65535), -1}, {Value::i32(40000), -1}, {Value::boolean(false), -1},
                {Value::chars("7"), -1}, {Value(), -1},           {Value::i32(-32768), -32768}};
    for (const auto &row : rows) {
        start_over();
        bus().answer("register_endpoint", Reply().value(row.value));
        int32_t number = 99;
        EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 1) << row.value.str();
        EXPECT_EQ(number, row.number) << row.value.str();
        EXPECT_THAT(bus().trace_log(),
                    testing::Contains(said("i", kKex, text("Got endpoint index '%d'.", row.number))));
        expect_settled(row.value.str());
    }
    start_over();
    bus().answer("register_endpoint", Reply());
    int32_t number = 99;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 1) << "without a value";
    EXPECT_EQ(number, -1);
}

TEST_F(RegisterEndpoint, EachFailureHasItsTraceMessageAndKeepsTheNumber) {
    const struct {
        const char *fails;
        Reply reply;
        std::vector<std::string> rest;
    } rows[] = {
        {"kex_sendRequest",
         Reply(),
         {"kex_sendRequest(bus, application, r1) = 0", said("x", kKex, "Failed to send register request."), destroyed_,
          leave_}},
        {"kex_waitForReply",
         Reply(),
         {sent_, "kex_waitForReply(bus, r1, no limit) = 0", said("x", kKex, "Communication failed."), destroyed_,
          leave_}},
        {"", Reply::none(), {sent_, waited_, said("x", kKex, "No reply available."), destroyed_, leave_}},
        {"",
         Reply().error(9, "no", "way").value(Value::i16(1)),
         {sent_, waited_, "x _reply_ok@kex_api_calls: Function call error (9) - no - way",
          said("x", kKex, "Function call error."), destroyed_, leave_}},
    };
    for (const auto &row : rows) {
        start_over();
        bus().answer("register_endpoint", row.reply);
        if (*row.fails)
            bus().fail(row.fails);
        int32_t number = 99;
        EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(1), &number), 0);
        EXPECT_EQ(number, 99);
        expect_log(request("FXS1", 3, records(1)), row.rest);
        expect_settled(row.rest[0]);
    }
}

TEST_F(RegisterEndpoint, ARequestThatCannotBeMadeFailsAtItsSend) {
    bus().fail("request_create_executeFunction");
    int32_t number = 99;
    EXPECT_EQ(libvoice_kex_register_endpoint(3, "FXS1", nullptr, codecs(1), &number), 0);
    EXPECT_THAT(bus().complaints(), ElementsAre(said("x", kKex, "Failed to send register request.")));
    EXPECT_EQ(number, 99);
}

TEST_F(RegisterEndpoint, TheWholeRegistrationPublishesAsksAndStores) {
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 0u);
    const std::vector<std::string> acts = bus().acts();
    ASSERT_GE(acts.size(), 5u);
    EXPECT_LINES(std::vector<std::string>(acts.begin(), acts.begin() + 4),
                 "kex_getObject(bus, \"FXS.EndPoint\", 1) = <FXS.EndPoint>",
                 "object_getObject(<FXS.EndPoint>, \"FXS1\", 1, null) = null",
                 "object_createInstance(<FXS.EndPoint>, 0, \"FXS1\") = <FXS.EndPoint.FXS1>",
                 "object_commit(<FXS.EndPoint>) = 1");
    EXPECT_EQ(number, 7);
    EXPECT_EQ(endpt_table[0].used, 1u);
    EXPECT_STREQ(endpt_table[0].name, "FXS1");
    EXPECT_EQ(endpt_table[0].endpoint, 7);
    EXPECT_EQ(endpt_table[0].userdata, nullptr);
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1"));
}

TEST_F(RegisterEndpoint, ARefusalTakesTheObjectBack) {
    bus().answer("register_endpoint", Reply().error(1, "", ""));
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 4u);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_EQ(endpt_table[0].used, 0u);
    EXPECT_EQ(number, 99);
}

TEST_F(RegisterEndpoint, AnObjectThatExistsDoesNotStopTheRegistration) {
    bus().object("FXS.EndPoint.FXS1");
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 0u);
    EXPECT_THAT(
        bus().complaints(),
        ElementsAre("x libvoice_kex_datamodel_add_endpoint@kex_datamodel: Endpoint with name 'FXS1' already exists "
                    "in datamodel."));
    EXPECT_EQ(number, 7);
}

TEST_F(RegisterEndpoint, ARefusalTakesAnObjectThatExistedToo) {
    bus().object("FXS.EndPoint.FXS1");
    bus().answer("register_endpoint", Reply().error(1, "", ""));
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 4u);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
}

TEST_F(RegisterEndpoint, AFullTableIsFourAndNothingIsUndone) {
    for (unsigned i = 0; i < 32; ++i)
        have_endpoint(i, text("E%u", i).c_str(), static_cast<int32_t>(100 + i));
    int32_t number = 99;
    EXPECT_EQ(libvoice_register_endpoint(3, "FXS1", nullptr, codecs(0), &number), 4u);
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1"));
}

// ---------------------------------------------------------------------------------------------- deregister endpoint

const char *const kKexDeregister = "libvoice_kex_deregister_endpoint";

class DeregisterEndpoint : public RegisterEndpoint {
protected:
    DeregisterEndpoint() { have_one(); }
    void have_one() {
        have_endpoint(2, "FXS1", 7);
        bus().object("FXS.EndPoint.FXS1");
    }
    const std::string in_ = text("> %s@register", kKexDeregister), out_ = text("< %s@register", kKexDeregister);
    const std::string made_ =
        text("r1 = request_create_executeFunction(\"%s\", \"deregister_endpoint\", 0x0001)", kService);
};

TEST_F(DeregisterEndpoint, TheRequestNamesTheNumberEndpointId) {
    const struct {
        int32_t number;
        unsigned travels;
    } rows[] = {{7, 7}, {65535, 65535}, {-1, 65535}, {0x10007, 7}};
    for (const auto &row : rows) {
        start_over();
        EXPECT_EQ(libvoice_kex_deregister_endpoint(row.number), 1);
        EXPECT_LOG_OF(kKexDeregister, in_, made_,
                      text("request_addParameter(r1, \"endpoint_id\", u16 %u)", row.travels), sent_, waited_,
                      destroyed_, out_);
        expect_settled(text("number %d", row.number));
    }
}

TEST_F(DeregisterEndpoint, TheAnswersValueIsNotRead) {
    bus().answer("deregister_endpoint", Reply().value(Value::boolean(false)));
    EXPECT_EQ(libvoice_kex_deregister_endpoint(7), 1);
}

TEST_F(DeregisterEndpoint, EachFailureHasItsTraceMessage) {
    const struct {
        const char *fails;
        Reply reply;
        std::vector<std::string> lines;
    } rows[] = {
        {"request_create_executeFunction", Reply(), {"Can't create request to send deregister_endpoint."}},
        {"kex_sendRequest", Reply(), {"Failed to send deregister request."}},
        {"kex_waitForReply", Reply(), {"Communication failed."}},
        {"", Reply::none(), {"No reply available."}},
        {"", Reply().error(9, "no", "way"), {"Function call error."}},
    };
    for (const auto &row : rows) {
        start_over();
        have_one();
        bus().answer("deregister_endpoint", row.reply);
        if (*row.fails)
            bus().fail(row.fails);
        EXPECT_EQ(libvoice_deregister_endpoint(7), 2u) << row.lines[0];
        std::vector<std::string> expected;
        if (!row.reply.items.empty())
            expected.push_back("x _reply_ok@kex_api_calls: Function call error (9) - no - way");
        expected.push_back(said("x", kKexDeregister, row.lines[0]));
        EXPECT_EQ(fake::difference(expected, bus().complaints()), "");
        EXPECT_EQ(log_of(kKexDeregister).back(), out_);
        EXPECT_EQ(endpt_table[2].used, 1u) << "the table stays";
        EXPECT_TRUE(bus().exists("FXS.EndPoint.FXS1")) << "the object stays";
        expect_settled(row.lines[0]);
    }
}

TEST_F(DeregisterEndpoint, TheObjectAndTheEntryGo) {
    EXPECT_EQ(libvoice_deregister_endpoint(7), 0u);
    EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1"));
    EXPECT_EQ(endpt_table[2].used, 0u);
    EXPECT_THAT(bus().complaints(), IsEmpty());
}

TEST_F(DeregisterEndpoint, AnObjectThatCannotGoKeepsTheEntry) {
    bus().fail("object_delete");
    EXPECT_EQ(libvoice_deregister_endpoint(7), 2u);
    EXPECT_EQ(endpt_table[2].used, 1u);
}

TEST_F(DeregisterEndpoint, AnUnknownNumberIsStillSentAndAnEmptyNameRemoved) {
    EXPECT_EQ(libvoice_deregister_endpoint(99), 2u);
    EXPECT_TRUE(bus().record(1).sent);
    EXPECT_THAT(
        bus().complaints(),
        ElementsAre("x libvoice_kex_datamodel_delete_endpoint@kex_datamodel: No instance [FXS.EndPoint.] found : "
                    "ignoring delete request"));
}

TEST_F(DeregisterEndpoint, EveryFailureOnTheWayEndsAsPromised) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 40u);
        start_over();
        have_one();
        bus().fail_call(n);
        const uint32_t result = libvoice_deregister_endpoint(7);
        const std::string failed = bus().failed();
        const bool unseen = failed.empty() || failed == "variant_setUInt16" || failed == "request_addParameter";
        EXPECT_EQ(result, unseen ? 0u : 2u) << failed;
        EXPECT_EQ(endpt_table[2].used, unseen ? 0u : 1u) << failed;
        EXPECT_EQ(bus().complaints().size(), unseen ? 0u : 1u) << failed;
        expect_settled(failed);
        if (failed.empty())
            break;
    }
}

TEST_F(RegisterEndpoint, EveryFailureOnTheWayEndsAsPromised) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 60u);
        start_over();
        int32_t number = 99;
        bus().fail_call(n);
        const uint32_t result = libvoice_register_endpoint(3, "FXS1", nullptr, codecs(1), &number);
        const std::string failed = bus().failed();
        const bool refused = failed == "request_create_executeFunction" || failed == "kex_sendRequest" ||
                             failed == "kex_waitForReply" || failed == "request_reply";
        EXPECT_EQ(result, refused ? 4u : 0u) << failed;
        EXPECT_EQ(endpt_table[0].used, refused ? 0u : 1u) << failed;
        EXPECT_EQ(number, refused ? 99 : failed == "variant_toInt16" ? -1 : 7) << failed;
        if (refused) {
            EXPECT_FALSE(bus().exists("FXS.EndPoint.FXS1")) << failed;
        }
        expect_settled(failed);
        if (failed.empty())
            break;
    }
}

} // namespace
} // namespace voice_test
