// SPDX-License-Identifier: MIT
// Starting a host by one call: what it does in which order, and what it says to each wrong set-up.
#include "voice_start.h"

#include <cstdlib>
#include <fcntl.h>

#include "records.h"
#include "voice_fake/gtest.h"
#include "voice_fake/memory.h"

namespace {

using fake::bus;
using fake::Call;
using fake::Reply;
using fake::Value;

int32_t plugin_init(const char *) {
    return 0;
}
int32_t plugin_exit(uint32_t) {
    return 0;
}

libvoice_callbacks_t plugin_callbacks() {
    libvoice_callbacks_t callbacks = voice_plugin_rejections();
    callbacks.voice_plugin_init = plugin_init;
    callbacks.voice_plugin_exit = plugin_exit;
    return callbacks;
}

libvoice_app_callbacks_t application_callbacks() {
    libvoice_app_callbacks_t callbacks = {};
    callbacks.voice_app_get_country = [](char *country, uint32_t size) -> int32_t {
        return snprintf(country, size, "DE") < 0 ? -1 : 0;
    };
    callbacks.voice_app_event = [](libvoice_event_t *) -> int32_t { return 0; };
    callbacks.voice_app_register_endpoint = [](libvoice_endpoint_t *) -> int32_t { return 0; };
    return callbacks;
}

// Each test begins with a library that knows nothing.
class Start : public fake::BusTest {
protected:
    Start() { forget(); }
    void TearDown() override {
        BusTest::TearDown();
        forget();
    }
    static void forget() {
        memset(endpt_table, 0, sizeof endpt_table);
        libvoice_plugin_init_table();
        libvoice_registered_callbacks = {};
        libvoice_app_registered_callbacks = {};
        libvoice_dsp_registered_callbacks = {};
        libvoice_set_pluginname("");
        libvoice_set_ep_suffix("");
        libvoice_set_kex_handler(nullptr);
        libvoice_set_kex_peer_handler(nullptr);
        voice_plugin_own_init = nullptr;
        voice_plugin_initialised_by = nullptr;
        bus().clear_log();
    }
    // After a sentence: nothing was handed to the library, and nothing will run.
    static void expect_not_started() {
        EXPECT_EQ(libvoice_get_kex_handler(), nullptr);
        EXPECT_STREQ(libvoice_get_pluginname(), "");
        EXPECT_EQ(libvoice_registered_callbacks.voice_plugin_init, nullptr);
        EXPECT_EQ(libvoice_app_registered_callbacks.voice_app_event, nullptr);
        EXPECT_EQ(bus().timers_armed(), 0u);
    }
    kex_t *const the_bus = bus().handle();
};

// ------------------------------------------------------------------------------------------------------- A good start

TEST_F(Start, PluginIsDeclaredUnderOneName) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    EXPECT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), nullptr);
    EXPECT_EQ(bus().declared_functions().size(), size_t{LIBVOICE_BUS_FUNCTIONS});
    EXPECT_TRUE(bus().exists("tel"));
    EXPECT_EQ(bus().class_of("tel"), "");
    EXPECT_EQ(bus().class_of("tel.EndPoint"), "EndPoint");
    EXPECT_EQ(libvoice_get_kex_handler(), the_bus);
    EXPECT_STREQ(libvoice_get_pluginname(), "tel");
    EXPECT_STREQ(libvoice_get_ep_suffix(), "tel");
    libvoice_callbacks_t handed_over = libvoice_registered_callbacks;
    handed_over.voice_plugin_init = plugin_init; // the helper stands before this one only
    EXPECT_EQ(memcmp(&handed_over, &callbacks, sizeof callbacks), 0);
    EXPECT_EQ(bus().timers_armed(), 1u) << "the connection cycle";
}

TEST_F(Start, StemThatWasSetStays) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    libvoice_set_ep_suffix("TEL");
    EXPECT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), nullptr);
    EXPECT_STREQ(libvoice_get_ep_suffix(), "TEL");
    EXPECT_STREQ(libvoice_get_next_free_endpoint_name(), "TEL1");
}

TEST_F(Start, PluginConnectsAndRegistersInTheLoop) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    bus().connect_gives(bus().peer("application"));
    bus().answer("register_plugin", Reply().value(Value::boolean(true)));
    EXPECT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), nullptr);
    EXPECT_EQ(bus().requests_made(), 0u);
    bus().run_for(0);
    EXPECT_EQ(bus().record(1).function, "register_plugin");
    EXPECT_EQ(bus().record(1).parameter("plugin_name").str(), "\"tel\"");
}

TEST_F(Start, DspPluginHasItsObjectsToo) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    libvoice_dsp_callbacks_t dsp = {}; // none of them must be set
    dsp.dsp_plugin_destroy = [](const char *, uint32_t) -> int32_t { return 0; };
    EXPECT_STREQ(voice_dsp_plugin_start(the_bus, "dsp1", &callbacks, &dsp), nullptr);
    EXPECT_EQ(bus().class_of("dsp1.EndPoint"), "EndPoint");
    EXPECT_EQ(bus().class_of("dsp1.DSPPlugin"), "DSPPlugin");
    EXPECT_EQ(bus().class_of("dsp1.DSPPlugin.DSP"), "DSP");
    EXPECT_EQ(bus().class_of("dsp1.DSPPlugin.DSP.DSP_CHANNEL"), "DSP_CHANNEL");
    EXPECT_EQ(memcmp(&libvoice_dsp_registered_callbacks, &dsp, sizeof dsp), 0);
    EXPECT_STREQ(libvoice_get_pluginname(), "dsp1");
    EXPECT_EQ(bus().timers_armed(), 1u);
}

TEST_F(Start, ApplicationListensAndLetsLostPluginsGo) {
    const libvoice_app_callbacks_t callbacks = application_callbacks();
    unsetenv("ZIL_VOIP_IPC_SOCKET");
    EXPECT_STREQ(voice_application_start(the_bus, &callbacks), nullptr);
    EXPECT_EQ(bus().class_of("VoiceService.VoiceApplication"), "VoiceService");
    EXPECT_EQ(bus().declared_functions().size(), size_t{LIBVOICE_BUS_FUNCTIONS});
    EXPECT_EQ(libvoice_get_kex_handler(), the_bus);
    EXPECT_EQ(memcmp(&libvoice_app_registered_callbacks, &callbacks, sizeof callbacks), 0);
    const std::vector<std::string> acts = bus().acts();
    EXPECT_EQ(acts.back().rfind("connection_listenOnIPC(connection, \"/var/run/voip_ipc_sock\")", 0), 0u)
        << acts.back();

    libvoice_plugin_set_name_by_peer(bus().peer("tel"), "tel");
    ASSERT_NE(libvoice_plugin_get_index("tel"), -1);
    bus().close(bus().peer("tel"));
    EXPECT_EQ(libvoice_plugin_get_index("tel"), -1);
    bus().close(bus().peer("voicectl")); // one that never registered
}

// ------------------------------------------------------------------------------------------------- Wrong set-ups, each

TEST_F(Start, NamesThatThePluginsCannotHaveAreSaid) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    const char not_plain[] = "the plugin's name has a dot, a blank, a quote or no plain character";
    const struct {
        const char *name;
        const char *wrong;
    } rows[] = {
        {nullptr, "the plugin has no name"},
        {"", "the plugin has no name"},
        {"abcdefghijklmnopqrst", "the plugin's name is too long: 19 characters at most"},
        {"a.b", not_plain},
        {"a b", not_plain},
        {"a\"b", not_plain},
        {"a\nb", not_plain},
        {"T\xC3\xBCr", not_plain},
        {"a\x7F", not_plain},
    };
    for (const auto &row : rows) {
        EXPECT_STREQ(voice_plugin_start(the_bus, row.name, &callbacks), row.wrong);
        const libvoice_dsp_callbacks_t dsp = {};
        EXPECT_STREQ(voice_dsp_plugin_start(the_bus, row.name, &callbacks, &dsp), row.wrong);
        expect_not_started();
    }
    EXPECT_STREQ(voice_plugin_start(the_bus, "abcdefghijklmnopqrs", &callbacks), nullptr) << "19 characters";
}

// The callbacks by their place; the library's header promises that order.
template <typename Table>
void unset(Table *table, size_t at) {
    memset(reinterpret_cast<char *>(table) + at * sizeof(void (*)()), 0, sizeof(void (*)()));
}

TEST_F(Start, PluginCallbacksThatMustBeSetAreNamed) {
    const char *const names[] = {"voice_plugin_init is not set",
                                 "voice_plugin_exit is not set",
                                 "voice_plugin_signal is not set",
                                 nullptr, // voice_plugin_event may be unset
                                 "voice_plugin_create is not set",
                                 "voice_plugin_modify is not set",
                                 "voice_plugin_destroy is not set",
                                 "voice_plugin_get is not set",
                                 "voice_plugin_set is not set",
                                 "voice_plugin_create_ctx is not set",
                                 "voice_plugin_add_stream is not set",
                                 "voice_plugin_modify_stream is not set",
                                 "voice_plugin_remove_stream is not set",
                                 "voice_plugin_destroy_ctx is not set"};
    constexpr size_t kCallbacks = sizeof names / sizeof names[0];
    static_assert(sizeof(libvoice_callbacks_t) == kCallbacks * sizeof(void (*)()));
    for (size_t at = 0; at < kCallbacks; at++) {
        libvoice_callbacks_t callbacks = plugin_callbacks();
        unset(&callbacks, at);
        EXPECT_STREQ(voice_plugin_callbacks_wrong(&callbacks), names[at]) << at;
        if (names[at] == nullptr)
            continue;
        const libvoice_dsp_callbacks_t dsp = {};
        EXPECT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), names[at]);
        EXPECT_STREQ(voice_dsp_plugin_start(the_bus, "tel", &callbacks, &dsp), names[at]);
        expect_not_started();
        EXPECT_FALSE(bus().exists("tel"));
    }
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    EXPECT_STREQ(voice_plugin_start(the_bus, "tel", nullptr), "there is no table of callbacks");
    EXPECT_STREQ(voice_dsp_plugin_start(the_bus, "tel", &callbacks, nullptr), "there is no table of DSP callbacks");
    expect_not_started();
}

TEST_F(Start, ApplicationCallbacksThatMustBeSetAreNamed) {
    const char *const names[] = {"voice_app_get_country is not set", "voice_app_event is not set",
                                 "voice_app_register_endpoint is not set"};
    for (size_t at = 0; at < 3; at++) {
        libvoice_app_callbacks_t callbacks = application_callbacks();
        unset(&callbacks, at);
        EXPECT_STREQ(voice_application_start(the_bus, &callbacks), names[at]);
        expect_not_started();
    }
    EXPECT_STREQ(voice_application_start(the_bus, nullptr), "there is no table of callbacks");
    expect_not_started();
}

TEST_F(Start, BusThatIsNotThereIsSaid) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    const libvoice_app_callbacks_t application = application_callbacks();
    const char wrong[] =
        "there is no bus: kex_create() comes first, and answers NULL when the process has no descriptors left";
    EXPECT_STREQ(voice_plugin_start(nullptr, "tel", &callbacks), wrong);
    EXPECT_STREQ(voice_application_start(nullptr, &application), wrong);
    expect_not_started();
}

TEST_F(Start, FunctionsThatAreNotFoundAreSaid) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    const libvoice_app_callbacks_t application = application_callbacks();
    const char wrong[] = "the bus does not find the bus functions in this program (its trace names them): link "
                         "libvoice_plugin as a shared library, or the program with -rdynamic";
    bus().fail_always("kex_declareFunctions");
    EXPECT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), wrong);
    EXPECT_STREQ(voice_application_start(the_bus, &application), wrong);
    expect_not_started();
}

TEST_F(Start, ObjectsThatTheBusRejectsAreSaid) {
    const libvoice_callbacks_t callbacks = plugin_callbacks();
    const libvoice_dsp_callbacks_t dsp = {};
    const libvoice_app_callbacks_t application = application_callbacks();
    const char plugin_wrong[] =
        "the bus does not take the plugin's objects: its name is that of an object with a class";
    for (const char *function : {"kex_declareObject", "kex_declareTemplate"}) {
        bus().fail(function);
        EXPECT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), plugin_wrong) << function;
        expect_not_started();
    }
    const struct {
        const char *function;
        unsigned call;
    } dsp_objects[] = {{"kex_declareObject", 2}, {"kex_declareTemplate", 2}, {"kex_declareTemplate", 3}};
    for (const auto &row : dsp_objects) {
        bus().fail(row.function, row.call);
        EXPECT_STREQ(voice_dsp_plugin_start(the_bus, "tel", &callbacks, &dsp),
                     "the bus does not take the DSP plugin's objects");
        expect_not_started();
    }
    bus().fail("kex_declareObject");
    EXPECT_STREQ(voice_application_start(the_bus, &application),
                 "the bus does not take the application's object: its path is taken");
    expect_not_started();
}

TEST_F(Start, SocketThatCannotBeListenedOnIsSaid) {
    const libvoice_app_callbacks_t callbacks = application_callbacks();
    bus().fail("connection_listenOnIPC");
    EXPECT_STREQ(voice_application_start(the_bus, &callbacks),
                 "cannot listen at the path that ZIL_VOIP_IPC_SOCKET names (without it /var/run/voip_ipc_sock): is "
                 "another application running, or the folder missing?");
}

// --------------------------------------------------------------------------------------------------------- Endpoints

class Endpoints : public Start {
protected:
    void SetUp() override {
        const libvoice_callbacks_t callbacks = plugin_callbacks();
        ASSERT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), nullptr);
        connect("application");
    }
    // A connection to an application, on which "init" comes unless it is another plugin's.
    static void connect(const char *application, bool is_initialised = true) {
        libvoice_set_kex_peer_handler(bus().peer(application));
        if (is_initialised) {
            EXPECT_EQ(libvoice_registered_callbacks.voice_plugin_init("DE"), 0);
        }
        bus().clear_log();
    }
    const char *add(const char *name) {
        return voice_endpoint_register(VOICE_ENDPOINT_FXS, name, codecs, 2, &endpoint, &is_new);
    }
    void gives_number(int16_t number) { bus().answer("register_endpoint", Reply().value(Value::i16(number))); }

    const voice_codec_t codecs[2] = {VOICE_CODEC_PCMA, VOICE_CODEC_PCMU};
    int32_t endpoint = 42;
    int is_new = 42;
};

TEST_F(Endpoints, EndpointIsRegisteredWithItsCodecs) {
    gives_number(7);
    EXPECT_STREQ(add("TEL1"), nullptr);
    EXPECT_EQ(endpoint, 7);
    EXPECT_EQ(is_new, 1);
    EXPECT_EQ(bus().record(1).parameter("endpoint_name").str(), "\"TEL1\"");
    EXPECT_EQ(bus().record(1).parameter("endpoint_path").str(), "\"tel.EndPoint.TEL1\"");
    EXPECT_EQ(bus().record(1).parameter("type").number, 1);
    EXPECT_EQ(bus().record(1).parameter("codeclist").data, records::words({8, 8, 2, 64000, 0, 0, 2, 64000}));
    EXPECT_TRUE(bus().exists("tel.EndPoint.TEL1"));
    EXPECT_EQ(libvoice_get_endpoint_by_name("TEL1"), 7);
}

TEST_F(Endpoints, EndpointThatIsRegisteredIsLeftAsItIs) {
    gives_number(7);
    EXPECT_STREQ(add("TEL1"), nullptr);
    EXPECT_STREQ(add("TEL1"), nullptr) << "\"init\" may come twice";
    EXPECT_EQ(endpoint, 7);
    EXPECT_EQ(is_new, 0);
    EXPECT_EQ(bus().requests_made(), 1u);
}

TEST_F(Endpoints, ObjectLeftOverIsRemovedWithoutAnErrorInTheTrace) {
    bus().object("tel.EndPoint.TEL1"); // from before the application went away
    gives_number(3);
    EXPECT_STREQ(add("TEL1"), nullptr);
    EXPECT_EQ(endpoint, 3);
    EXPECT_TRUE(bus().exists("tel.EndPoint.TEL1"));
    EXPECT_LINES(bus().complaints());
}

TEST_F(Endpoints, RejectedEndpointLeavesNothingBehind) {
    gives_number(-1);
    EXPECT_STREQ(add("TEL1"), "the application does not take the endpoint, or is gone");
    EXPECT_EQ(endpoint, -1);
    EXPECT_EQ(is_new, 0);
    EXPECT_EQ(libvoice_get_endpoint_index_by_name("TEL1"), -1);
    EXPECT_FALSE(bus().exists("tel.EndPoint.TEL1"));

    bus().answer("register_endpoint", Reply().error(196640, "Missing mandatory argument", "type"));
    EXPECT_STREQ(add("TEL1"), "the application does not take the endpoint, or is gone");
    bus().fail("kex_waitForReply"); // it died meanwhile
    EXPECT_STREQ(add("TEL1"), "the application does not take the endpoint, or is gone");
    EXPECT_FALSE(bus().exists("tel.EndPoint.TEL1"));

    gives_number(4);
    EXPECT_STREQ(add("TEL1"), nullptr) << "and it can be tried again";
    EXPECT_EQ(endpoint, 4);
}

TEST_F(Endpoints, NamesThatEndpointsCannotHaveAreSaid) {
    const char not_plain[] = "the endpoint's name has a dot, a blank, a quote or no plain character";
    const struct {
        const char *name;
        const char *wrong;
    } rows[] = {
        {nullptr, "the endpoint has no name"},
        {"", "the endpoint has no name"},
        {"abcdefghijklmnop", "the endpoint's name is too long: 15 characters at most"},
        {"TEL.1", not_plain},
        {"TEL 1", not_plain},
        {"TEL\"1", not_plain},
        {"TEL\t1", not_plain},
    };
    for (const auto &row : rows) {
        endpoint = is_new = 42;
        EXPECT_STREQ(add(row.name), row.wrong);
        EXPECT_EQ(endpoint, -1);
        EXPECT_EQ(is_new, 0);
    }
    EXPECT_EQ(bus().requests_made(), 0u);
    gives_number(7);
    EXPECT_STREQ(add("abcdefghijklmno"), nullptr) << "15 characters";
}

TEST_F(Endpoints, WithoutAnApplicationNothingIsRegistered) {
    libvoice_set_kex_peer_handler(nullptr);
    EXPECT_STREQ(add("TEL1"), "there is no connection to the application: register endpoints from voice_plugin_init");
    EXPECT_EQ(bus().requests_made(), 0u);
    EXPECT_FALSE(bus().exists("tel.EndPoint.TEL1"));
}

TEST_F(Endpoints, NoMoreCodecsTravelThanTheTableHolds) {
    voice_codec_t many[LIBVOICE_ENDPOINT_CODECS + 4];
    for (voice_codec_t &codec : many)
        codec = codecs[0];
    gives_number(7);
    EXPECT_STREQ(
        voice_endpoint_register(VOICE_ENDPOINT_FXS, "TEL1", many, LIBVOICE_ENDPOINT_CODECS + 4, &endpoint, nullptr),
        nullptr);
    EXPECT_EQ(bus().record(1).parameter("codeclist").data.size(), 256u);
    EXPECT_STREQ(voice_endpoint_register(VOICE_ENDPOINT_FXS, "TEL2", nullptr, 0, &endpoint, nullptr), nullptr);
    EXPECT_EQ(bus().record(2).parameter("codeclist").data.size(), 0u);
}

// ----------------------------------------------------------------------------------------------------------- Leaving

TEST_F(Endpoints, LeaveIsTakenWithoutWaiting) {
    EXPECT_TRUE(voice_plugin_leave());
    EXPECT_EQ(bus().record(1).path, "VoiceService.VoiceApplication");
    EXPECT_EQ(bus().record(1).function, "deregister_plugin");
    EXPECT_EQ(bus().record(1).flags, 1u);
    EXPECT_EQ(bus().record(1).parameter("plugin_name").str(), "\"tel\"");
    EXPECT_TRUE(bus().record(1).sent);
    EXPECT_FALSE(bus().record(1).alive);
    for (const std::string &act : bus().acts())
        EXPECT_EQ(act.find("kex_waitForReply"), std::string::npos);
}

TEST_F(Endpoints, WithoutAnApplicationThereIsNoLeaveToTake) {
    libvoice_set_kex_peer_handler(nullptr);
    EXPECT_FALSE(voice_plugin_leave());
    EXPECT_EQ(bus().requests_made(), 0u);
    libvoice_set_kex_peer_handler(bus().peer("application"));
    bus().fail("kex_sendRequest");
    EXPECT_FALSE(voice_plugin_leave());
    bus().fail("request_create_executeFunction");
    EXPECT_FALSE(voice_plugin_leave());
}

TEST_F(Start, InitReachesThePluginsOwnCallbackWithItsAnswer) {
    libvoice_callbacks_t callbacks = plugin_callbacks();
    static std::string named;
    callbacks.voice_plugin_init = [](const char *country) -> int32_t {
        named = country;
        return -7;
    };
    ASSERT_STREQ(voice_plugin_start(the_bus, "tel", &callbacks), nullptr);
    EXPECT_EQ(libvoice_registered_callbacks.voice_plugin_init("AT"), -7);
    EXPECT_EQ(named, "AT");
}

// Another plugin may be known under this name: its lines are not ours to take away.
TEST_F(Endpoints, WithoutInitOnThisConnectionThereIsNoLeaveToTake) {
    EXPECT_TRUE(voice_plugin_is_initialised());
    connect("application started again", false);
    EXPECT_FALSE(voice_plugin_is_initialised());
    EXPECT_FALSE(voice_plugin_leave());
    EXPECT_EQ(bus().requests_made(), 0u);
    libvoice_set_kex_peer_handler(nullptr);
    EXPECT_FALSE(voice_plugin_is_initialised());
    connect("application started again");
    EXPECT_TRUE(voice_plugin_is_initialised());
    EXPECT_TRUE(voice_plugin_leave());
}

TEST_F(Start, PluginStartedByHandTakesLeaveAsItLikes) {
    libvoice_set_kex_handler(the_bus);
    libvoice_set_pluginname("tel");
    libvoice_set_kex_peer_handler(bus().peer("application"));
    EXPECT_TRUE(voice_plugin_leave());
    EXPECT_EQ(bus().record(1).function, "deregister_plugin");
}

// ---------------------------------------------------------------------------------------------------------- Rejections

TEST_F(Endpoints, EachRejectionAnswersNoAndGivesBackWhatItGot) {
    const libvoice_callbacks_t callbacks = voice_plugin_rejections();
    int32_t descriptors[LIBVOICE_DESCRIPTORS];
    int32_t *array = descriptors;
    const auto open_some = [&](int count) {
        for (int i = 0; i < LIBVOICE_DESCRIPTORS; i++)
            descriptors[i] = i < count ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
    };
    const int before = fake::open_descriptors();
    EXPECT_EQ(callbacks.voice_plugin_init, nullptr);
    EXPECT_EQ(callbacks.voice_plugin_exit, nullptr);
    EXPECT_EQ(callbacks.voice_plugin_event, nullptr);
    open_some(LIBVOICE_DESCRIPTORS);
    EXPECT_NE(callbacks.voice_plugin_create(7, 1, nullptr, &array), 0);
    open_some(2);
    EXPECT_NE(callbacks.voice_plugin_modify(7, 1, nullptr, &array), 0);
    open_some(VOICE_STREAM_DESCRIPTORS);
    descriptors[VOICE_STREAM_DESCRIPTORS] = 0; // no library must fill this place: standard input must stay
    fake::memory_start();
    EXPECT_NE(callbacks.voice_plugin_add_stream(1, malloc(712), &array, 7, 1), 0);
    EXPECT_NE(callbacks.voice_plugin_modify_stream(1, malloc(712)), 0);
    EXPECT_EQ(fake::memory_check(0), "");
    EXPECT_NE(fcntl(0, F_GETFD), -1);
    EXPECT_EQ(fake::open_descriptors(), before);
    EXPECT_NE(callbacks.voice_plugin_signal(nullptr), 0);
    EXPECT_NE(callbacks.voice_plugin_destroy(7, 0), 0);
    EXPECT_NE(callbacks.voice_plugin_get(nullptr, nullptr, 0), 0);
    EXPECT_NE(callbacks.voice_plugin_set(nullptr), 0);
    EXPECT_NE(callbacks.voice_plugin_create_ctx(1), 0);
    EXPECT_NE(callbacks.voice_plugin_remove_stream(1, 1), 0);
    EXPECT_NE(callbacks.voice_plugin_destroy_ctx(1), 0);

    ASSERT_EQ(bus().requests_made(), 3u) << "each media command that was rejected";
    for (unsigned i = 1; i <= 3; i++) {
        const char *why = i == 3 ? "no conferences here" : "no media here";
        const std::string params = records::integer(LIBVOICE_PARAM_g_cause_generalcause, VOICE_CAUSE_UNSUPPORTED) +
                                   records::text(LIBVOICE_PARAM_g_cause_failurecause, why);
        EXPECT_EQ(bus().record(i).parameter("event").data,
                  records::words({7, LIBVOICE_EVENT_g_cause, 1, 0, static_cast<uint32_t>(params.size())}) + params);
    }
}

} // namespace
